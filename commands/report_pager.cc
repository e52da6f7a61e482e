#include "commands/report_pager.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <initializer_list>

namespace {

constexpr const char* kPagerPrograms[] = {"/usr/bin/more", "/bin/more"};

const char* FindPager() {
  for (const char* program : kPagerPrograms) {
    if (access(program, X_OK) == 0) return program;
  }
  return nullptr;
}

// Ignores the terminal's two keys and a closed pipe for the scope.
class IgnoredSignals {
 public:
  IgnoredSignals() {
    struct sigaction ignore {};
    ignore.sa_handler = SIG_IGN;
    sigemptyset(&ignore.sa_mask);
    for (int i = 0; i < 3; ++i) saved_[i] = sigaction(kSignals[i], &ignore, &old_[i]) == 0;
  }
  IgnoredSignals(const IgnoredSignals&) = delete;
  IgnoredSignals& operator=(const IgnoredSignals&) = delete;
  ~IgnoredSignals() {
    for (int i = 0; i < 3; ++i) {
      if (saved_[i]) sigaction(kSignals[i], &old_[i], nullptr);
    }
  }

 private:
  static constexpr int kSignals[3] = {SIGINT, SIGQUIT, SIGPIPE};
  struct sigaction old_[3] {};
  bool saved_[3] = {};
};

// In the child, between fork and exec: async-signal-safe calls only.
[[noreturn]] void ExecPager(const char* pager, int input) {
  struct sigaction defaults {};
  defaults.sa_handler = SIG_DFL;
  sigemptyset(&defaults.sa_mask);
  for (const int signal : {SIGINT, SIGQUIT, SIGPIPE}) sigaction(signal, &defaults, nullptr);
  const gid_t group = getgid();
  const uid_t user = getuid();
  if (dup2(input, STDIN_FILENO) != STDIN_FILENO || setresgid(group, group, group) != 0 ||
      setresuid(user, user, user) != 0 || getegid() != group || geteuid() != user)
    _exit(127);
  char* const argv[] = {const_cast<char*>("more"), nullptr};
  execv(pager, argv);
  _exit(127);
}

// Copies the report into the pipe until its end, or until the pager stops
// reading.
void Pump(int report, int output) {
  char chunk[65536];
  for (;;) {
    const ssize_t got = read(report, chunk, sizeof chunk);
    if (got < 0 && errno == EINTR) continue;
    if (got <= 0) return;
    for (ssize_t done = 0; done < got;) {
      const ssize_t n = write(output, chunk + done, static_cast<std::size_t>(got - done));
      if (n < 0 && errno == EINTR) continue;
      if (n <= 0) return;
      done += n;
    }
  }
}

}  // namespace

void SayCannotOpen(const char* reportPath, int error) {
  std::fflush(stdout);
  std::fprintf(stderr, "more: cannot open %s: %s\n", reportPath, std::strerror(error));
}

void ShowReportInPager(const char* reportPath, ReportsDirectory& reports) {
  const int report = reports.OpenReport(reportPath);
  if (report < 0) {
    SayCannotOpen(reportPath, errno);
    return;
  }
  const char* pager = FindPager();
  int fds[2];
  if (pager != nullptr && pipe2(fds, O_CLOEXEC) == 0) {
    std::fflush(stdout);
    IgnoredSignals ignored;
    const pid_t child = fork();
    if (child == 0) ExecPager(pager, fds[0]);
    close(fds[0]);
    if (child > 0) Pump(report, fds[1]);
    close(fds[1]);
    int status = 0;
    while (child > 0 && waitpid(child, &status, 0) < 0 && errno == EINTR) {
    }
  }
  close(report);
}
