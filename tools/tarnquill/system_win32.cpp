// The operating system through KERNEL32.
#define WIN32_LEAN_AND_MEAN
#define NOMINMAX
#include <fcntl.h>
#include <io.h>
#include <windows.h>

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
  SetFilePointer(reinterpret_cast<HANDLE>(static_cast<std::intptr_t>(stream)), 0, nullptr,
                 FILE_BEGIN);
}

void close_stream(std::int32_t stream) {
  CloseHandle(reinterpret_cast<HANDLE>(static_cast<std::intptr_t>(stream)));
}

bool replace_file(const std::string& from, const std::string& to) {
  return MoveFileExA(from.c_str(), to.c_str(), MOVEFILE_REPLACE_EXISTING) != 0;
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
  char folder[MAX_PATH + 1];
  const DWORD length = GetTempPathA(sizeof folder, folder);
  return length > 0 && length < sizeof folder ? folder : ".";
}

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
