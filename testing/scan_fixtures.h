// The one set of scan fixtures of the tests, the fuzz targets and the
// benchmarks: a scheduled scan that the store accepts, directories to scan,
// scratch directories, and direct access to the task store's files for
// seeding scans and reading them back.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <string>
#include <vector>

#include "product_paths.h"
#include "taskstore/schedule_scan_entry.h"

namespace testing_support {

// Lays out the product directory afresh, as an install does but without the
// library and the catalogue: the reports directory, both writable by all.
void ResetProduct();

// A daily scan at 10:20:30 every 2 days, repeated every 3 hours, scanning
// archives, repair only, owned by `owner`, of `paths` (ScanDir("a") when
// none are given).
tagSCHEDULE_SCAN_ENTRY MakeScan(const std::string& name, std::uint32_t owner = 0,
                                const std::vector<std::string>& paths = {});

// A directory that every user may read, in a scratch tree beside the
// product directory.
std::string ScanDir(const std::string& name);

// Adds `scan` through the store's add call; SCHSCAN_OK or the store's code.
std::uint32_t AddScan(tagSCHEDULE_SCAN_ENTRY scan, const char* taskList = kTaskListPath);
// Adds to the product's store, which every user may then write; aborts the
// test on a refusal.
void StoreScan(const tagSCHEDULE_SCAN_ENTRY& scan);
// Gives the task list and its side files `mode`, as far as they exist.
void SetStoreMode(mode_t mode);
// Writes a value the store itself would refuse straight into its database.
void SetStoredColumn(const std::string& name, const char* column, int value);
// The first column of the first row of `sql` on the store file, as text;
// "" for no row, "(error)" when the statement fails.
std::string QueryStore(const std::string& taskList, const char* sql);

// Every field of a record on one line, directories shown by their ScanDir
// name, e.g. "Scan1 u0 f0 d0 b0 10:20:30 r2 p1/3/0 o1 a0 [a]": the owner,
// frequency, weekday, first boot, time, recurrence, repeat (flag, interval,
// unit), options and action.
std::string Describe(const tagSCHEDULE_SCAN_ENTRY& scan);
// The record that `description` describes (the inverse of Describe).
tagSCHEDULE_SCAN_ENTRY ScanFrom(const std::string& description);
// Describe of the product store's scan of that name, or "NAME none".
std::string DescribeStored(const std::string& name);
// Describe of every stored scan, a line each.
std::string DumpStore();

// The standard seed of the command paths: three scans and three reports.
//   Daily15charName  root's MakeScan
//   Weekly16charName user 1's, weekly on Tuesday every 4 weeks, not
//                    repeated, no options, repair or delete, directories a b
//   Boot             user 4242's (no login name), first boot, every option,
//                    delete
// Reports d1 (Daily15charName, root's), d2 (Weekly16charName, user 1's) and
// d3 (Daily15charName, root's) in files schd0001.rpt to schd0003.rpt.
void SeedScansAndReports();
// The date and time of every index entry in order, ";", then every file of
// the product directory besides the store, its library and the index, e.g.
// "d1 d3; reports/schd0001.rpt reports/schd0003.rpt".
std::string ReportsState();

// A fresh directory under /tmp, removed with everything in it at the end.
class ScratchDirectory {
 public:
  ScratchDirectory();
  ~ScratchDirectory();
  ScratchDirectory(const ScratchDirectory&) = delete;
  ScratchDirectory& operator=(const ScratchDirectory&) = delete;
  const std::string& path() const { return path_; }
  std::string operator/(const std::string& name) const { return path_ + "/" + name; }

 private:
  std::string path_;
};

}  // namespace testing_support
