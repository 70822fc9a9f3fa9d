// driver/output_file.cc - standard output to a temporary file renamed into
// place when the run succeeds. Contracts in driver/output_file.h.
#include "driver/output_file.h"

#include <fcntl.h>
#include <limits.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace quillomat {
namespace {

// The one piece of process-wide state of the driver: a signal handler can
// reach nothing else. It names the temporary file while one exists, so that
// an interrupted run leaves nothing behind.
char g_temp_path[PATH_MAX + 32];
volatile sig_atomic_t g_temp_exists = 0;

// Signals whose default action ends the program.
constexpr int kEndingSignals[] = {SIGINT, SIGTERM, SIGHUP, SIGQUIT, SIGXFSZ};

extern "C" void removeTempAndEnd(int signal_number) {
  if (g_temp_exists != 0) (void)::unlink(g_temp_path);  // async-signal-safe
  (void)std::signal(signal_number, SIG_DFL);
  (void)std::raise(signal_number);
}

void catchEndingSignals() {
  for (int s : kEndingSignals) {
    struct sigaction action {};
    action.sa_handler = removeTempAndEnd;
    sigemptyset(&action.sa_mask);
    (void)sigaction(s, &action, nullptr);
  }
}

// The permissions a new file would get: 0666 less the umask.
mode_t newFileMode() {
  const mode_t mask = ::umask(0);
  (void)::umask(mask);
  return 0666 & ~mask;
}

}  // namespace

int OutputFile::open(const char *path) {
  // Hidden, beside the file, so that the rename stays within one file
  // system.
  const char *slash = std::strrchr(path, '/');
  const int dir_length = slash != nullptr ? static_cast<int>(slash - path + 1) : 0;
  const int n = std::snprintf(g_temp_path, sizeof g_temp_path, "%.*s.%s.quillomat-XXXXXX",
                              dir_length, path, path + dir_length);
  if (n < 0 || static_cast<size_t>(n) >= sizeof g_temp_path) return ENAMETOOLONG;
  catchEndingSignals();
  const int fd = ::mkstemp(g_temp_path);
  if (fd < 0) return errno;
  (void)::fcntl(fd, F_SETFD, FD_CLOEXEC);
  g_temp_exists = 1;
  if (::dup2(fd, STDOUT_FILENO) < 0) {
    const int why = errno;
    (void)::close(fd);
    (void)::unlink(g_temp_path);
    g_temp_exists = 0;
    return why;
  }
  path_ = path;
  fd_ = fd;
  return 0;
}

int OutputFile::commit() {
  if (fd_ < 0) return EBADF;
  struct stat existing {};
  const mode_t mode =
      ::stat(path_, &existing) == 0 ? (existing.st_mode & 07777) : newFileMode();
  int why = 0;
  if (::fchmod(fd_, mode) != 0 || ::fsync(fd_) != 0) why = errno;
  if (::close(fd_) != 0 && why == 0) why = errno;
  fd_ = -1;
  if (why == 0 && ::rename(g_temp_path, path_) != 0) why = errno;
  if (why != 0) {
    (void)::unlink(g_temp_path);
  }
  g_temp_exists = 0;
  return why;
}

void OutputFile::discard() {
  if (fd_ >= 0) (void)::close(fd_);
  fd_ = -1;
  if (g_temp_exists != 0) (void)::unlink(g_temp_path);
  g_temp_exists = 0;
}

}  // namespace quillomat
