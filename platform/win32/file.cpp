// Files by the low half of a HANDLE. Handles are multiples of 4, so none is 32767.
#include "platform/file.h"

#define WIN32_LEAN_AND_MEAN
#include <windows.h>

namespace tq::platform {
namespace {

HANDLE handle_of(std::int32_t file) {
  return reinterpret_cast<HANDLE>(static_cast<std::intptr_t>(file));
}

// INVALID_HANDLE_VALUE is -1.
std::int32_t file_of(HANDLE handle) {
  return static_cast<std::int32_t>(reinterpret_cast<std::intptr_t>(handle));
}

}  // namespace

std::int32_t file_open(const char* name, FileMode mode) {
  const bool reading = mode == FileMode::read;
  const DWORD access = reading ? GENERIC_READ : GENERIC_READ | GENERIC_WRITE;
  const DWORD sharing = reading ? FILE_SHARE_READ : 0;
  const DWORD disposition = mode == FileMode::create ? CREATE_ALWAYS : OPEN_EXISTING;
  return file_of(
      CreateFileA(name, access, sharing, nullptr, disposition, FILE_ATTRIBUTE_NORMAL, nullptr));
}

bool file_exists(const char* name) {
  return GetFileAttributesA(name) != INVALID_FILE_ATTRIBUTES;
}

void file_close(std::int32_t file) {
  CloseHandle(handle_of(file));
}

bool file_remove(const char* name) {
  return DeleteFileA(name) != 0;
}

void file_cut(std::int32_t file, std::int32_t bytes) {
  SetFilePointer(handle_of(file), bytes, nullptr, FILE_BEGIN);
  SetEndOfFile(handle_of(file));
}

std::int32_t file_read(std::int32_t file, void* buffer, std::int32_t count) {
  std::int32_t done = 0;
  while (done < count) {
    DWORD got = 0;
    const BOOL fine =
        ReadFile(handle_of(file), static_cast<char*>(buffer) + done, count - done, &got, nullptr);
    if (fine == 0 && done == 0) return -1;
    if (fine == 0 || got == 0) break;
    done += got;
  }
  return done;
}

std::int32_t file_write(std::int32_t file, const void* buffer, std::int32_t count) {
  std::int32_t done = 0;
  while (done < count) {
    DWORD put = 0;
    const BOOL fine = WriteFile(handle_of(file), static_cast<const char*>(buffer) + done,
                                count - done, &put, nullptr);
    if (fine == 0 && done == 0) return -1;
    if (fine == 0 || put == 0) break;
    done += put;
  }
  return done;
}

std::int32_t file_seek(std::int32_t file, std::int32_t offset, std::int32_t origin) {
  if (origin < 0 || origin > 2) return -1;
  LARGE_INTEGER distance{}, position{};
  distance.QuadPart = offset;
  const DWORD method = origin;  // FILE_BEGIN, FILE_CURRENT, FILE_END
  if (SetFilePointerEx(handle_of(file), distance, &position, method) == 0) return -1;
  return position.QuadPart > INT32_MAX ? -1 : static_cast<std::int32_t>(position.QuadPart);
}

std::int32_t file_create_temporary(char* name) {
  static_assert(kTempNameBytes >= MAX_PATH);
  char folder[MAX_PATH + 1];
  const DWORD length = GetTempPathA(sizeof folder, folder);
  if (length == 0 || length >= sizeof folder) return -1;
  // A unique number of 0 makes the system create the file, so no other process gets its name.
  if (GetTempFileNameA(folder, "img", 0, name) == 0) return -1;
  const std::int32_t file =
      file_of(CreateFileA(name, GENERIC_READ | GENERIC_WRITE, 0, nullptr, TRUNCATE_EXISTING,
                          FILE_ATTRIBUTE_TEMPORARY, nullptr));
  if (file < 0) DeleteFileA(name);
  return file;
}

}  // namespace tq::platform
