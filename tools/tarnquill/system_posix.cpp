// The operating system through POSIX.
#define _FILE_OFFSET_BITS 64  // files beyond 2 GiB open on 32-bit systems too
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>

#include "system.h"

namespace tool {
namespace {

volatile std::sig_atomic_t caught_signal = 0;

void note_signal(int number) {
  caught_signal = number;
}

}  // namespace

PathKind path_kind(const std::string& name) {
  struct stat status;
  if (stat(name.c_str(), &status) != 0) return PathKind::absent;
  if (S_ISREG(status.st_mode)) return PathKind::file;
  return S_ISDIR(status.st_mode) ? PathKind::folder : PathKind::other;
}

bool is_separator(char c) {
  return c == '/';
}

std::int32_t open_to_read(const std::string& name) {
  return open(name.c_str(), O_RDONLY | O_CLOEXEC);
}

std::int32_t open_to_update(const std::string& name) {
  return open(name.c_str(), O_RDWR | O_CLOEXEC);
}

std::int32_t create_new(const std::string& name) {
  return open(name.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
}

void rewind_stream(std::int32_t stream) {
  lseek(stream, 0, SEEK_SET);
}

void close_stream(std::int32_t stream) {
  close(stream);
}

bool replace_file(const std::string& from, const std::string& to) {
  return std::rename(from.c_str(), to.c_str()) == 0;
}

void remove_file(const std::string& name) {
  unlink(name.c_str());
}

bool make_folder(const std::string& name) {
  return mkdir(name.c_str(), 0777) == 0;
}

std::string resolve_links(const std::string& name) {
  char* const resolved = realpath(name.c_str(), nullptr);
  if (resolved == nullptr) return name;
  std::string result = resolved;
  std::free(resolved);
  return result;
}

void copy_permissions(const std::string& from, const std::string& to) {
  struct stat status;
  if (stat(from.c_str(), &status) == 0) chmod(to.c_str(), status.st_mode & 07777);
}

std::string temporary_folder() {
  const char* const folder = std::getenv("TMPDIR");
  return folder != nullptr && *folder != 0 ? folder : "/tmp";
}

bool is_terminal(std::FILE* file) {
  return isatty(fileno(file)) != 0;
}

void set_binary(std::FILE* /*file*/) {}

void catch_interrupts() {
  struct sigaction action = {};
  action.sa_handler = note_signal;
  action.sa_flags = SA_RESETHAND;  // and no SA_RESTART: a read that waits for input returns
  for (const int number : {SIGINT, SIGTERM, SIGHUP}) {
    struct sigaction before = {};
    sigaction(number, nullptr, &before);
    if (before.sa_handler != SIG_IGN) sigaction(number, &action, nullptr);
  }
  // A closed pipe is a failed write, which cleans up.
  std::signal(SIGPIPE, SIG_IGN);
}

int interrupted() {
  return caught_signal;
}

void end_by_signal(int number) {
  std::signal(number, SIG_DFL);
  std::raise(number);
  std::_Exit(1);
}

}  // namespace tool
