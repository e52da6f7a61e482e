#include "testing/in_process.h"

#include <stdio_ext.h>
#include <grp.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "app/dispatch.h"
#include "console/interrupt.h"
#include "console/message_catalogue.h"

namespace {

struct EndOfInput {};

std::vector<std::size_t>* g_reads = nullptr;

[[noreturn]] void Die(const char* what) {
  std::fprintf(stderr, "in-process runner: %s: %s\n", what, std::strerror(errno));
  std::abort();
}

// The in-memory files behind standard input and output, made once.
int MemoryFile(const char* name) {
  const int fd = memfd_create(name, MFD_CLOEXEC);
  if (fd < 0) Die("memfd_create");
  return fd;
}

void Fill(int fd, std::string_view bytes) {
  if (ftruncate(fd, 0) != 0) Die("ftruncate");
  for (std::size_t done = 0; done < bytes.size();) {
    const ssize_t n = pwrite(fd, bytes.data() + done, bytes.size() - done,
                             static_cast<off_t>(done));
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) Die("pwrite");
    done += static_cast<std::size_t>(n);
  }
}

std::string Contents(int fd) {
  std::string contents;
  char chunk[65536];
  for (off_t at = 0;;) {
    const ssize_t n = pread(fd, chunk, sizeof chunk, at);
    if (n < 0 && errno == EINTR) continue;
    if (n < 0) Die("pread");
    if (n == 0) return contents;
    contents.append(chunk, static_cast<std::size_t>(n));
    at += n;
  }
}

// Standard input, output and error point at `input`, `output` and `errors`
// for the scope.
class RedirectedConsole {
 public:
  RedirectedConsole(int input, int output, int errors) {
    std::fflush(stdout);
    std::fflush(stderr);
    savedOutput_ = dup(STDOUT_FILENO);
    savedErrors_ = dup(STDERR_FILENO);
    if (savedOutput_ < 0 || savedErrors_ < 0 || dup2(input, STDIN_FILENO) < 0 ||
        dup2(output, STDOUT_FILENO) < 0 || dup2(errors, STDERR_FILENO) < 0)
      Die("dup2");
    // Drops what the stream buffered from an earlier input: a seek alone
    // keeps the buffer when the new position lies inside it.
    __fpurge(stdin);
    std::clearerr(stdin);
    if (lseek(STDIN_FILENO, 0, SEEK_SET) != 0 || lseek(STDOUT_FILENO, 0, SEEK_SET) != 0 ||
        lseek(STDERR_FILENO, 0, SEEK_SET) != 0)
      Die("lseek");
  }
  ~RedirectedConsole() {
    std::fflush(stdout);
    std::fflush(stderr);
    if (dup2(savedOutput_, STDOUT_FILENO) < 0 || dup2(savedErrors_, STDERR_FILENO) < 0)
      Die("dup2 back");
    close(savedOutput_);
    close(savedErrors_);
  }
  RedirectedConsole(const RedirectedConsole&) = delete;
  RedirectedConsole& operator=(const RedirectedConsole&) = delete;

 private:
  int savedOutput_;
  int savedErrors_;
};

// For the scope, the process runs as user and group `uid` without
// supplementary groups; nothing happens for uid 0 or unless the process runs
// as the super-user.
class UserScope {
 public:
  explicit UserScope(std::uint32_t uid) {
    if (uid == 0 || geteuid() != 0) return;
    groups_.resize(static_cast<std::size_t>(std::max(getgroups(0, nullptr), 0)));
    if (getgroups(static_cast<int>(groups_.size()), groups_.data()) < 0 ||
        setgroups(0, nullptr) != 0 || setresgid(uid, uid, 0) != 0 || setresuid(uid, uid, 0) != 0)
      Die("taking on a user's ids");
    switched_ = true;
  }
  ~UserScope() {
    if (switched_ && (setresuid(0, 0, 0) != 0 || setresgid(0, 0, 0) != 0 ||
                      setgroups(groups_.size(), groups_.data()) != 0))
      Die("taking back the super-user's ids");
  }
  UserScope(const UserScope&) = delete;
  UserScope& operator=(const UserScope&) = delete;

 private:
  std::vector<gid_t> groups_;
  bool switched_ = false;
};

}  // namespace

// ---- in place of console/interrupt.cc ----

void InterruptHandler(int /*signalNumber*/) {}
void InstallInterruptHandler() {}

void EndAsInterrupted() {
  std::fputs(GetMessageText("\n"), stdout);
  std::fflush(stdout);
  throw EndOfInput{};
}

void BeginInputWait() {
  std::fflush(stdout);
  if (g_reads != nullptr) g_reads->push_back(static_cast<std::size_t>(ftell(stdout)));
}

void EndInputWait() {}
void BeginWaitForOthers() { std::fflush(stdout); }
void EndWaitForOthers() {}

// ---- the runner ----

namespace testing_support {

InProcessRun RunInProcess(const std::vector<std::string>& args, std::string_view input,
                          std::uint32_t user) {
  static const int inputFile = MemoryFile("schscan-stdin");
  static const int outputFile = MemoryFile("schscan-stdout");
  static const int errorFile = MemoryFile("schscan-stderr");
  Fill(inputFile, input);
  Fill(outputFile, "");
  Fill(errorFile, "");
  InProcessRun run;
  std::vector<std::string> argv = {"schscan"};
  argv.insert(argv.end(), args.begin(), args.end());
  std::vector<char*> pointers;
  for (std::string& argument : argv) pointers.push_back(argument.data());
  pointers.push_back(nullptr);
  {
    RedirectedConsole console(inputFile, outputFile, errorFile);
    UserScope scope(user);
    g_reads = &run.reads;
    try {
      run.exitStatus = RunCommandLine(static_cast<int>(argv.size()), pointers.data());
    } catch (const EndOfInput&) {
      run.endedByEndOfInput = true;
    }
    g_reads = nullptr;
  }
  run.output = Contents(outputFile);
  run.errors = Contents(errorFile);
  return run;
}

}  // namespace testing_support
