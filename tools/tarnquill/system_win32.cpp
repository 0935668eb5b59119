// The operating system through KERNEL32.
#define WIN32_LEAN_AND_MEAN
#define NOMINMAX
#include <fcntl.h>
#include <io.h>
#include <windows.h>

#include <cctype>
#include <csignal>
#include <cstdlib>

#include "system.h"

namespace tool {
namespace {

volatile std::sig_atomic_t caught_signal = 0;

void note_signal(int number) {
  caught_signal = number;
  std::signal(number, SIG_DFL);
}

HANDLE handle_of(std::int32_t stream) {
  return reinterpret_cast<HANDLE>(static_cast<std::intptr_t>(stream));
}

// The library takes the low 32 bits of a handle, which are all that a handle has.
std::int32_t open_stream(const std::string& name, DWORD access, DWORD disposition) {
  HANDLE const file = CreateFileA(name.c_str(), access, FILE_SHARE_READ, nullptr, disposition,
                                  FILE_ATTRIBUTE_NORMAL, nullptr);
  return static_cast<std::int32_t>(reinterpret_cast<std::intptr_t>(file));
}

}  // namespace

PathKind path_kind(const std::string& name) {
  const DWORD attributes = GetFileAttributesA(name.c_str());
  if (attributes == INVALID_FILE_ATTRIBUTES) return PathKind::absent;
  if ((attributes & FILE_ATTRIBUTE_DEVICE) != 0) return PathKind::other;
  return (attributes & FILE_ATTRIBUTE_DIRECTORY) != 0 ? PathKind::folder : PathKind::file;
}

bool is_separator(char c) {
  return c == '/' || c == '\\' || c == ':';
}

std::int32_t open_to_read(const std::string& name) {
  return open_stream(name, GENERIC_READ, OPEN_EXISTING);
}

std::int32_t open_to_update(const std::string& name) {
  return open_stream(name, GENERIC_READ | GENERIC_WRITE, OPEN_EXISTING);
}

std::int32_t create_new(const std::string& name) {
  return open_stream(name, GENERIC_READ | GENERIC_WRITE, CREATE_NEW);
}

void rewind_stream(std::int32_t stream) {
  SetFilePointer(handle_of(stream), 0, nullptr, FILE_BEGIN);
}

std::int64_t position_of(std::int32_t stream) {
  LARGE_INTEGER nowhere{}, position{};
  return SetFilePointerEx(handle_of(stream), nowhere, &position, FILE_CURRENT) != 0
             ? position.QuadPart
             : -1;
}

void close_stream(std::int32_t stream) {
  CloseHandle(handle_of(stream));
}

std::int32_t read_stream(std::int32_t stream, void* bytes, std::int32_t count) {
  DWORD got = 0;
  const BOOL fine = ReadFile(handle_of(stream), bytes, static_cast<DWORD>(count), &got, nullptr);
  return fine == 0 || caught_signal != 0 ? -1 : static_cast<std::int32_t>(got);
}

bool write_stream(std::int32_t stream, const void* bytes, std::int32_t count) {
  DWORD put = 0;
  const auto wanted = static_cast<DWORD>(count);
  return WriteFile(handle_of(stream), bytes, wanted, &put, nullptr) != 0 && put == wanted;
}

FileState state_of(const std::string& name) {
  constexpr DWORD kSharing = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;
  HANDLE const file = CreateFileA(name.c_str(), 0, kSharing, nullptr, OPEN_EXISTING, 0, nullptr);
  if (file == INVALID_HANDLE_VALUE) return {};
  BY_HANDLE_FILE_INFORMATION found{};
  GetFileInformationByHandle(file, &found);
  CloseHandle(file);
  const auto joined = [](DWORD high, DWORD low) { return std::uint64_t{high} << 32 | low; };
  return {found.dwVolumeSerialNumber, joined(found.nFileIndexHigh, found.nFileIndexLow),
          joined(found.nFileSizeHigh, found.nFileSizeLow),
          joined(found.ftLastWriteTime.dwHighDateTime, found.ftLastWriteTime.dwLowDateTime)};
}

// A file cannot be locked while another is moved to its place: a mutex stands for its name.
void take_turn(const std::string& name) {
  static HANDLE held = nullptr;
  char path[MAX_PATH + 1];
  const DWORD length = GetFullPathNameA(name.c_str(), sizeof path, path, nullptr);
  if (held != nullptr || length == 0 || length >= sizeof path) return;
  std::uint64_t hash = 0xCBF29CE484222325;  // FNV-1a
  for (const char* c = path; *c != 0; ++c) {
    hash = (hash ^ static_cast<unsigned char>(std::tolower(static_cast<unsigned char>(*c)))) *
           0x100000001B3;
  }
  held = CreateMutexA(nullptr, FALSE, ("tarnquill-" + std::to_string(hash)).c_str());
  if (held != nullptr) WaitForSingleObject(held, INFINITE);
}

bool replace_file(const std::string& from, const std::string& to) {
  return MoveFileExA(from.c_str(), to.c_str(), MOVEFILE_REPLACE_EXISTING) != 0;
}

bool name_file(const std::string& from, const std::string& to) {
  return MoveFileExA(from.c_str(), to.c_str(), 0) != 0;
}

void remove_file(const std::string& name) {
  DeleteFileA(name.c_str());
}

bool make_folder(const std::string& name) {
  return CreateDirectoryA(name.c_str(), nullptr) != 0;
}

std::string resolve_links(const std::string& name) {
  return name;
}

void copy_permissions(const std::string& /*from*/, const std::string& /*to*/) {}

std::string temporary_folder() {
  static const std::string kept = [] {
    char folder[MAX_PATH + 1];  // the system ends it with a separator
    const DWORD length = GetTempPathA(sizeof folder, folder);
    return std::string(length > 0 && length < sizeof folder ? folder : "./");
  }();
  return kept;
}

void set_library_temporary_folder(const std::string& folder) {
  SetEnvironmentVariableA("TMP", folder.empty() ? "." : folder.c_str());
}

void hold_standard_streams() {}  // a missing one is no handle, which no file gets

bool is_terminal(std::FILE* file) {
  return _isatty(_fileno(file)) != 0;
}

void set_binary(std::FILE* file) {
  _setmode(_fileno(file), _O_BINARY);
}

void catch_interrupts() {
  std::signal(SIGINT, note_signal);
  std::signal(SIGTERM, note_signal);
}

int interrupted() {
  return caught_signal;
}

void end_by_signal(int /*number*/) {
  std::_Exit(1);
}

}  // namespace tool
