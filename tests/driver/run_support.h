// tests/driver/run_support.h - runs the real quillomat binary as a child
// process and captures what it writes, for the end-to-end suites; and what
// the suites share.
#ifndef QUILLOMAT_TESTS_DRIVER_RUN_SUPPORT_H
#define QUILLOMAT_TESTS_DRIVER_RUN_SUPPORT_H

#include <fcntl.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <map>
#include <string>
#include <thread>
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

struct RunOptions {
  // The whole environment (no inherited locale, catalogue or home variables).
  std::map<std::string, std::string> env;
  StdoutKind stdout_kind = StdoutKind::kFile;
  bool ignore_sigpipe = false;
  rlim_t address_space = 0;  // RLIMIT_AS in bytes; 0: no limit
  std::string cwd;           // "": the test's own
  std::string stdin_text;    // fed through a pipe the parent writes while the child runs
  std::string stdout_path;   // with kFile: this file (opened for writing) instead of a
                             // temporary one, not read back
};

// The one line that says which document failed, where and why.
inline std::string failed(const std::string &cause) {
  return "quillomat: " + cause +
         "; the document could not be converted to LDIF (the entries before it were written in "
         "full)\n";
}

// A document of the given entries, an entry "cn=<cn>,o=ex" with one cn
// value, and the record the program writes for it.
inline std::string document(const std::string &entries) {
  return "<?xml version=\"1.0\"?>\n<dsml><directory-entries>\n" + entries +
         "</directory-entries></dsml>\n";
}

inline std::string entry(const std::string &cn) {
  return "<entry dn=\"cn=" + cn + ",o=ex\"><attr name=\"cn\"><value>" + cn +
         "</value></attr></entry>\n";
}

inline std::string record(const std::string &cn) {
  return "dn: cn=" + cn + ",o=ex\ncn: " + cn + "\n\n";
}

// A directory of locales under dir holding en_US.ISO-8859-1, or "" when
// localedef cannot build it here (package locales missing).
inline std::string latin1Locales(const TempDir &dir) {
  const std::string locales = dir.path() + "/locales";
  std::filesystem::create_directories(locales);
  const std::string cmd =
      "localedef -i en_US -f ISO-8859-1 " + locales + "/en_US.ISO-8859-1 >/dev/null 2>&1";
  const bool built =
      std::system(cmd.c_str()) == 0 || std::filesystem::exists(locales + "/en_US.ISO-8859-1");
  return built ? locales : "";
}

// Runs quillomat with args and collects its output.
inline RunResult runQuillomat(const std::vector<std::string> &args, const RunOptions &o = {}) {
  TempDir dir;
  const std::string out_path = dir.path() + "/stdout";
  const std::string err_path = dir.path() + "/stderr";
  int out_pipe[2] = {-1, -1};
  int in_pipe[2] = {-1, -1};
  if (o.stdout_kind == StdoutKind::kPipe || o.stdout_kind == StdoutKind::kClosedPipe) {
    if (pipe(out_pipe) != 0) return {};
    if (o.stdout_kind == StdoutKind::kClosedPipe) {
      close(out_pipe[0]);
      out_pipe[0] = -1;
    }
  }
  if (pipe(in_pipe) != 0) return {};
  std::vector<std::string> envs;
  for (const auto &[k, v] : o.env) envs.push_back(k + "=" + v);
  std::vector<char *> argv{const_cast<char *>(QUILLOMAT_BIN)};
  for (const std::string &a : args) argv.push_back(const_cast<char *>(a.c_str()));
  argv.push_back(nullptr);
  std::vector<char *> envp;
  for (std::string &e : envs) envp.push_back(e.data());
  envp.push_back(nullptr);

  pid_t pid = fork();
  if (pid == 0) {
    if (o.ignore_sigpipe) signal(SIGPIPE, SIG_IGN);
    if (o.address_space != 0) {
      const struct rlimit limit = {o.address_space, o.address_space};
      if (setrlimit(RLIMIT_AS, &limit) != 0) _exit(125);
    }
    if (!o.cwd.empty() && chdir(o.cwd.c_str()) != 0) _exit(124);
    int err = open(err_path.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    const std::string &file = o.stdout_path.empty() ? out_path : o.stdout_path;
    int out = o.stdout_kind == StdoutKind::kFile
                  ? open(file.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600)
              : o.stdout_kind == StdoutKind::kShared ? err
                                                     : out_pipe[1];
    if (err < 0 || out < 0 || dup2(out, 1) < 0 || dup2(err, 2) < 0 || dup2(in_pipe[0], 0) < 0) {
      _exit(126);
    }
    if (out_pipe[0] >= 0) close(out_pipe[0]);
    close(in_pipe[1]);
    execve(QUILLOMAT_BIN, argv.data(), envp.data());
    _exit(127);
  }
  close(in_pipe[0]);
  if (out_pipe[1] >= 0) close(out_pipe[1]);
  // Standard input is written beside the reading of standard output, so a
  // child that streams never waits on a full pipe.
  std::thread feeder([fd = in_pipe[1], &text = o.stdin_text] {
    signal(SIGPIPE, SIG_IGN);
    for (size_t at = 0; at < text.size();) {
      const ssize_t n = write(fd, text.data() + at, text.size() - at);
      if (n <= 0) break;
      at += static_cast<size_t>(n);
    }
    close(fd);
  });
  RunResult r;
  if (out_pipe[0] >= 0) {
    char buf[65536];
    ssize_t n;
    while ((n = read(out_pipe[0], buf, sizeof buf)) > 0) r.out.append(buf, static_cast<size_t>(n));
    close(out_pipe[0]);
  }
  feeder.join();
  int status = 0;
  waitpid(pid, &status, 0);
  r.status = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
  if (o.stdout_kind == StdoutKind::kFile && o.stdout_path.empty()) r.out = readFile(out_path);
  r.err = readFile(err_path);
  return r;
}

}  // namespace qtest

#endif  // QUILLOMAT_TESTS_DRIVER_RUN_SUPPORT_H
