// Eight tool processes at once, as root and as ordinary users: adding and
// deleting scans (the first ones into a store that does not exist yet), and
// deleting reports. Nothing may be lost and nothing stored twice.
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <functional>
#include <optional>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "product_paths.h"
#include "tests/harness.h"
#include "testing/lock_free_appender.h"
#include "testing/scan_fixtures.h"

namespace {

constexpr int kProcesses = 8;
std::string g_directory;  // the one directory every scan scans
std::atomic<int> g_running{0};
std::atomic<int> g_mostAtOnce{0};
std::atomic<int> g_runs{0};

struct Outcome {
  std::string what;
  bool ok;
};

// Runs `work(i)` for i in 0..kProcesses-1, each on its own thread and so as
// its own tool process at the same moment; returns what each reported.
std::vector<std::vector<Outcome>> AtOnce(const std::function<std::vector<Outcome>(int)>& work) {
  std::vector<std::vector<Outcome>> outcomes(kProcesses);
  std::vector<std::thread> threads;
  for (int i = 0; i < kProcesses; ++i) threads.emplace_back([&, i] { outcomes[i] = work(i); });
  for (std::thread& thread : threads) thread.join();
  std::printf("[ figures  ] %d tool runs from %d workers, at most %d tool processes at once\n",
              g_runs.exchange(0), kProcesses, g_mostAtOnce.exchange(0));
  return outcomes;
}

Outcome RunCommand(const std::string& command, const std::string& input, std::optional<uid_t> user,
                   const std::string& success) {
  harness::RunOptions options;
  options.args = {command};
  options.input = input;
  options.user = user;
  const int running = ++g_running;
  for (int most = g_mostAtOnce;
       running > most && !g_mostAtOnce.compare_exchange_weak(most, running);) {
  }
  const harness::RunResult run = harness::RunTool(options);
  --g_running;
  ++g_runs;
  const bool ok = run.exitStatus == 0 && run.output.ends_with(success);
  return {command + " " + input.substr(0, input.find('\n')) + ": " + run.output, ok};
}

Outcome Add(const std::string& name, std::optional<uid_t> user) {
  return RunCommand("schscan_str_args_add",
                    name + "\n1\ny\nn\nn\nn\nn\n1\n" + g_directory + "\nn\ny\n", user,
                    "schscan_msg_scanadded_success.\n");
}

Outcome Delete(const std::string& name, std::optional<uid_t> user) {
  return RunCommand("schscan_str_args_delete", name + "\n", user,
                    "schscan_msg_scan_deleted_success.\n");
}

void ExpectAllOk(const std::vector<std::vector<Outcome>>& outcomes) {
  for (const auto& process : outcomes)
    for (const Outcome& outcome : process) EXPECT_TRUE(outcome.ok) << outcome.what;
}

// Every stored scan as "name owner", sorted.
std::vector<std::string> StoredNames() {
  std::vector<std::string> names;
  std::istringstream dump(testing_support::DumpStore());
  std::string name;
  std::string owner;
  std::string rest;
  while (dump >> name >> owner && std::getline(dump, rest)) names.push_back(name + " " + owner);
  std::sort(names.begin(), names.end());
  return names;
}

std::optional<uid_t> UserOf(int process) {
  constexpr uid_t kUsers[] = {0, 0, 0, 65534, 65534, 1, 1, 2};
  return kUsers[process] == 0 ? std::nullopt : std::optional<uid_t>(kUsers[process]);
}

TEST(EightProcesses, AddAndDeleteScansLosingAndDoublingNothing) {
  harness::ResetProductDir(false);
  g_directory = testing_support::ScanDir("a");
  // The store does not exist yet: eight adds race to create it.
  ExpectAllOk(AtOnce([](int i) { return std::vector{Add("First" + std::to_string(i), {})}; }));
  ASSERT_EQ(StoredNames().size(), static_cast<std::size_t>(kProcesses));
  testing_support::SetStoreMode(0666);  // ordinary users share it from here on

  // Each process adds six scans of its own and deletes every other one
  // right after the next is added.
  constexpr int kScans = 6;
  ExpectAllOk(AtOnce([](int i) {
    std::vector<Outcome> outcomes;
    const std::string prefix = "P" + std::to_string(i) + "S";
    for (int j = 0; j < kScans; ++j) {
      outcomes.push_back(Add(prefix + std::to_string(j), UserOf(i)));
      if (j % 2 == 1) outcomes.push_back(Delete(prefix + std::to_string(j - 1), UserOf(i)));
    }
    return outcomes;
  }));
  std::vector<std::string> expected;
  for (int i = 0; i < kProcesses; ++i) {
    expected.push_back("First" + std::to_string(i) + " u0");
    for (int j = 1; j < kScans; j += 2)
      expected.push_back("P" + std::to_string(i) + "S" + std::to_string(j) + " u" +
                         std::to_string(UserOf(i).value_or(0)));
  }
  std::sort(expected.begin(), expected.end());
  EXPECT_EQ(StoredNames(), expected);
}

// Eight users delete all their reports at the same moment; each rewrite
// waits for the others' and keeps what they kept.
TEST(EightProcesses, DeleteTheirReportsAndKeepEveryoneElses) {
  harness::ResetProductDir(false);
  std::vector<tagSCAN_REPORT_ENTRY> kept;
  for (int round = 0; round < 5; ++round) {
    for (uid_t user = 1001; user <= 1000 + kProcesses + 1; ++user) {
      const auto entry =
          testing_support::MakeReportEntry("Scan" + std::to_string(user), "d" + std::to_string(round),
                                        std::string(kReportsDir) + "/gone" + std::to_string(user) +
                                            "-" + std::to_string(round) + ".rpt",
                                        user);
      ASSERT_TRUE(testing_support::AppendReportEntry(entry));
      if (user == 1000 + kProcesses + 1) kept.push_back(entry);
    }
  }
  ExpectAllOk(AtOnce([](int i) {
    return std::vector{RunCommand("schscan_args_delrpt", "3\n", static_cast<uid_t>(1001 + i),
                                  "schscan_msg_rpt_deleted.\n")};
  }));
  std::string index(8, '\0');
  index += std::string{static_cast<char>(kept.size()), 0, 0, 0} + std::string(7, '\0');
  for (const auto& entry : kept) index.append(reinterpret_cast<const char*>(&entry), sizeof entry);
  EXPECT_EQ(harness::ReadFile(kReportIndexPath), index);
}

}  // namespace
