// tests/ber/driver_process.h - talks to a ber_driver.c process (ours, or
// the liblber oracle) over pipes: one request line, one answer line.
#ifndef QUILLOMAT_TESTS_BER_DRIVER_PROCESS_H
#define QUILLOMAT_TESTS_BER_DRIVER_PROCESS_H

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <string>

namespace qtest {

class DriverProcess {
 public:
  explicit DriverProcess(const char *path) {
    int to_child[2];
    int from_child[2];
    // Close-on-exec, so that a driver started later does not inherit this
    // one's pipes (and keep its input open after we close it).
    if (pipe2(to_child, O_CLOEXEC) != 0 || pipe2(from_child, O_CLOEXEC) != 0) return;
    pid_ = fork();
    if (pid_ == 0) {
      dup2(to_child[0], STDIN_FILENO);
      dup2(from_child[1], STDOUT_FILENO);
      close(to_child[0]);
      close(to_child[1]);
      close(from_child[0]);
      close(from_child[1]);
      execl(path, path, static_cast<char *>(nullptr));
      _exit(127);
    }
    close(to_child[0]);
    close(from_child[1]);
    to_ = fdopen(to_child[1], "w");
    from_ = fdopen(from_child[0], "r");
  }
  DriverProcess(const DriverProcess &) = delete;
  DriverProcess &operator=(const DriverProcess &) = delete;
  ~DriverProcess() { (void)finish(); }

  // The answer to one request line; "" when the process is gone.
  std::string request(const std::string &line) {
    if (to_ == nullptr || from_ == nullptr) return {};
    std::fputs((line + "\n").c_str(), to_);
    std::fflush(to_);
    std::string answer;
    char chunk[4096];
    while (std::fgets(chunk, sizeof chunk, from_) != nullptr) {
      answer += chunk;
      if (answer.back() == '\n') {
        answer.pop_back();
        return answer;
      }
    }
    return {};
  }

  // Ends the process and returns its exit status (-1 when it did not exit
  // normally). A sanitizer build reports leaks in that status.
  int finish() {
    if (to_ != nullptr) std::fclose(to_);
    if (from_ != nullptr) std::fclose(from_);
    to_ = from_ = nullptr;
    if (pid_ <= 0) return -1;
    int status = 0;
    const pid_t pid = pid_;
    pid_ = -1;
    if (waitpid(pid, &status, 0) != pid || !WIFEXITED(status)) return -1;
    return WEXITSTATUS(status);
  }

 private:
  pid_t pid_ = -1;
  FILE *to_ = nullptr;
  FILE *from_ = nullptr;
};

}  // namespace qtest

#endif  // QUILLOMAT_TESTS_BER_DRIVER_PROCESS_H
