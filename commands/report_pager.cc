#include "commands/report_pager.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>


namespace {

constexpr const char* kPagerPrograms[] = {"/usr/bin/more", "/bin/more"};

const char* FindPager() {
  for (const char* program : kPagerPrograms) {
    if (access(program, X_OK) == 0) return program;
  }
  return nullptr;
}

// Sets the disposition of the terminal's two keys; keeps the old ones.
class KeyDispositions {
 public:
  explicit KeyDispositions(void (*handler)(int)) {
    struct sigaction action {};
    action.sa_handler = handler;
    sigemptyset(&action.sa_mask);
    savedInterrupt_ = sigaction(SIGINT, &action, &interrupt_) == 0;
    savedQuit_ = sigaction(SIGQUIT, &action, &quit_) == 0;
  }
  KeyDispositions(const KeyDispositions&) = delete;
  KeyDispositions& operator=(const KeyDispositions&) = delete;
  ~KeyDispositions() {
    if (savedInterrupt_) sigaction(SIGINT, &interrupt_, nullptr);
    if (savedQuit_) sigaction(SIGQUIT, &quit_, nullptr);
  }

 private:
  struct sigaction interrupt_ {};
  struct sigaction quit_ {};
  bool savedInterrupt_ = false;
  bool savedQuit_ = false;
};

bool HasExtraPrivileges() { return getegid() != getgid() || geteuid() != getuid(); }

// In the child, between fork and exec: async-signal-safe calls only.
// `report` is the opened report to page from standard input, or -1 to hand
// the pager `reportPath`.
[[noreturn]] void ExecPager(const char* pager, const char* reportPath, int report) {
  struct sigaction defaults {};
  defaults.sa_handler = SIG_DFL;
  sigemptyset(&defaults.sa_mask);
  sigaction(SIGINT, &defaults, nullptr);
  sigaction(SIGQUIT, &defaults, nullptr);
  if (report >= 0 && (report == STDIN_FILENO ? fcntl(report, F_SETFD, 0) != 0
                                             : dup2(report, STDIN_FILENO) != STDIN_FILENO))
    _exit(127);
  const gid_t group = getgid();
  const uid_t user = getuid();
  if (setresgid(group, group, group) != 0 || setresuid(user, user, user) != 0 ||
      getegid() != group || geteuid() != user)
    _exit(127);
  char* const withPath[] = {const_cast<char*>("more"), const_cast<char*>(reportPath), nullptr};
  char* const fromInput[] = {const_cast<char*>("more"), nullptr};
  execv(pager, report >= 0 ? fromInput : withPath);
  _exit(127);
}

}  // namespace

void ShowReportInPager(const char* reportPath, ReportsDirectory& reports) {
  const char* pager = FindPager();
  if (pager == nullptr) return;
  int report = -1;
  if (HasExtraPrivileges()) {
    report = reports.OpenReport(reportPath);
    if (report < 0) return;
  }
  std::fflush(stdout);
  {
    KeyDispositions ignored(SIG_IGN);
    const pid_t child = fork();
    if (child == 0) ExecPager(pager, reportPath, report);
    int status = 0;
    while (child > 0 && waitpid(child, &status, 0) < 0 && errno == EINTR) {
    }
  }
  if (report >= 0) close(report);
}
