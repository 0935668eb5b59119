// What TWAIN's sources expect of a program. USER32 is looked up and never imported: a process without
// windows does without it until it scans.
#include "platform/scan_host.h"

#define WIN32_LEAN_AND_MEAN
#include <windows.h>

#include <initializer_list>

#include "platform/memory.h"

namespace tq::platform {
namespace {

struct User32 {
  HMODULE library;
  decltype(&::CreateWindowExA) create_window;
  decltype(&::DestroyWindow) destroy_window;
  decltype(&::PeekMessageA) peek_message;
  decltype(&::MsgWaitForMultipleObjects) wait;
  decltype(&::TranslateMessage) translate;
  decltype(&::DispatchMessageA) dispatch;
  decltype(&::PostQuitMessage) post_quit;
};

struct Host {
  HMODULE manager;
  User32 user;
  HWND own_window;
  MSG message;
};
constinit Host host{};  // there is one session in the process

template <class Function>
bool find(HMODULE library, const char* name, Function& function) {
  function = reinterpret_cast<Function>(reinterpret_cast<void*>(GetProcAddress(library, name)));
  return function != nullptr;
}

bool find_user32(User32& user) {
  user.library = LoadLibraryA("USER32.DLL");
  return user.library != nullptr && find(user.library, "CreateWindowExA", user.create_window) &&
         find(user.library, "DestroyWindow", user.destroy_window) &&
         find(user.library, "PeekMessageA", user.peek_message) &&
         find(user.library, "MsgWaitForMultipleObjects", user.wait) &&
         find(user.library, "TranslateMessage", user.translate) &&
         find(user.library, "DispatchMessageA", user.dispatch) &&
         find(user.library, "PostQuitMessage", user.post_quit);
}

// A class that every system has, so that none is registered. Without a display there are windows for
// messages only.
HWND make_window(const User32& user) {
  const HWND hidden =
      user.create_window(0, "STATIC", "", WS_POPUP, 0, 0, 0, 0, nullptr, nullptr, nullptr, nullptr);
  if (hidden != nullptr) return hidden;
  return user.create_window(0, "STATIC", "", 0, 0, 0, 0, 0, HWND_MESSAGE, nullptr, nullptr,
                            nullptr);
}

HostMessage next_message(void* /*context*/, int milliseconds, void** message) {
  const User32& user = host.user;
  // A call that only returns with a message hangs some sources.
  for (const bool waited : {false, true}) {
    if (waited) user.wait(0, nullptr, FALSE, static_cast<DWORD>(milliseconds), QS_ALLINPUT);
    if (user.peek_message(&host.message, nullptr, 0, 0, PM_REMOVE) == 0) continue;
    *message = &host.message;
    if (host.message.message != WM_QUIT) return HostMessage::message;
    user.post_quit(static_cast<int>(host.message.wParam));  // it is the program's
    return HostMessage::quit;
  }
  return HostMessage::none;
}

void dispatch(void* /*context*/, void* message) {
  host.user.translate(static_cast<MSG*>(message));
  host.user.dispatch(static_cast<MSG*>(message));
}

void* allocate(void* /*context*/, std::uint32_t bytes) {
  return GlobalAlloc(GHND, bytes);
}
void free_handle(void* /*context*/, void* handle) {
  GlobalFree(handle);
}
void* lock(void* /*context*/, void* handle) {
  return GlobalLock(handle);
}
void unlock(void* /*context*/, void* handle) {
  GlobalUnlock(handle);
}
std::size_t size(void* /*context*/, void* handle) {
  return GlobalSize(handle);
}

void* to_block(void* /*context*/, void* handle) {
  void* const address = GlobalLock(handle);
  if (address != nullptr && block_size(address) != 0) return address;
  if (address != nullptr) GlobalUnlock(handle);
  return nullptr;
}

bool load_manager(TwainHost& made) {
  // The first lies in the Windows folder; there is none of 64 bits.
  for (const char* name : {"TWAIN_32.DLL", "TWAINDSM.DLL"}) {
    if (sizeof(void*) == 8 && name[5] == '_') continue;
    host.manager = LoadLibraryA(name);
    if (host.manager == nullptr) continue;
    made.entry = reinterpret_cast<void*>(GetProcAddress(host.manager, "DSM_Entry"));
    made.is_modern = name[5] != '_';
    if (made.entry != nullptr) return true;
    FreeLibrary(host.manager);
    host.manager = nullptr;
  }
  return false;
}

}  // namespace

void* driver_open(const char* name) {
  return LoadLibraryA(name);
}
void* driver_symbol(void* driver, const char* name) {
  return reinterpret_cast<void*>(GetProcAddress(static_cast<HMODULE>(driver), name));
}
void driver_close(void* driver) {
  FreeLibrary(static_cast<HMODULE>(driver));
}

bool has_twain() {
  return true;
}

HostResult open_twain_host(TwainHost& made, void* window) {
  if (!find_user32(host.user) || !load_manager(made)) {
    close_twain_host(made);
    return HostResult::no_library;
  }
  if (window == nullptr) window = host.own_window = make_window(host.user);
  if (window == nullptr) {
    close_twain_host(made);
    return HostResult::no_window;
  }
  made = {.context = nullptr,
          .entry = made.entry,
          .window = window,
          .is_modern = made.is_modern,
          .next_message = next_message,
          .dispatch = dispatch,
          .allocate = allocate,
          .free = free_handle,
          .lock = lock,
          .unlock = unlock,
          .size = size,
          .to_block = to_block};
  return HostResult::opened;
}

void close_twain_host(TwainHost& made) {
  if (host.own_window != nullptr) host.user.destroy_window(host.own_window);
  if (host.manager != nullptr) FreeLibrary(host.manager);
  if (host.user.library != nullptr) FreeLibrary(host.user.library);
  host = {};
  made = {};
}

}  // namespace tq::platform
