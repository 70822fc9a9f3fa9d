// bench/runstat.cc - runs a command with its standard output sent to
// /dev/null (or to the file given with -o) and reports its wall time in
// seconds, its peak resident set size in KiB, its exit status and the CPU
// time it used (user and system, seconds), as "SECONDS KIB STATUS CPU".
// On a shared machine CPU time varies less than wall time.
//
//   runstat [-o FILE] COMMAND [ARG...]
#include <fcntl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <ctime>

int main(int argc, char **argv) {
  int first = 1;
  const char *out = "/dev/null";
  if (argc > 3 && std::strcmp(argv[1], "-o") == 0) {
    out = argv[2];
    first = 3;
  }
  if (first >= argc) {
    std::fprintf(stderr, "usage: runstat [-o FILE] COMMAND [ARG...]\n");
    return 2;
  }
  timespec start{}, end{};
  clock_gettime(CLOCK_MONOTONIC, &start);
  pid_t pid = fork();
  if (pid < 0) {
    std::perror("fork");
    return 2;
  }
  if (pid == 0) {
    int fd = ::open(out, O_WRONLY | O_CREAT | O_TRUNC, 0644);
    if (fd < 0 || dup2(fd, STDOUT_FILENO) < 0) _exit(127);
    execvp(argv[first], argv + first);
    _exit(127);
  }
  int status = 0;
  rusage usage{};
  if (wait4(pid, &status, 0, &usage) < 0) {
    std::perror("wait4");
    return 2;
  }
  clock_gettime(CLOCK_MONOTONIC, &end);
  double seconds = static_cast<double>(end.tv_sec - start.tv_sec) +
                   static_cast<double>(end.tv_nsec - start.tv_nsec) / 1e9;
  int code = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
  const double cpu = static_cast<double>(usage.ru_utime.tv_sec + usage.ru_stime.tv_sec) +
                     static_cast<double>(usage.ru_utime.tv_usec + usage.ru_stime.tv_usec) / 1e6;
  std::printf("%.6f %ld %d %.6f\n", seconds, usage.ru_maxrss, code, cpu);
  return 0;
}
