// Files of the operating system by 32-bit handle: the low half of a HANDLE on Windows, a descriptor
// elsewhere. Counts and positions are 32 bits wide, as the stream interface hands them out.
#pragma once

#include <cstddef>
#include <cstdint>

namespace tq::platform {

// As a caller gives it. On Windows it is UTF-8 or coded as the system's own 8-bit functions take it;
// elsewhere names are bytes.
struct FileName {
  FileName() = default;
  FileName(const char* name, bool is_utf8 = false)  // NOLINT(*-explicit-*): a name is one
      : text(name), utf8(is_utf8) {}

  const char* text = nullptr;
  bool utf8 = false;
};

enum class FileMode : std::int32_t { read = 0, update = 1, create = 2 };

// A handle of 0 or above, never 32767 (the memory stream), or a negative value.
std::int32_t file_open(FileName name, FileMode mode);
bool file_exists(FileName name);
void file_close(std::int32_t file);
bool file_remove(FileName name);  // on POSIX regular files only: no link, pipe or device

// What a name leads to, links followed: nothing, a regular file with or without bytes in it, or what
// is none: a folder, a pipe, a device, or what cannot be told.
enum class FileKind : std::uint8_t { none, empty, filled, other };
FileKind file_kind(FileName name);

inline constexpr std::size_t kTargetBytes = 4096;

// Where a link leads, also one to nothing: its name, which stands in `target` of kTargetBytes; of what
// is no link the name itself; null where it cannot be told.
FileName file_target(FileName name, char* target);

inline constexpr std::size_t kBesideBytes = 24;  // that its name is longer

// Creates an empty file in the folder of `name`, which nobody else can have opened before, for what is
// to take the place of `name`: with the rights and the owner of the file that is there, as far as they
// may be given. Its name is put into `beside`; the file's handle, or a negative value.
std::int32_t file_create_beside(FileName name, char* beside);

// Makes what has been written stay when the system fails.
bool file_flush(std::int32_t file);

// Gives a file the name `to`, in one step: whoever opens `to` finds what was there or what is.
bool file_replace(FileName from, FileName to);

// What lies behind the first so many bytes goes.
void file_cut(std::int32_t file, std::int32_t bytes);

// Bytes read or written, fewer than `count` only at the end of the file or on an error; negative
// when nothing could be read or written because of an error.
std::int32_t file_read(std::int32_t file, void* buffer, std::int32_t count);
// The same from a place in a file that is open for reading and stands at its start; there it stays.
// Negative for what is not a file.
std::int32_t file_read_at(std::int32_t file, void* buffer, std::int32_t count, std::int32_t at);
std::int32_t file_write(std::int32_t file, const void* buffer, std::int32_t count);

// The new position, or a negative value on failure or beyond 2^31 - 1. Origin 0 start, 1 current
// position, 2 end.
std::int32_t file_seek(std::int32_t file, std::int32_t offset, std::int32_t origin);

inline constexpr std::size_t kTempNameBytes = 800;

// Creates an empty temporary file that nobody else can have opened before and puts its name into
// `name`, which holds kTempNameBytes: UTF-8 on Windows. The file's handle, or a negative value.
std::int32_t file_create_temporary(char* name);

}  // namespace tq::platform
