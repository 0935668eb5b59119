// The operating system through POSIX.
#define _FILE_OFFSET_BITS 64  // files beyond 2 GiB open on 32-bit systems too
#include <fcntl.h>
#include <sys/file.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <string_view>

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

bool is_forbidden(const std::string& name) {
  return access(name.c_str(), R_OK) != 0 && errno == EACCES;
}

std::int32_t open_to_read(const std::string& name) {
  return open(name.c_str(), O_RDONLY | O_CLOEXEC);
}

std::int32_t open_to_update(const std::string& name) {
  return open(name.c_str(), O_RDWR | O_CLOEXEC);
}

std::FILE* open_file(const std::string& name, const char* mode) {
  return std::fopen(name.c_str(), mode);
}

std::int32_t create_new(const std::string& name) {
  return open(name.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
}

void rewind_stream(std::int32_t stream) {
  lseek(stream, 0, SEEK_SET);
}

std::int64_t position_of(std::int32_t stream) {
  return lseek(stream, 0, SEEK_CUR);
}

void close_stream(std::int32_t stream) {
  close(stream);
}

std::int32_t read_stream(std::int32_t stream, void* bytes, std::int32_t count) {
  for (;;) {
    const ssize_t got = read(stream, bytes, static_cast<std::size_t>(count));
    if (got >= 0 || errno != EINTR || caught_signal != 0) return static_cast<std::int32_t>(got);
  }
}

bool write_stream(std::int32_t stream, const void* bytes, std::int32_t count) {
  for (std::int32_t done = 0; done < count;) {
    const ssize_t put = write(stream, static_cast<const char*>(bytes) + done,
                              static_cast<std::size_t>(count - done));
    if (put < 0 && errno == EINTR && caught_signal == 0) continue;
    if (put <= 0) return false;
    done += static_cast<std::int32_t>(put);
  }
  return true;
}

FileState state_of(const std::string& name) {
  struct stat status;
  if (stat(name.c_str(), &status) != 0) return {};
  return {status.st_dev, status.st_ino, static_cast<std::uint64_t>(status.st_size),
          static_cast<std::uint64_t>(status.st_mtim.tv_sec) * 1000000000 +
              static_cast<std::uint64_t>(status.st_mtim.tv_nsec)};
}

void take_turn(const std::string& name) {
  static int held = -1;
  for (;;) {
    if (held >= 0) close(held);
    held = open(name.c_str(), O_RDONLY | O_CLOEXEC);
    // Where there are no locks, the look before the result is moved has to do.
    if (held < 0 || flock(held, LOCK_EX) != 0) return;
    struct stat status;
    const FileState named = state_of(name);
    if (fstat(held, &status) != 0) return;
    if (named.volume == status.st_dev && named.number == status.st_ino) return;
    // Whoever had the turn before has put another file there.
  }
}

bool replace_file(const std::string& from, const std::string& to) {
  return std::rename(from.c_str(), to.c_str()) == 0;
}

bool name_file(const std::string& from, const std::string& to) {
  if (link(from.c_str(), to.c_str()) == 0) {
    unlink(from.c_str());
    return true;
  }
  // File systems without links.
  return errno != EEXIST && path_kind(to) == PathKind::absent && replace_file(from, to);
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

void copy_date(const std::string& from, const std::string& to) {
  struct stat status;
  if (stat(from.c_str(), &status) != 0) return;
  const timespec times[] = {status.st_atim, status.st_mtim};
  utimensat(AT_FDCWD, to.c_str(), times, 0);
}

std::string temporary_folder() {
  const char* const folder = std::getenv("TMPDIR");
  static const std::string kept =
      std::string(folder != nullptr && *folder != 0 ? folder : "/tmp") + "/";
  return kept;
}

void set_library_temporary_folder(const std::string& folder) {
  const char* const now = std::getenv("TMPDIR");
  const char* const wanted = folder.empty() ? "." : folder.c_str();
  if (now == nullptr || std::string_view(now) != wanted) setenv("TMPDIR", wanted, 1);
}

void hold_standard_streams() {
  for (const int file : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
    // The lowest free number is given out: this one. Opened the wrong way, so that its use fails.
    if (fcntl(file, F_GETFD) < 0) open("/dev/null", file == STDIN_FILENO ? O_WRONLY : O_RDONLY);
  }
}

bool is_terminal(std::FILE* file) {
  return isatty(fileno(file)) != 0;
}

TerminalSize terminal_size() {
  struct winsize size = {};
  if (ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) != 0) return {};
  return {{size.ws_col, size.ws_row}, {size.ws_xpixel, size.ws_ypixel}};
}

void set_binary(std::FILE* /*file*/) {}

void catch_interrupts() {
  struct sigaction action = {};
  action.sa_handler = note_signal;
  action.sa_flags = SA_RESETHAND;  // and no SA_RESTART: a read that waits for input returns
  for (const int number : {SIGINT, SIGTERM, SIGHUP, SIGQUIT}) {
    struct sigaction before = {};
    sigaction(number, nullptr, &before);
    if (before.sa_handler != SIG_IGN) sigaction(number, &action, nullptr);
  }
  // A closed pipe and a limit are failed writes, which clean up.
  std::signal(SIGPIPE, SIG_IGN);
  std::signal(SIGXFSZ, SIG_IGN);
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

int main(int argc, char** argv) {
  return tool::run_program(std::vector<std::string>(argv + (argc > 0 ? 1 : 0), argv + argc));
}
