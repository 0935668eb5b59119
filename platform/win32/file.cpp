// Files by the low half of a HANDLE. Handles are multiples of 4, so none is 32767.
#include "platform/file.h"

#define WIN32_LEAN_AND_MEAN
#include <windows.h>

#include <algorithm>
#include <cstring>
#include <cwchar>
#include <iterator>

#include "platform/text.h"

namespace tq::platform {
namespace {

HANDLE handle_of(std::int32_t file) {
  return reinterpret_cast<HANDLE>(static_cast<std::intptr_t>(file));
}

// INVALID_HANDLE_VALUE is -1.
std::int32_t file_of(HANDLE handle) {
  return static_cast<std::int32_t>(reinterpret_cast<std::intptr_t>(handle));
}

class WideRoom {
 public:
  WideRoom() = default;
  WideRoom(const WideRoom&) = delete;
  WideRoom& operator=(const WideRoom&) = delete;
  ~WideRoom() {
    if (longer_ != nullptr) HeapFree(GetProcessHeap(), 0, longer_);
  }
  wchar_t* take(std::size_t count) {
    if (count <= std::size(short_)) return short_;
    longer_ = static_cast<wchar_t*>(HeapAlloc(GetProcessHeap(), 0, count * sizeof(wchar_t)));
    return longer_;
  }

 private:
  wchar_t short_[MAX_PATH];
  wchar_t* longer_ = nullptr;
};

constexpr wchar_t kLongPrefix[] = L"\\\\?\\", kLongSharePrefix[] = L"\\\\?\\UNC";

// What the wide functions take. Where the name says of no file, get() is a name of none.
class WideName {
 public:
  explicit WideName(FileName name) {
    const UINT coding = name.utf8 ? CP_UTF8 : AreFileApisANSI() != 0 ? CP_ACP : CP_OEMCP;
    const DWORD strict = name.utf8 ? MB_ERR_INVALID_CHARS : 0;
    const int count = MultiByteToWideChar(coding, strict, name.text, -1, nullptr, 0);
    wchar_t* const text = count > 0 ? room_.take(count) : nullptr;
    if (text == nullptr) return;
    MultiByteToWideChar(coding, strict, name.text, -1, text, count);
    text_ = text;
    const bool is_long = count > MAX_PATH && std::wcsncmp(text, kLongPrefix, 4) != 0;
    if (is_long) make_full();
  }
  const wchar_t* get() const { return text_; }

 private:
  // Names of any length have to begin at a drive or a share, behind a prefix.
  void make_full() {
    constexpr std::size_t kPrefix = std::size(kLongSharePrefix);
    const DWORD count = GetFullPathNameW(text_, 0, nullptr, nullptr);
    wchar_t* const full = count == 0 ? nullptr : full_room_.take(kPrefix + count);
    if (full == nullptr) return;
    wchar_t* const path = full + kPrefix;
    const DWORD length = GetFullPathNameW(text_, count, path, nullptr);
    if (length == 0 || length >= count) return;
    const bool on_share = path[0] == L'\\' && path[1] == L'\\';  // one of them stays
    const std::size_t prefix = std::wcslen(on_share ? kLongSharePrefix : kLongPrefix);
    wchar_t* const start = path + (on_share ? 1 : 0) - prefix;
    std::copy_n(on_share ? kLongSharePrefix : kLongPrefix, prefix, start);
    text_ = start;
  }

  WideRoom room_, full_room_;
  const wchar_t* text_ = L"";
};

// Asks for no right to the contents, which is granted also while somebody writes.
HANDLE look_at(const WideName& name) {
  constexpr DWORD kSharing = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;
  return CreateFileW(name.get(), 0, kSharing, nullptr, OPEN_EXISTING, 0, nullptr);
}

constexpr int kMostAttempts = 10;  // at a name that nobody has

}  // namespace

std::int32_t file_open(FileName name, FileMode mode) {
  const bool reading = mode == FileMode::read;
  const DWORD access = reading ? GENERIC_READ : GENERIC_READ | GENERIC_WRITE;
  const DWORD sharing = reading ? FILE_SHARE_READ : 0;
  const DWORD disposition = mode == FileMode::create ? CREATE_ALWAYS : OPEN_EXISTING;
  return file_of(CreateFileW(WideName(name).get(), access, sharing, nullptr, disposition,
                             FILE_ATTRIBUTE_NORMAL, nullptr));
}

bool file_exists(FileName name) {
  return GetFileAttributesW(WideName(name).get()) != INVALID_FILE_ATTRIBUTES;
}

void file_close(std::int32_t file) {
  CloseHandle(handle_of(file));
}

bool file_remove(FileName name) {
  return DeleteFileW(WideName(name).get()) != 0;
}

FileKind file_kind(FileName name) {
  const WideName wide(name);
  if (*wide.get() == L'\0') return FileKind::other;
  HANDLE const file = look_at(wide);
  if (file == INVALID_HANDLE_VALUE) {
    const DWORD error = GetLastError();
    const bool none = error == ERROR_FILE_NOT_FOUND || error == ERROR_PATH_NOT_FOUND;
    return none ? FileKind::none : FileKind::other;
  }
  LARGE_INTEGER size{};
  const bool regular = GetFileType(file) == FILE_TYPE_DISK && GetFileSizeEx(file, &size) != 0;
  CloseHandle(file);
  if (!regular) return FileKind::other;
  return size.QuadPart == 0 ? FileKind::empty : FileKind::filled;
}

FileName file_target(FileName name, char* target) {
  const WideName wide(name);
  const DWORD attributes = GetFileAttributesW(wide.get());
  const bool is_link =
      attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_REPARSE_POINT) != 0;
  if (!is_link) return name;
  HANDLE const file = look_at(wide);
  if (file == INVALID_HANDLE_VALUE) return {};
  WideRoom room;
  wchar_t* const path = room.take(kTargetBytes);
  const DWORD length = path == nullptr ? 0 : GetFinalPathNameByHandleW(file, path, kTargetBytes, 0);
  CloseHandle(file);
  if (length == 0 || length >= kTargetBytes) return {};
  const int bytes =
      WideCharToMultiByte(CP_UTF8, 0, path, -1, target, kTargetBytes, nullptr, nullptr);
  return bytes > 0 ? FileName{target, true} : FileName();
}

std::int32_t file_create_beside(FileName name, char* beside) {
  const std::size_t length = std::strlen(name.text);
  for (int attempt = 0; attempt < kMostAttempts; ++attempt) {
    LARGE_INTEGER now{};
    QueryPerformanceCounter(&now);
    const DWORD number = now.LowPart ^ GetCurrentProcessId() << 12 ^ 0x9E3779B9u * (attempt + 1);
    print_text({beside, length + kBesideBytes}, "%s.tarnquill-%08lx.tmp", name.text, number);
    HANDLE const file =
        CreateFileW(WideName({beside, name.utf8}).get(), GENERIC_READ | GENERIC_WRITE, 0, nullptr,
                    CREATE_NEW, FILE_ATTRIBUTE_NORMAL, nullptr);
    if (file != INVALID_HANDLE_VALUE) return file_of(file);
  }
  return -1;
}

bool file_flush(std::int32_t file) {
  return FlushFileBuffers(handle_of(file)) != 0;
}

bool file_replace(FileName from, FileName to) {
  return MoveFileExW(WideName(from).get(), WideName(to).get(),
                     MOVEFILE_REPLACE_EXISTING | MOVEFILE_WRITE_THROUGH) != 0;
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

std::int32_t file_read_at(std::int32_t file, void* buffer, std::int32_t count, std::int32_t at) {
  if (GetFileType(handle_of(file)) != FILE_TYPE_DISK || file_seek(file, at, 0) != at) return -1;
  const std::int32_t got = file_read(file, buffer, count);
  file_seek(file, 0, 0);
  return got;
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
  static_assert(kTempNameBytes > 3 * MAX_PATH);
  wchar_t folder[MAX_PATH + 1], path[MAX_PATH];
  const DWORD length = GetTempPathW(std::size(folder), folder);
  if (length == 0 || length >= std::size(folder)) return -1;
  // A unique number of 0 makes the system create the file, so no other process gets its name.
  if (GetTempFileNameW(folder, L"img", 0, path) == 0) return -1;
  const std::int32_t file =
      file_of(CreateFileW(path, GENERIC_READ | GENERIC_WRITE, 0, nullptr, TRUNCATE_EXISTING,
                          FILE_ATTRIBUTE_TEMPORARY, nullptr));
  const int bytes =
      WideCharToMultiByte(CP_UTF8, 0, path, -1, name, kTempNameBytes, nullptr, nullptr);
  if (file >= 0 && bytes > 0) return file;
  if (file >= 0) CloseHandle(handle_of(file));
  DeleteFileW(path);
  return -1;
}

}  // namespace tq::platform
