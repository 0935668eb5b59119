// What scanning needs of the operating system: the libraries of drivers, and on Windows what TWAIN's
// sources expect of a program: a window, a message loop, movable global memory.
#pragma once

#include <cstddef>
#include <cstdint>

namespace tq::platform {

// A library by its file name, as the system looks for it; null when there is none. It stays for as
// long as the process where drivers leave threads behind that closing would pull the code away from.
void* driver_open(const char* name);
void* driver_symbol(void* driver, const char* name);  // null when there is none
void driver_close(void* driver);

// Whether scanners are reached by TWAIN here; else by SANE.
bool has_twain();

enum class HostMessage : std::uint8_t { none, message, quit };

// One program that uses TWAIN. The functions take `context` first.
struct TwainHost {
  void* context = nullptr;
  void* entry = nullptr;   // DSM_Entry
  void* window = nullptr;  // of the session
  bool is_modern = false;  // a manager of TWAIN 2

  // The next message of the thread (a MSG), or none for so many milliseconds; quit: the program is to
  // end.
  HostMessage (*next_message)(void* context, int milliseconds, void** message) = nullptr;
  void (*dispatch)(void* context, void* message) = nullptr;  // to its window

  // Handles that the manager and the sources share.
  void* (*allocate)(void* context, std::uint32_t bytes) = nullptr;
  void (*free)(void* context, void* handle) = nullptr;
  void* (*lock)(void* context, void* handle) = nullptr;
  void (*unlock)(void* context, void* handle) = nullptr;
  std::size_t (*size)(void* context, void* handle) = nullptr;  // 0: not known
  // Makes a handle's memory a block as in platform/memory.h, at the address that is given back; null,
  // and nothing done, where its memory is of another kind.
  void* (*to_block)(void* context, void* handle) = nullptr;
};

enum class HostResult : std::uint8_t { opened, no_library, no_window };

// Loads the manager and finds or makes a window: the caller's, or a hidden one for null.
HostResult open_twain_host(TwainHost& host, void* window);
void close_twain_host(TwainHost& host);

}  // namespace tq::platform
