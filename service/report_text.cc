#include "service/report_text.h"

#include <cstdio>

#include "taskstore/schedule_scan_entry.h"

namespace service {
namespace {

std::string Field(const char* label, const std::string& value) {
  char padded[32];
  std::snprintf(padded, sizeof padded, "%-18s", label);
  return padded + value + "\n";
}

std::string OptionsText(std::uint8_t options) {
  static constexpr std::pair<std::uint8_t, const char*> kNames[] = {
      {SCAN_OPT_ARCHIVE, "archives"},
      {SCAN_OPT_SPYWARE, "spyware"},
      {SCAN_OPT_DUMP, "dump files"},
      {SCAN_OPT_PACKED, "packed files"},
  };
  std::string text;
  for (const auto& [bit, name] : kNames) {
    if ((options & bit) == 0) continue;
    if (!text.empty()) text += ", ";
    text += name;
  }
  return text.empty() ? "none" : text;
}

std::string ActionText(std::int16_t action) {
  switch (action) {
    case ACTION_REPAIR_ONLY:
      return "repair only (infected files are quarantined: the engine cannot repair)";
    case ACTION_REPAIR_DELETE:
      return "repair or delete (infected files are quarantined, else deleted)";
    case ACTION_DELETE:
      return "delete";
    case ACTION_REPORT_ONLY:
      return "report only";
    default:
      return "unknown (" + std::to_string(action) + "): report only";
  }
}

}  // namespace

std::string Printable(std::string_view text) {
  std::string shown;
  shown.reserve(text.size());
  for (const char c : text) {
    const auto byte = static_cast<unsigned char>(c);
    if (c == '\\') {
      shown += "\\\\";
    } else if (c == '\n') {
      shown += "\\n";
    } else if (c == '\t') {
      shown += "\\t";
    } else if (byte < 0x20 || byte == 0x7f) {
      char escaped[8];
      std::snprintf(escaped, sizeof escaped, "\\x%02X", byte);
      shown += escaped;
    } else {
      shown += c;
    }
  }
  return shown;
}

std::string ReportHeader(const RunFacts& facts) {
  std::string text = "Korvane scheduled scan report\n\n";
  text += Field("Scan:", Printable(facts.scanName));
  const std::string id = std::to_string(facts.owner);
  text += Field("Owner:", facts.ownerName.empty() ? id : Printable(facts.ownerName) + " (" + id + ")");
  text += Field("Started:", facts.started);
  for (std::size_t i = 0; i < facts.directories.size(); ++i)
    text += Field(i == 0 ? "Directories:" : "", Printable(facts.directories[i]));
  text += Field("Options:", OptionsText(facts.options));
  text += Field("Action:", ActionText(facts.action));
  text += Field("Signatures:", Printable(facts.database));
  text += "\nDetections (path, signature, action taken):\n";
  return text;
}

std::string DetectionLine(const Detection& detection) {
  return Printable(detection.path) + "\t" + Printable(detection.signature) + "\t" +
         Printable(detection.action) + "\n";
}

std::string NotAccessibleLine(const std::string& path, const std::string& reason) {
  return Printable(path) + "\t" + Printable(reason) + "\n";
}

std::string ReportSummary(const TreeScanTotals& totals, RunEnd end, const std::string& ended,
                          std::chrono::seconds duration, const std::string& failure) {
  std::string text = "\nSummary:\n";
  std::string result = ResultText(totals, end);
  if (end == RunEnd::kInterrupted) result += " (stopped before the end)";
  if (end == RunEnd::kFailed) result += ": " + Printable(failure);
  text += Field("Result:", result);
  text += Field("Ended:", ended);
  text += Field("Files scanned:", std::to_string(totals.files));
  text += Field("Data scanned:", DataSize(totals.bytes));
  text += Field("Infected files:", std::to_string(totals.infected));
  text += Field("Actions taken:", std::to_string(totals.actions));
  text += Field("Errors:", std::to_string(totals.errors));
  if (totals.skippedDumps > 0) text += Field("Dumps skipped:", std::to_string(totals.skippedDumps));
  text += Field("Time:", std::to_string(duration.count()) + " s");
  return text;
}

std::string ResultText(const TreeScanTotals& totals, RunEnd end) {
  if (totals.infected > 0) return std::to_string(totals.infected) + " infected";
  if (end == RunEnd::kInterrupted) return "interrupted";
  if (end == RunEnd::kFailed || totals.errors > 0) return "error";
  return "clean";
}

int ExitStatus(const TreeScanTotals& totals, RunEnd end) {
  if (totals.infected > 0) return 1;
  return end != RunEnd::kCompleted || totals.errors > 0 ? 2 : 0;
}

std::string DataSize(std::uint64_t bytes) {
  static constexpr const char* kUnits[] = {"B", "KiB", "MiB", "GiB", "TiB", "PiB"};
  double amount = static_cast<double>(bytes);
  std::size_t unit = 0;
  while (amount >= 1024 && unit + 1 < std::size(kUnits)) {
    amount /= 1024;
    ++unit;
  }
  char text[32];
  if (unit == 0) {
    std::snprintf(text, sizeof text, "%llu B", static_cast<unsigned long long>(bytes));
  } else {
    std::snprintf(text, sizeof text, "%.1f %s", amount, kUnits[unit]);
  }
  return text;
}

}  // namespace service
