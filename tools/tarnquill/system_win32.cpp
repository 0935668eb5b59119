// The operating system through KERNEL32.
#define WIN32_LEAN_AND_MEAN
#define NOMINMAX
#include <fcntl.h>
#include <io.h>
#include <windows.h>

#include <csignal>
#include <cstdlib>
#include <cwchar>
#include <cwctype>

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

std::string narrow(const wchar_t* text) {
  const int bytes = WideCharToMultiByte(CP_UTF8, 0, text, -1, nullptr, 0, nullptr, nullptr);
  std::string name(static_cast<std::size_t>(bytes > 0 ? bytes : 1), '\0');
  WideCharToMultiByte(CP_UTF8, 0, text, -1, name.data(), bytes, nullptr, nullptr);
  name.pop_back();  // the 0
  return name;
}

std::wstring plain_wide(const std::string& name) {
  const int count = MultiByteToWideChar(CP_UTF8, 0, name.c_str(), -1, nullptr, 0);
  std::wstring wide(static_cast<std::size_t>(count > 0 ? count : 1), L'\0');
  MultiByteToWideChar(CP_UTF8, 0, name.c_str(), -1, wide.data(), count);
  wide.pop_back();
  return wide;
}

std::wstring full_path(const std::wstring& name) {
  std::wstring path(GetFullPathNameW(name.c_str(), 0, nullptr, nullptr), L'\0');
  path.resize(
      GetFullPathNameW(name.c_str(), static_cast<DWORD>(path.size()), path.data(), nullptr));
  return path;
}

// Names that are too long for the usual functions have a form of their own.
std::wstring wide(const std::string& name) {
  std::wstring plain = plain_wide(name);
  if (plain.size() < MAX_PATH || plain.starts_with(LR"(\\?\)")) return plain;
  const std::wstring path = full_path(plain);
  const bool is_share = path.starts_with(LR"(\\)");
  return is_share ? LR"(\\?\UNC)" + path.substr(1) : LR"(\\?\)" + path;
}

// The library takes the low 32 bits of a handle, which are all that a handle has.
std::int32_t open_stream(const std::string& name, DWORD access, DWORD disposition) {
  HANDLE const file = CreateFileW(wide(name).c_str(), access, FILE_SHARE_READ, nullptr, disposition,
                                  FILE_ATTRIBUTE_NORMAL, nullptr);
  return static_cast<std::int32_t>(reinterpret_cast<std::intptr_t>(file));
}

}  // namespace

PathKind path_kind(const std::string& name) {
  const DWORD attributes = GetFileAttributesW(wide(name).c_str());
  if (attributes == INVALID_FILE_ATTRIBUTES) return PathKind::absent;
  if ((attributes & FILE_ATTRIBUTE_DEVICE) != 0) return PathKind::other;
  return (attributes & FILE_ATTRIBUTE_DIRECTORY) != 0 ? PathKind::folder : PathKind::file;
}

bool is_separator(char c) {
  return c == '/' || c == '\\' || c == ':';
}

bool is_forbidden(const std::string& name) {
  const std::int32_t file = open_to_read(name);
  if (file != -1) close_stream(file);
  return file == -1 && GetLastError() == ERROR_ACCESS_DENIED && path_kind(name) == PathKind::file;
}

std::int32_t open_to_read(const std::string& name) {
  return open_stream(name, GENERIC_READ, OPEN_EXISTING);
}

std::int32_t open_to_update(const std::string& name) {
  return open_stream(name, GENERIC_READ | GENERIC_WRITE, OPEN_EXISTING);
}

std::FILE* open_file(const std::string& name, const char* mode) {
  return _wfopen(wide(name).c_str(), plain_wide(mode).c_str());
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
  HANDLE const file =
      CreateFileW(wide(name).c_str(), 0, kSharing, nullptr, OPEN_EXISTING, 0, nullptr);
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
  if (held != nullptr) return;
  std::uint64_t hash = 0xCBF29CE484222325;  // FNV-1a
  for (const wchar_t c : full_path(wide(name))) hash = (hash ^ std::towlower(c)) * 0x100000001B3;
  held = CreateMutexA(nullptr, FALSE, ("tarnquill-" + std::to_string(hash)).c_str());
  if (held != nullptr) WaitForSingleObject(held, INFINITE);
}

bool replace_file(const std::string& from, const std::string& to) {
  return MoveFileExW(wide(from).c_str(), wide(to).c_str(), MOVEFILE_REPLACE_EXISTING) != 0;
}

bool name_file(const std::string& from, const std::string& to) {
  return MoveFileExW(wide(from).c_str(), wide(to).c_str(), 0) != 0;
}

void remove_file(const std::string& name) {
  DeleteFileW(wide(name).c_str());
}

bool make_folder(const std::string& name) {
  return CreateDirectoryW(wide(name).c_str(), nullptr) != 0;
}

std::string resolve_links(const std::string& name) {
  return name;
}

void copy_permissions(const std::string& /*from*/, const std::string& /*to*/) {}

void copy_date(const std::string& from, const std::string& to) {
  const auto open = [](const std::string& name, DWORD access) {
    return CreateFileW(wide(name).c_str(), access, FILE_SHARE_READ, nullptr, OPEN_EXISTING, 0,
                       nullptr);
  };
  HANDLE const source = open(from, FILE_READ_ATTRIBUTES);
  HANDLE const target = open(to, FILE_WRITE_ATTRIBUTES);
  FILETIME accessed{}, written{};
  if (GetFileTime(source, nullptr, &accessed, &written) != 0) {
    SetFileTime(target, nullptr, &accessed, &written);
  }
  CloseHandle(source);
  CloseHandle(target);
}

std::string temporary_folder() {
  static const std::string kept = [] {
    wchar_t folder[MAX_PATH + 1];  // the system ends it with a separator
    const DWORD length = GetTempPathW(MAX_PATH + 1, folder);
    return length > 0 && length <= MAX_PATH ? narrow(folder) : std::string("./");
  }();
  return kept;
}

void set_library_temporary_folder(const std::string& folder) {
  SetEnvironmentVariableW(L"TMP", folder.empty() ? L"." : wide(folder).c_str());
}

void hold_standard_streams() {}  // a missing one is no handle, which no file gets

bool is_terminal(std::FILE* file) {
  return _isatty(_fileno(file)) != 0;
}

TerminalSize terminal_size() {
  const HANDLE console = GetStdHandle(STD_OUTPUT_HANDLE);
  CONSOLE_SCREEN_BUFFER_INFO info = {};
  if (GetConsoleScreenBufferInfo(console, &info) == 0) return {};
  DWORD mode = 0;
  constexpr DWORD kObeysSequences = 4;  // ENABLE_VIRTUAL_TERMINAL_PROCESSING
  if (GetConsoleMode(console, &mode) != 0) SetConsoleMode(console, mode | kObeysSequences);
  const SMALL_RECT& seen = info.srWindow;
  return {{seen.Right - seen.Left + 1, seen.Bottom - seen.Top + 1}, {}};
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

// Quoting is that of the C run-time, and no argument is lost in the code page.
extern "C" int wmain(int argc, wchar_t** argv) {
  SetConsoleOutputCP(CP_UTF8);
  std::vector<std::string> words;
  for (int i = 1; i < argc; ++i) words.push_back(tool::narrow(argv[i]));
  return tool::run_program(words);
}
