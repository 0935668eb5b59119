// No files: callers hand over blocks of memory.
#include "platform/file.h"

namespace tq::platform {

std::int32_t file_open(FileName /*name*/, FileMode /*mode*/) {
  return -1;
}
bool file_exists(FileName /*name*/) {
  return false;
}
void file_close(std::int32_t /*file*/) {}
bool file_remove(FileName /*name*/) {
  return false;
}

FileKind file_kind(FileName /*name*/) {
  return FileKind::none;
}
FileName file_target(FileName name, char* /*target*/) {
  return name;
}
std::int32_t file_create_beside(FileName /*name*/, char* /*beside*/) {
  return -1;
}
bool file_flush(std::int32_t /*file*/) {
  return false;
}
bool file_replace(FileName /*from*/, FileName /*to*/) {
  return false;
}
void file_cut(std::int32_t /*file*/, std::int32_t /*bytes*/) {}

std::int32_t file_read(std::int32_t /*file*/, void* /*buffer*/, std::int32_t /*count*/) {
  return -1;
}
std::int32_t file_read_at(std::int32_t /*file*/, void* /*buffer*/, std::int32_t /*count*/,
                          std::int32_t /*at*/) {
  return -1;
}
std::int32_t file_write(std::int32_t /*file*/, const void* /*buffer*/, std::int32_t /*count*/) {
  return -1;
}
std::int32_t file_seek(std::int32_t /*file*/, std::int32_t /*offset*/, std::int32_t /*origin*/) {
  return -1;
}
std::int32_t file_create_temporary(char* /*name*/) {
  return -1;
}

}  // namespace tq::platform
