#include "tests/harness.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>

#include "product_paths.h"
#include "testing/scan_fixtures.h"

namespace fs = std::filesystem;

namespace harness {
namespace {

void Check(bool ok, const std::string& what) {
  if (!ok) throw std::runtime_error(what + ": " + std::strerror(errno));
}

void CopyFile(const std::string& from, const std::string& to, mode_t mode) {
  fs::copy_file(from, to, fs::copy_options::overwrite_existing);
  Check(chmod(to.c_str(), mode) == 0, "chmod " + to);
}

long long NowMicroseconds() {
  timespec now{};
  clock_gettime(CLOCK_MONOTONIC, &now);
  return now.tv_sec * 1000000LL + now.tv_nsec / 1000;
}

bool EndsWith(const std::string& text, const std::string& suffix) {
  return text.size() >= suffix.size() &&
         text.compare(text.size() - suffix.size(), suffix.size(), suffix) == 0;
}

}  // namespace

const std::string& ToolPath() {
  static const std::string path = [] {
    const std::string binDir = std::string(kProductDir) + "-bin";
    fs::create_directories(binDir);
    Check(chmod(binDir.c_str(), 0755) == 0, "chmod " + binDir);
    const std::string tool = binDir + "/schscan";
    CopyFile(SCHSCAN_BINARY, tool, 0755);
    return tool;
  }();
  return path;
}

void ResetProductDir(bool withCatalogue) {
  const fs::path product = kProductDir;
  testing_support::ResetProduct();
  CopyFile(TSKVAULT_LIBRARY, product / "tskvault.so", 0755);
  if (withCatalogue) {
    const fs::path messages = product / "translation/en_US/LC_MESSAGES";
    fs::create_directories(messages);
    for (fs::path p = messages; p != product; p = p.parent_path()) chmod(p.c_str(), 0755);
    CopyFile(LANG_MO_FILE, messages / "lang.mo", 0644);
  }
  ToolPath();
}

RunResult RunTool(const RunOptions& options) {
  int inputPipe[2];
  int outputPipe[2];
  Check(pipe2(inputPipe, O_CLOEXEC) == 0, "pipe");
  Check(pipe2(outputPipe, O_CLOEXEC) == 0, "pipe");

  std::vector<std::string> argv;
  if (options.user) {
    const std::string id = std::to_string(*options.user);
    argv = {"/usr/bin/setpriv", "--reuid=" + id, "--regid=" + id, "--clear-groups", "--"};
  }
  argv.push_back(options.program.empty() ? ToolPath() : options.program);
  argv.insert(argv.end(), options.args.begin(), options.args.end());
  std::vector<char*> argvPointers;
  for (std::string& a : argv) argvPointers.push_back(a.data());
  argvPointers.push_back(nullptr);
  std::vector<std::string> environment = {"PATH=/usr/bin:/bin", "LANG=C.UTF-8"};
  environment.insert(environment.end(), options.extraEnvironment.begin(),
                     options.extraEnvironment.end());
  std::vector<char*> environmentPointers;
  for (std::string& e : environment) environmentPointers.push_back(e.data());
  environmentPointers.push_back(nullptr);

  const pid_t pid = fork();
  Check(pid >= 0, "fork");
  if (pid == 0) {
    dup2(inputPipe[0], STDIN_FILENO);
    dup2(outputPipe[1], STDOUT_FILENO);
    signal(SIGPIPE, SIG_DFL);
    signal(SIGINT, SIG_DFL);
    if (options.fileSizeLimit) {
      const rlimit limit = {*options.fileSizeLimit, *options.fileSizeLimit};
      signal(SIGXFSZ, SIG_IGN);
      if (setrlimit(RLIMIT_FSIZE, &limit) != 0) _exit(126);
    }
    execve(argvPointers[0], argvPointers.data(), environmentPointers.data());
    _exit(127);
  }
  close(inputPipe[0]);
  close(outputPipe[1]);
  int inputFd = inputPipe[1];
  const int outputFd = outputPipe[0];
  fcntl(inputFd, F_SETFL, O_NONBLOCK);
  signal(SIGPIPE, SIG_IGN);

  RunResult result;
  std::size_t inputSent = 0;
  bool interruptSent = false;
  bool inputHeld = !options.holdInputUntil.empty();
  bool killSent = false;
  const long long started = NowMicroseconds();
  const long long deadline = started + options.timeoutMilliseconds * 1000LL;
  const long long killAt =
      options.killAfterMicroseconds ? started + *options.killAfterMicroseconds : deadline;
  for (;;) {
    if (inputFd >= 0 && inputSent == options.input.size() && options.interruptAfter.empty()) {
      close(inputFd);  // end of input
      inputFd = -1;
    }
    pollfd fds[2] = {{outputFd, POLLIN, 0}, {inputFd, POLLOUT, 0}};
    const long long now = NowMicroseconds();
    if (now >= killAt && !killSent && killAt < deadline) {
      kill(pid, SIGKILL);  // not waited for yet, so the id is still the tool's
      killSent = true;
    }
    if (now >= deadline) {
      result.timedOut = true;
      kill(pid, SIGKILL);
      break;
    }
    const long long waitFor = (killSent ? deadline : std::min(killAt, deadline)) - now;
    const timespec timeout = {static_cast<time_t>(waitFor / 1000000),
                              static_cast<long>(waitFor % 1000000) * 1000};
    const bool wantWrite = inputFd >= 0 && inputSent < options.input.size() && !inputHeld;
    if (ppoll(fds, wantWrite ? 2 : 1, &timeout, nullptr) < 0) {
      if (errno == EINTR) continue;
      Check(false, "poll");
    }
    if (wantWrite && (fds[1].revents & (POLLOUT | POLLERR))) {
      const ssize_t n = write(inputFd, options.input.data() + inputSent,
                              options.input.size() - inputSent);
      if (n > 0) {
        inputSent += static_cast<std::size_t>(n);
      } else if (n < 0 && errno != EAGAIN) {
        close(inputFd);  // the tool stopped reading
        inputFd = -1;
      }
    }
    if (fds[0].revents & (POLLIN | POLLHUP)) {
      char buffer[65536];
      const ssize_t n = read(outputFd, buffer, sizeof buffer);
      if (n <= 0) break;
      result.output.append(buffer, static_cast<std::size_t>(n));
      if (options.watchOutput) options.watchOutput(pid, result.output);
      if (inputHeld) inputHeld = !EndsWith(result.output, options.holdInputUntil);
      if (!interruptSent && !options.interruptAfter.empty() &&
          EndsWith(result.output, options.interruptAfter)) {
        // Standard output of the tool is flushed before it waits for input,
        // so the prompt being complete means the tool is at (or about to
        // reach) its read.
        usleep(20000);
        kill(pid, SIGINT);
        interruptSent = true;
      }
    }
  }
  if (inputFd >= 0) close(inputFd);
  close(outputFd);
  int status = 0;
  while (waitpid(pid, &status, 0) < 0 && errno == EINTR) {
  }
  if (WIFEXITED(status)) result.exitStatus = WEXITSTATUS(status);
  result.killed = !result.timedOut && WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL;
  return result;
}

RunResult RunTool(std::vector<std::string> args, std::string input) {
  RunOptions options;
  options.args = std::move(args);
  options.input = std::move(input);
  return RunTool(options);
}

std::string ReadFile(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  std::ostringstream contents;
  contents << in.rdbuf();
  return contents.str();
}

void WriteFile(const std::string& path, const std::string& contents, mode_t mode) {
  {
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out << contents;
  }
  Check(chmod(path.c_str(), mode) == 0, "chmod " + path);
}

}  // namespace harness
