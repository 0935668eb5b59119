// Files by descriptor.
// Files beyond 2 GiB open on 32-bit systems too.
#define _FILE_OFFSET_BITS 64  // NOLINT(*-reserved-identifier,*-identifier-naming): the C library's
#include "platform/file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
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

constexpr int kMostLinks = 40;     // as the system follows
constexpr int kMostAttempts = 10;  // at a name that nobody has

// With the separator at its end.
std::size_t folder_bytes(const char* name) {
  const char* const separator = std::strrchr(name, '/');
  return separator == nullptr ? 0 : separator + 1 - name;
}

// Whether a link's target is what its name opens, or neither is there. Where the system shows open
// files as links, their targets may be gone.
bool leads_to(const char* name, const char* target) {
  struct stat named, found;
  const bool is_there = stat(name, &named) == 0;
  if (stat(target, &found) != 0) return !is_there;
  return is_there && named.st_dev == found.st_dev && named.st_ino == found.st_ino;
}

unsigned unlikely_number(int attempt) {
  timespec now = {};
  clock_gettime(CLOCK_REALTIME, &now);
  const auto nanoseconds = static_cast<unsigned>(now.tv_nsec ^ now.tv_sec << 20);
  return nanoseconds ^ static_cast<unsigned>(getpid()) << 12 ^ 0x9E3779B9u * (attempt + 1);
}

// Where the group cannot be the same, another one gets no rights from it.
void give_rights(int file, const struct stat& model) {
  mode_t mode = model.st_mode & 0777;
  constexpr auto kSameOwner = static_cast<uid_t>(-1);
  if (fchown(file, model.st_uid, model.st_gid) != 0 &&
      fchown(file, kSameOwner, model.st_gid) != 0) {
    mode &= 0707;
  }
  fchmod(file, mode);
}

// A name that was changed stays when the system fails. Some file systems know no such thing.
void flush_folder(const char* name) {
  char folder[PATH_MAX] = ".";
  const std::size_t bytes = folder_bytes(name);
  if (bytes >= sizeof folder) return;
  std::copy_n(name, bytes, folder);
  if (bytes > 0) folder[bytes] = '\0';
  const int file = open(folder, O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (file < 0) return;
  fsync(file);
  close(file);
}

}  // namespace

std::int32_t file_open(FileName name, FileMode mode) {
  int flags = O_RDONLY;
  if (mode == FileMode::update) flags = O_RDWR;
  if (mode == FileMode::create) flags = O_RDWR | O_CREAT | O_TRUNC;
  const bool to_pipe = mode != FileMode::read && is_pipe(name.text);
  if (to_pipe) {
    // Whoever could read as well would wait for himself: for what the pipe holds, and for its
    // reader when that has gone.
    if (mode == FileMode::update) return -1;
    flags = O_WRONLY;
  }
  int file = -1;
  do {
    file = open(name.text, flags | O_CLOEXEC, 0666);
  } while (file < 0 && errno == EINTR);
  if (file >= 0 && is_directory(file)) {
    close(file);
    return -1;
  }
  if (to_pipe && file >= 0) ++open_pipes;
  return clear_of_reserved(file);
}

bool file_exists(FileName name) {
  return access(name.text, F_OK) == 0;
}

void file_close(std::int32_t file) {
  if (writes_pipe(file)) --open_pipes;
  close(file);
}

bool file_remove(FileName name) {
  struct stat status;
  return lstat(name.text, &status) == 0 && S_ISREG(status.st_mode) && unlink(name.text) == 0;
}

FileKind file_kind(FileName name) {
  struct stat status;
  if (stat(name.text, &status) != 0) return errno == ENOENT ? FileKind::none : FileKind::other;
  if (!S_ISREG(status.st_mode)) return FileKind::other;
  return status.st_size == 0 ? FileKind::empty : FileKind::filled;
}

FileName file_target(FileName name, char* target) {
  static_assert(kTargetBytes >= PATH_MAX);
  char link[PATH_MAX];
  FileName last = name;
  for (int steps = 0; steps < kMostLinks; ++steps) {
    const ssize_t length = readlink(last.text, link, sizeof link - 1);
    if (length < 0) return leads_to(name.text, last.text) ? last : FileName();
    link[length] = '\0';
    // Relative to the folder of the link.
    const std::size_t folder = link[0] == '/' ? 0 : folder_bytes(last.text);
    if (folder + length >= kTargetBytes) return {};
    std::copy_n(last.text, last.text == target ? 0 : folder, target);
    std::copy_n(link, length + 1, target + folder);
    last = {target, name.utf8};
  }
  return {};
}

std::int32_t file_create_beside(FileName name, char* beside) {
  const std::size_t length = std::strlen(name.text);
  if (length >= PATH_MAX) return -1;
  struct stat model;
  const bool replaces = stat(name.text, &model) == 0;
  auto kept = static_cast<int>(length);  // bytes of the name
  int file = -1;
  for (int attempt = 0; attempt < kMostAttempts && file < 0; ++attempt) {
    std::snprintf(beside, length + kBesideBytes, "%.*s.tarnquill-%08x.tmp", kept, name.text,
                  unlikely_number(attempt));
    // Nobody reads what belongs to the owner of the other file before it is his.
    file = open(beside, O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, replaces ? 0600 : 0666);
    if (file < 0 && errno == ENAMETOOLONG) kept = static_cast<int>(folder_bytes(name.text));
  }
  if (file >= 0 && replaces) give_rights(file, model);
  const int clear = clear_of_reserved(file);
  if (file >= 0 && clear < 0) unlink(beside);
  return clear;
}

bool file_flush(std::int32_t file) {
  int flushed = -1;
  do {
    flushed = fsync(file);
  } while (flushed != 0 && errno == EINTR);
  return flushed == 0 || errno == EINVAL || errno == EROFS;  // a pipe keeps nothing
}

bool file_replace(FileName from, FileName to) {
  if (std::rename(from.text, to.text) != 0) return false;
  flush_folder(to.text);
  return true;
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

std::int32_t file_read_at(std::int32_t file, void* buffer, std::int32_t count, std::int32_t at) {
  ssize_t got = -1;
  do {
    got = ::pread(file, buffer, count, at);
  } while (got < 0 && errno == EINTR);
  return static_cast<std::int32_t>(got);
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
