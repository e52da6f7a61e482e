#include "service/admin_commands.h"

#include <pwd.h>

#include <algorithm>
#include <cstdio>
#include <map>
#include <string>
#include <vector>

#include "product_paths.h"
#include "reports/report_index.h"
#include "service/quarantine.h"
#include "service/report_text.h"
#include "service/run_schedule.h"
#include "service/service_state.h"
#include "taskstore/result_codes.h"
#include "taskstore/task_store.h"

namespace service {
namespace {

void Complain(const std::string& text) { std::fprintf(stderr, "schscand: %s\n", text.c_str()); }

bool ReadScans(ScheduleScanList* list, std::vector<std::int64_t>* anchors) {
  std::uint32_t code = SCHSCAN_OK;
  if (ReadScheduleScanTaskListWithAnchors(kTaskListPath, *list, *anchors, &code) ||
      code == SCHSCAN_ERR_LIST_NOT_FOUND)
    return true;
  Complain("the task store cannot be read (code " + std::to_string(code) + ")");
  return false;
}

std::string OwnerName(std::uint32_t uid) {
  const passwd* user = getpwuid(uid);
  return user != nullptr ? Printable(user->pw_name) : std::to_string(uid);
}

// The runs the running service has put off; those past are of a service gone.
std::map<ScanKey, Instant> UpcomingRuns(const ServiceState& state, Instant now) {
  std::string error;
  auto runs = state.UpcomingRuns(&error);
  std::erase_if(runs, [&](const auto& run) { return run.second < now; });
  return runs;
}

void PrintTable(const std::vector<std::vector<std::string>>& rows) {
  std::vector<std::size_t> widths;
  for (const auto& row : rows) {
    widths.resize(std::max(widths.size(), row.size()));
    for (std::size_t i = 0; i < row.size(); ++i) widths[i] = std::max(widths[i], row[i].size());
  }
  for (const auto& row : rows) {
    std::string line;
    for (std::size_t i = 0; i < row.size(); ++i) {
      line += row[i];
      if (i + 1 < row.size()) line += std::string(widths[i] - row[i].size() + 2, ' ');
    }
    std::printf("%s\n", line.c_str());
  }
}

}  // namespace

int PrintStatus() {
  const ServiceState state(kStateDir);
  ScheduleScanList list;
  std::vector<std::int64_t> anchors;
  if (!ReadScans(&list, &anchors)) return 2;
  std::string error;
  const auto lastRuns = state.LastRuns(&error);
  if (!error.empty()) Complain(error);
  const std::string database = state.DatabaseStatus();
  if (database.starts_with("failed")) Complain("signature database: " + database);
  const date::time_zone& zone = SystemZone();
  const Instant now = std::chrono::floor<std::chrono::seconds>(std::chrono::system_clock::now());
  const auto upcoming = UpcomingRuns(state, now);
  std::vector<std::vector<std::string>> rows = {{"NAME", "OWNER", "NEXT", "LAST", "RESULT"}};
  for (std::size_t i = 0; i < list.size(); ++i) {
    const ScanKey key = KeyOf(list[i]);
    std::optional<Instant> next =
        NextRunAfter(list[i], Instant{std::chrono::seconds{anchors[i]}}, now, zone);
    if (const auto put = upcoming.find(key); put != upcoming.end() && (!next || put->second < *next))
      next = put->second;
    const auto last = lastRuns.find(key);
    rows.push_back({Printable(key.name), OwnerName(key.owner),
                    next ? FormatLocalMoment(*next, zone) : "-",
                    last != lastRuns.end() ? FormatLocalMoment(last->second.start, zone) : "-",
                    last != lastRuns.end() ? last->second.result : "-"});
  }
  PrintTable(rows);
  return 0;
}

int PrintNextRuns(const ServiceOptions& options) {
  ScheduleScanList list;
  std::vector<std::int64_t> anchors;
  if (!ReadScans(&list, &anchors)) return 2;
  const date::time_zone& zone = SystemZone();
  Instant after = std::chrono::floor<std::chrono::seconds>(std::chrono::system_clock::now());
  if (options.from) {
    const auto from = ParseLocalMoment(*options.from, zone);
    if (!from) {
      Complain("--from takes a local moment 'YYYY-MM-DD HH:MM:SS', not '" + Printable(*options.from) + "'");
      return 2;
    }
    after = *from;
  }
  for (std::size_t i = 0; i < list.size(); ++i) {
    if (KeyOf(list[i]).name != options.scanName) continue;
    if (list[i].bFirstBootScan == 1) {
      std::printf("at system start-up\n");
      return 0;
    }
    const Instant anchor{std::chrono::seconds{anchors[i]}};
    for (int n = 0; n < options.count; ++n) {
      const auto next = NextRunAfter(list[i], anchor, after, zone);
      if (!next) break;
      std::printf("%s\n", FormatLocalMoment(*next, zone).c_str());
      after = *next;
    }
    return 0;
  }
  Complain("no scan is named " + Printable(options.scanName));
  return 2;
}

int ListQuarantine() {
  const Quarantine quarantine(kQuarantineDir);
  std::string error;
  const auto files = quarantine.List(&error);
  if (!error.empty()) {
    Complain(error);
    return 2;
  }
  const date::time_zone& zone = SystemZone();
  for (const QuarantinedFile& file : files) {
    std::printf("%s %s %s %s\n", file.id.c_str(), FormatLocalMoment(file.when, zone).c_str(),
                Printable(file.path).c_str(), Printable(file.signature).c_str());
  }
  return 0;
}

int RestoreQuarantined(const ServiceOptions& options) {
  const Quarantine quarantine(kQuarantineDir);
  std::string error;
  if (!quarantine.Restore(options.restoreId, &error)) {
    Complain(error);
    return 2;
  }
  return 0;
}

}  // namespace service
