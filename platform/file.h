// Files of the operating system by 32-bit handle: the low half of a HANDLE on Windows, a descriptor
// elsewhere. Counts and positions are 32 bits wide, as the stream interface hands them out.
#pragma once

#include <cstddef>
#include <cstdint>

namespace tq::platform {

enum class FileMode : std::int32_t { read = 0, update = 1, create = 2 };

// A handle of 0 or above, never 32767 (the memory stream), or a negative value.
std::int32_t file_open(const char* name, FileMode mode);
bool file_exists(const char* name);
void file_close(std::int32_t file);
bool file_remove(const char* name);  // on POSIX regular files only: no link, pipe or device

// What lies behind the first so many bytes goes.
void file_cut(std::int32_t file, std::int32_t bytes);

// Bytes read or written, fewer than `count` only at the end of the file or on an error; negative
// when nothing could be read or written because of an error.
std::int32_t file_read(std::int32_t file, void* buffer, std::int32_t count);
std::int32_t file_write(std::int32_t file, const void* buffer, std::int32_t count);

// The new position, or a negative value on failure or beyond 2^31 - 1. Origin 0 start, 1 current
// position, 2 end.
std::int32_t file_seek(std::int32_t file, std::int32_t offset, std::int32_t origin);

inline constexpr std::size_t kTempNameBytes = 320;

// Creates an empty temporary file that nobody else can have opened before and puts its name into
// `name`, which holds kTempNameBytes. The file's handle, or a negative value.
std::int32_t file_create_temporary(char* name);

}  // namespace tq::platform
