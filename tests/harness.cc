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

std::vector<char*> Pointers(std::vector<std::string>& strings) {
  std::vector<char*> pointers;
  for (std::string& s : strings) pointers.push_back(s.data());
  pointers.push_back(nullptr);
  return pointers;
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
  int input[2];
  int output[2];
  int errors[2];
  Check(pipe2(input, O_CLOEXEC) == 0 && pipe2(output, O_CLOEXEC) == 0 &&
            pipe2(errors, O_CLOEXEC) == 0,
        "pipe");
  std::vector<std::string> argv;
  if (options.user) {
    const std::string id = std::to_string(*options.user);
    argv = {"/usr/bin/setpriv", "--reuid=" + id, "--regid=" + id, "--clear-groups", "--"};
  }
  argv.push_back(options.program.empty() ? ToolPath() : options.program);
  argv.insert(argv.end(), options.args.begin(), options.args.end());
  std::vector<std::string> environment = {"PATH=/usr/bin:/bin", "LANG=C.UTF-8"};
  environment.insert(environment.end(), options.environment.begin(), options.environment.end());
  std::vector<char*> argvPointers = Pointers(argv);
  std::vector<char*> environmentPointers = Pointers(environment);

  const pid_t pid = fork();
  Check(pid >= 0, "fork");
  if (pid == 0) {
    dup2(input[0], STDIN_FILENO);
    dup2(output[1], STDOUT_FILENO);
    dup2(errors[1], STDERR_FILENO);
    signal(SIGPIPE, SIG_DFL);
    signal(SIGINT, SIG_DFL);
    execve(argvPointers[0], argvPointers.data(), environmentPointers.data());
    _exit(127);
  }
  close(input[0]);
  close(output[1]);
  close(errors[1]);
  fcntl(input[1], F_SETFL, O_NONBLOCK);
  signal(SIGPIPE, SIG_IGN);

  RunResult result;
  std::string* const streams[] = {&result.output, &result.errors};
  pollfd fds[3] = {{output[0], POLLIN, 0}, {errors[0], POLLIN, 0}, {input[1], POLLOUT, 0}};
  std::string unsent = options.steps.empty() ? options.input : "";
  bool endInput = options.steps.empty();  // once `unsent` is sent
  std::size_t step = 0;
  const long long started = NowMicroseconds();
  const long long deadline = started + options.timeoutMilliseconds * 1000LL;
  long long killAt =
      std::min(deadline, started + options.killAfterMicroseconds.value_or(deadline - started));
  while (fds[0].fd >= 0 || fds[1].fd >= 0) {
    // The steps whose prompts are out, in turn.
    for (; step < options.steps.size() && !endInput; ++step) {
      const Step& next = options.steps[step];
      const std::size_t since = result.answeredAt.empty() ? 0 : result.answeredAt.back();
      if ((!next.prompt.empty() &&
           (result.output.size() == since || !result.output.ends_with(next.prompt))) ||
          (next.answer == testing_support::kInterrupt && !unsent.empty()))
        break;
      result.answeredAt.push_back(result.output.size());
      if (next.answer == testing_support::kInterrupt) {
        // The output is flushed before each read, so a complete prompt means
        // the tool is at, or about to reach, its read.
        usleep(20000);
        kill(pid, SIGINT);
        continue;
      }
      if (next.answer != testing_support::kNoAnswer) unsent += next.answer + "\n";
      endInput = next.answer == testing_support::kNoAnswer || step + 1 == options.steps.size();
    }
    if (fds[2].fd >= 0 && unsent.empty() && endInput) {
      close(fds[2].fd);
      fds[2].fd = -1;
    }
    const long long now = NowMicroseconds();
    if (now >= deadline) {
      kill(pid, SIGKILL);
      break;
    }
    if (now >= killAt) {
      kill(pid, SIGKILL);  // not waited for yet, so the id is still the tool's
      killAt = deadline;
    }
    const long long waitFor = killAt - now;
    const timespec timeout = {static_cast<time_t>(waitFor / 1000000),
                              static_cast<long>(waitFor % 1000000) * 1000};
    fds[2].events = unsent.empty() ? 0 : POLLOUT;
    if (ppoll(fds, 3, &timeout, nullptr) < 0) {
      Check(errno == EINTR, "poll");
      continue;
    }
    if (fds[2].revents & (POLLOUT | POLLERR)) {
      const ssize_t n = write(fds[2].fd, unsent.data(), unsent.size());
      if (n > 0) {
        unsent.erase(0, static_cast<std::size_t>(n));
      } else if (n < 0 && errno != EAGAIN) {
        unsent.clear();  // the tool stopped reading
        endInput = true;
      }
    }
    for (int i = 0; i < 2; ++i) {
      if ((fds[i].revents & (POLLIN | POLLHUP)) == 0) continue;
      char buffer[65536];
      const ssize_t n = read(fds[i].fd, buffer, sizeof buffer);
      if (n <= 0) {
        close(fds[i].fd);
        fds[i].fd = -1;
        continue;
      }
      streams[i]->append(buffer, static_cast<std::size_t>(n));
      if (i == 0 && options.watchOutput) options.watchOutput(pid, result.output);
    }
  }
  for (const pollfd& fd : fds) {
    if (fd.fd >= 0) close(fd.fd);
  }
  int status = 0;
  while (waitpid(pid, &status, 0) < 0 && errno == EINTR) {
  }
  if (WIFEXITED(status)) result.exitStatus = WEXITSTATUS(status);
  return result;
}

std::string ReadFile(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  std::ostringstream contents;
  contents << in.rdbuf();
  return contents.str();
}

void WriteFile(const std::string& path, const std::string& contents, mode_t mode) {
  std::ofstream(path, std::ios::binary | std::ios::trunc) << contents;
  Check(chmod(path.c_str(), mode) == 0, "chmod " + path);
}

}  // namespace harness
