// Files by descriptor.
// Files beyond 2 GiB open on 32-bit systems too.
#define _FILE_OFFSET_BITS 64  // NOLINT(*-reserved-identifier,*-identifier-naming): the C library's
#include "platform/file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <ctime>

namespace tq::platform {
namespace {

static_assert(sizeof(off_t) == 8);
constexpr int kReserved = 32767;  // names the memory stream

// A descriptor that happens to be the reserved number gets another one.
int clear_of_reserved(int file) {
  if (file != kReserved) return file;
  const int other = fcntl(file, F_DUPFD_CLOEXEC, kReserved + 1);
  close(file);
  return other;
}

// Opening a directory for reading succeeds here, but nothing can be read from one.
bool is_directory(int file) {
  struct stat status;
  return fstat(file, &status) == 0 && S_ISDIR(status.st_mode);
}

bool is_pipe(const char* name) {
  struct stat status;
  return stat(name, &status) == 0 && S_ISFIFO(status.st_mode);
}

// Pipes opened here for writing. While there are none, no file is asked what it is.
std::atomic<int> open_pipes = 0;

bool writes_pipe(int file) {
  struct stat status;
  return open_pipes > 0 && fstat(file, &status) == 0 && S_ISFIFO(status.st_mode) &&
         (fcntl(file, F_GETFL) & O_ACCMODE) == O_WRONLY;
}

// A write to a pipe that nobody reads is an error here, not the end of the process.
class PipeSignalHeld {
 public:
  PipeSignalHeld() {
    sigemptyset(&signals_);
    sigaddset(&signals_, SIGPIPE);
    pthread_sigmask(SIG_BLOCK, &signals_, &before_);
    sigset_t waiting;
    sigpending(&waiting);
    was_waiting_ = sigismember(&waiting, SIGPIPE) == 1;
  }
  PipeSignalHeld(const PipeSignalHeld&) = delete;
  PipeSignalHeld& operator=(const PipeSignalHeld&) = delete;
  ~PipeSignalHeld() {
    const int error = errno;  // of the write
    constexpr timespec kNow = {};
    if (!was_waiting_) sigtimedwait(&signals_, nullptr, &kNow);
    pthread_sigmask(SIG_SETMASK, &before_, nullptr);
    errno = error;
  }

 private:
  sigset_t signals_, before_;
  bool was_waiting_;
};

ssize_t write_once(int file, const char* bytes, std::size_t count) {
  if (!writes_pipe(file)) return ::write(file, bytes, count);
  const PipeSignalHeld held;
  return ::write(file, bytes, count);
}

int create_in(const char* folder, char* name) {
  if (folder[0] == '\0') return -1;  // would be the root
  const int length = std::snprintf(name, kTempNameBytes, "%s/imgXXXXXX", folder);
  if (length < 0 || length >= static_cast<int>(kTempNameBytes)) return -1;
  return mkostemp(name, O_CLOEXEC);
}

}  // namespace

std::int32_t file_open(const char* name, FileMode mode) {
  int flags = O_RDONLY;
  if (mode == FileMode::update) flags = O_RDWR;
  if (mode == FileMode::create) flags = O_RDWR | O_CREAT | O_TRUNC;
  const bool to_pipe = mode != FileMode::read && is_pipe(name);
  if (to_pipe) {
    // Whoever could read as well would wait for himself: for what the pipe holds, and for its
    // reader when that has gone.
    if (mode == FileMode::update) return -1;
    flags = O_WRONLY;
  }
  int file = -1;
  do {
    file = open(name, flags | O_CLOEXEC, 0666);
  } while (file < 0 && errno == EINTR);
  if (file >= 0 && is_directory(file)) {
    close(file);
    return -1;
  }
  if (to_pipe && file >= 0) ++open_pipes;
  return clear_of_reserved(file);
}

bool file_exists(const char* name) {
  return access(name, F_OK) == 0;
}

void file_close(std::int32_t file) {
  if (writes_pipe(file)) --open_pipes;
  close(file);
}

bool file_remove(const char* name) {
  struct stat status;
  return lstat(name, &status) == 0 && S_ISREG(status.st_mode) && unlink(name) == 0;
}

void file_cut(std::int32_t file, std::int32_t bytes) {
  while (ftruncate(file, bytes) != 0 && errno == EINTR) continue;
}

std::int32_t file_read(std::int32_t file, void* buffer, std::int32_t count) {
  std::int32_t done = 0;
  while (done < count) {
    const ssize_t got = ::read(file, static_cast<char*>(buffer) + done, count - done);
    if (got < 0 && errno == EINTR) continue;
    if (got < 0 && done == 0) return -1;
    if (got <= 0) break;
    done += static_cast<std::int32_t>(got);
  }
  return done;
}

std::int32_t file_write(std::int32_t file, const void* buffer, std::int32_t count) {
  std::int32_t done = 0;
  while (done < count) {
    const ssize_t put = write_once(file, static_cast<const char*>(buffer) + done, count - done);
    if (put < 0 && errno == EINTR) continue;
    if (put < 0 && done == 0) return -1;
    if (put <= 0) break;
    done += static_cast<std::int32_t>(put);
  }
  return done;
}

std::int32_t file_seek(std::int32_t file, std::int32_t offset, std::int32_t origin) {
  constexpr int kOrigins[] = {SEEK_SET, SEEK_CUR, SEEK_END};
  if (origin < 0 || origin > 2) return -1;
  const off_t position = lseek(file, offset, kOrigins[origin]);
  return position > INT32_MAX ? -1 : static_cast<std::int32_t>(position);
}

std::int32_t file_create_temporary(char* name) {
  const char* const folder = std::getenv("TMPDIR");
  int file = folder == nullptr ? -1 : create_in(folder, name);
  if (file < 0) file = create_in("/tmp", name);
  const int kept = clear_of_reserved(file);
  if (file >= 0 && kept < 0) unlink(name);
  return kept;
}

}  // namespace tq::platform
