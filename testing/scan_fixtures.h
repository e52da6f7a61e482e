// Shared pieces of the scheduled scan command tests: expected exchanges
// written key by key, real directories to scan, and direct access to the
// task store for seeding scans and reading them back.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "taskstore/schedule_scan_entry.h"
#include "tests/harness.h"

namespace scantest {

// What the tool is expected to print, and what the user types, in order.
struct Script {
  std::string output;
  std::string input;
};
Script operator+(Script a, const Script& b);
Script& operator+=(Script& a, const Script& b);
Script Out(const std::string& text);
// The prompt is printed, then `answer` and a line feed are typed.
Script Ask(const std::string& prompt, const std::string& answer);
// An answer the prompt refuses with `message`.
Script Reject(const std::string& prompt, const std::string& answer, const std::string& message);

inline const std::string kKeyBanner =
    "\nschscan_str_toolname\ntul_zvcopyright_string\ntul_zvcopyright_footer\n\n";

// Runs the tool without the catalogue (the command word is its key) and
// expects the banner, the script's output, then `after`; exit status 0.
void ExpectRun(const char* commandKey, const Script& script, const std::string& after = "",
               std::optional<uid_t> user = std::nullopt);
harness::RunResult RunScript(const std::string& word, const Script& script,
                             std::optional<uid_t> user = std::nullopt);

// A directory that every user may read, under the test's scratch tree.
std::string MakeDir(const std::string& name);

// A daily scan at 10:20:30 every 2 days, repeated every 3 hours, scanning
// archives, repair only, with the directory MakeDir("a"), owned by `owner`.
tagSCHEDULE_SCAN_ENTRY MakeScan(const std::string& name, std::uint32_t owner = 0);
void SetDirectories(tagSCHEDULE_SCAN_ENTRY& scan, const std::vector<std::string>& paths);
// Adds the scan through the task store; the task list stays writable by all.
void StoreScan(const tagSCHEDULE_SCAN_ENTRY& scan);
// Writes a value the store itself would refuse straight into its database.
void SetStoredColumn(const std::string& name, const char* column, int value);
// The stored scan of that name, read as the super-user.
std::optional<tagSCHEDULE_SCAN_ENTRY> FetchScan(const std::string& name);
// Every field of a record on one line, directories shown by their MakeDir name.
std::string Describe(const tagSCHEDULE_SCAN_ENTRY& scan);
// Describe of the stored scan, or "none".
std::string DescribeStored(const std::string& name);
// Every stored scan, for comparing the store before and after a run.
std::string DumpStore();

// Fragments of the wizards' exchanges, key by key.
Script FrequencyMenu(const char* titleKey, const std::string& choice);
Script WeekDayEntry(const std::string& day);
Script FirstBootEntry(const std::string& answer);
Script TimeEntry(const char* lead, const std::string& hour, const std::string& minute,
                 const std::string& second);
Script OptionsEntry(const std::string& archive, const std::string& spyware, const std::string& dump,
                    const std::string& packed);
Script ActionEntry(const std::string& choice);
Script DirEntry(const std::string& path, const std::string& more);
Script PressKeyAfterLimit();  // the refused 101st directory

}  // namespace scantest
