// tests/driver/run_support.h - runs the real quillomat binary as a child
// process and captures what it writes, for the end-to-end suites.
#ifndef QUILLOMAT_TESTS_DRIVER_RUN_SUPPORT_H
#define QUILLOMAT_TESTS_DRIVER_RUN_SUPPORT_H

#include <fcntl.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "tests/support/test_support.h"

namespace qtest {

// What one run of the program left behind.
struct RunResult {
  std::string out;  // standard output, bytes
  std::string err;  // standard error, bytes
  int status = -1;  // exit status, or 128 + signal
};

// How the child's standard output is connected.
enum class StdoutKind {
  kFile,        // a regular file, read back afterwards
  kPipe,        // a pipe the parent drains while the child runs
  kClosedPipe,  // a pipe whose reading end is closed before the child starts
  kShared,      // the same file as standard error (2>&1)
};

// Runs quillomat with args in an environment that holds only `env` (no
// inherited locale, catalogue or home variables), SIGPIPE ignored when
// asked, and collects its output.
// A non-zero address_space limits the child's virtual memory (RLIMIT_AS),
// in bytes.
inline RunResult runQuillomat(const std::vector<std::string> &args,
                              const std::map<std::string, std::string> &env = {},
                              StdoutKind kind = StdoutKind::kFile, bool ignore_sigpipe = false,
                              rlim_t address_space = 0) {
  TempDir dir;
  const std::string out_path = dir.path() + "/stdout";
  const std::string err_path = dir.path() + "/stderr";
  int pipe_fds[2] = {-1, -1};
  if (kind == StdoutKind::kPipe || kind == StdoutKind::kClosedPipe) {
    if (pipe(pipe_fds) != 0) return {};
    if (kind == StdoutKind::kClosedPipe) {
      close(pipe_fds[0]);
      pipe_fds[0] = -1;
    }
  }
  std::vector<std::string> envs;
  for (const auto &[k, v] : env) envs.push_back(k + "=" + v);
  std::vector<char *> argv{const_cast<char *>(QUILLOMAT_BIN)};
  for (const std::string &a : args) argv.push_back(const_cast<char *>(a.c_str()));
  argv.push_back(nullptr);
  std::vector<char *> envp;
  for (std::string &e : envs) envp.push_back(e.data());
  envp.push_back(nullptr);

  pid_t pid = fork();
  if (pid == 0) {
    if (ignore_sigpipe) signal(SIGPIPE, SIG_IGN);
    if (address_space != 0) {
      const struct rlimit limit = {address_space, address_space};
      if (setrlimit(RLIMIT_AS, &limit) != 0) _exit(125);
    }
    int err = open(err_path.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    int out = kind == StdoutKind::kFile ? open(out_path.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600)
              : kind == StdoutKind::kShared ? err
                                            : pipe_fds[1];
    if (err < 0 || out < 0 || dup2(out, 1) < 0 || dup2(err, 2) < 0) _exit(126);
    if (pipe_fds[0] >= 0) close(pipe_fds[0]);
    execve(QUILLOMAT_BIN, argv.data(), envp.data());
    _exit(127);
  }
  RunResult r;
  if (pipe_fds[1] >= 0) close(pipe_fds[1]);
  if (pipe_fds[0] >= 0) {
    char buf[65536];
    ssize_t n;
    while ((n = read(pipe_fds[0], buf, sizeof buf)) > 0) r.out.append(buf, static_cast<size_t>(n));
    close(pipe_fds[0]);
  }
  int status = 0;
  waitpid(pid, &status, 0);
  r.status = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
  if (kind == StdoutKind::kFile) r.out = readFile(out_path);
  r.err = readFile(err_path);
  return r;
}

}  // namespace qtest

#endif  // QUILLOMAT_TESTS_DRIVER_RUN_SUPPORT_H
