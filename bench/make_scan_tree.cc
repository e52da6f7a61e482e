// Builds the data of the scan benchmark of run_benchmarks.sh:
//
//   make_scan_tree TREE DATABASE FILES
//
// writes the tests' tiny signature database into DATABASE, a tree of FILES
// files of mixed kinds and sizes under TREE (which must not exist yet), and
// stores the scan "TreeBench" of TREE in the product's task list: root's,
// archives and packed files on, report only. The same seed always gives the
// same tree. It prints the number of files, their bytes and how many of them
// each scanner must find infected.
//
// The files, 100 to a directory, two levels deep:
//   plain text      55%  100 B to 16 KiB
//   HTML            10%  1 to 32 KiB
//   binary data     25%  1 to 256 KiB
//   large binary     3%  256 KiB to 2 MiB
//   ZIP archives     5%  2 to 8 deflated entries of text and data
//   ELF executables  2%  a header and 4 to 64 KiB of data
// and among them, every 500th file one the database names: the marker at
// the end of a text, the EICAR test file, the hashed content, or a ZIP
// holding the marked text (found only when the archive is opened).
#include <zlib.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <filesystem>
#include <iterator>
#include <random>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "product_paths.h"
#include "taskstore/result_codes.h"
#include "testing/scan_fixtures.h"
#include "testing/signature_database.h"

namespace {

namespace fs = std::filesystem;
using testing_support::Sample;
using testing_support::SampleContent;

constexpr int kFilesPerDirectory = 100;
constexpr int kDirectoriesPerLevel = 10;
constexpr int kInfectedEvery = 500;
constexpr char kScanName[] = "TreeBench";

constexpr const char* kWords[] = {
    "scan",   "report", "schedule", "directory", "archive", "signature", "engine", "daily",
    "weekly", "owner",  "quarantine", "index",  "file",     "data",      "the",    "of",
    "and",    "a",      "to",       "in",        "is",      "that",      "it",     "for"};

// "PREFIX" NUMBER "SUFFIX", e.g. Name("f", 12, ".txt") is "f12.txt".
std::string Name(const char* prefix, int number, const char* suffix = "") {
  char name[64];
  std::snprintf(name, sizeof name, "%s%d%s", prefix, number, suffix);
  return name;
}

class Generator {
 public:
  explicit Generator(std::uint64_t seed) : random_(seed) {}

  int Below(int bound) { return std::uniform_int_distribution<int>(0, bound - 1)(random_); }
  // A size between `low` and `high` bytes, evenly spread on a log scale.
  std::size_t Size(std::size_t low, std::size_t high) {
    std::uniform_real_distribution<double> exponent(std::log(static_cast<double>(low)),
                                                    std::log(static_cast<double>(high)));
    return static_cast<std::size_t>(std::exp(exponent(random_)));
  }

  std::string Text(std::size_t size) {
    std::string text;
    text.reserve(size + 16);
    int column = 0;
    while (text.size() < size) {
      const char* word = kWords[Below(std::size(kWords))];
      text += word;
      column += static_cast<int>(std::strlen(word)) + 1;
      if (column > 70) {
        text += '\n';
        column = 0;
      } else {
        text += ' ';
      }
    }
    text.resize(size);
    return text;
  }

  std::string Html(std::size_t size) {
    std::string html = "<!DOCTYPE html>\n<html><head><title>scan notes</title>"
                       "<script>var shown = 0; function show() { shown++; }</script>"
                       "</head>\n<body>\n";
    while (html.size() + 32 < size) {
      html += "<p onclick=\"show()\">";
      html += Text(40 + static_cast<std::size_t>(Below(200)));
      html += "</p>\n<a href=\"";
      html += Name("https://example.org/", Below(1000), "\">link</a>\n");
    }
    return html + "</body></html>\n";
  }

  std::string Binary(std::size_t size) {
    std::string data(size, '\0');
    for (std::size_t i = 0; i < size; i += 8) {
      const std::uint64_t word = random_();
      std::memcpy(data.data() + i, &word, std::min<std::size_t>(8, size - i));
    }
    return data;
  }

  // A 64-bit x86-64 executable header without program or section headers,
  // then data.
  std::string Elf(std::size_t size) {
    std::string elf = "\x7f" "ELF\x02\x01\x01";
    elf.resize(16, '\0');
    const unsigned char rest[] = {2, 0, 62, 0, 1, 0, 0, 0};  // ET_EXEC, x86-64, version 1
    elf.append(reinterpret_cast<const char*>(rest), sizeof rest);
    elf.append(24, '\0');                                     // entry, phoff, shoff
    elf.append(4, '\0');                                      // flags
    const unsigned char sizes[] = {64, 0, 56, 0, 0, 0, 64, 0, 0, 0, 0, 0};
    elf.append(reinterpret_cast<const char*>(sizes), sizeof sizes);
    return elf + Binary(size);
  }

 private:
  std::mt19937_64 random_;
};

void Put(std::string& out, std::uint32_t value, int bytes) {
  for (int i = 0; i < bytes; ++i) out += static_cast<char>(value >> (8 * i) & 0xff);
}

std::string Deflate(const std::string& data) {
  z_stream stream{};
  if (deflateInit2(&stream, Z_DEFAULT_COMPRESSION, Z_DEFLATED, -MAX_WBITS, 8,
                   Z_DEFAULT_STRATEGY) != Z_OK)
    throw std::runtime_error("deflateInit2 failed");
  std::string out(deflateBound(&stream, static_cast<uLong>(data.size())), '\0');
  stream.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(data.data()));
  stream.avail_in = static_cast<uInt>(data.size());
  stream.next_out = reinterpret_cast<Bytef*>(out.data());
  stream.avail_out = static_cast<uInt>(out.size());
  const int result = deflate(&stream, Z_FINISH);
  out.resize(stream.total_out);
  deflateEnd(&stream);
  if (result != Z_STREAM_END) throw std::runtime_error("deflate did not finish");
  return out;
}

// A ZIP archive of `entries` (name, content), each deflated.
std::string Zip(const std::vector<std::pair<std::string, std::string>>& entries) {
  std::string zip;
  std::string central;
  for (const auto& [name, content] : entries) {
    const std::string packed = Deflate(content);
    const auto crc = static_cast<std::uint32_t>(
        crc32(0, reinterpret_cast<const Bytef*>(content.data()), static_cast<uInt>(content.size())));
    std::string common;  // from "version needed" to "extra field length"
    Put(common, 20, 2);
    Put(common, 0, 2);
    Put(common, 8, 2);  // deflated
    Put(common, 0, 2);
    Put(common, 0x5a21, 2);  // 2025-01-01
    Put(common, crc, 4);
    Put(common, static_cast<std::uint32_t>(packed.size()), 4);
    Put(common, static_cast<std::uint32_t>(content.size()), 4);
    Put(common, static_cast<std::uint32_t>(name.size()), 2);
    Put(common, 0, 2);
    const auto offset = static_cast<std::uint32_t>(zip.size());
    Put(zip, 0x04034b50, 4);
    zip.append(common).append(name).append(packed);
    Put(central, 0x02014b50, 4);
    Put(central, 20, 2);
    central += common;
    Put(central, 0, 2);
    Put(central, 0, 2);
    Put(central, 0, 2);
    Put(central, 0, 4);
    Put(central, offset, 4);
    central += name;
  }
  const auto centralOffset = static_cast<std::uint32_t>(zip.size());
  zip += central;
  Put(zip, 0x06054b50, 4);
  Put(zip, 0, 4);
  Put(zip, static_cast<std::uint32_t>(entries.size()), 2);
  Put(zip, static_cast<std::uint32_t>(entries.size()), 2);
  Put(zip, static_cast<std::uint32_t>(central.size()), 4);
  Put(zip, centralOffset, 4);
  Put(zip, 0, 2);
  return zip;
}

// The content and name of file `number`; `*infected` says whether the
// database names it.
std::pair<std::string, std::string> MakeFile(Generator& generate, int number, bool* infected) {
  const std::string stem = Name("f", number);
  *infected = number % kInfectedEvery == kInfectedEvery - 1;
  if (*infected) {
    switch (number / kInfectedEvery % 4) {
      case 0: return {generate.Text(generate.Size(100, 4096)) + SampleContent(Sample::kMarker),
                      stem + ".txt"};
      case 1: return {SampleContent(Sample::kEicar), stem + ".com"};
      case 2: return {SampleContent(Sample::kHashContent), stem + ".txt"};
      default: return {SampleContent(Sample::kZippedMarker), stem + ".zip"};
    }
  }
  const int kind = generate.Below(100);
  if (kind < 55) return {generate.Text(generate.Size(100, 16 << 10)), stem + ".txt"};
  if (kind < 65) return {generate.Html(generate.Size(1 << 10, 32 << 10)), stem + ".html"};
  if (kind < 90) return {generate.Binary(generate.Size(1 << 10, 256 << 10)), stem + ".dat"};
  if (kind < 93) return {generate.Binary(generate.Size(256 << 10, 2 << 20)), stem + ".bin"};
  if (kind < 98) {
    std::vector<std::pair<std::string, std::string>> entries;
    const int count = 2 + generate.Below(7);
    for (int i = 0; i < count; ++i) {
      if (generate.Below(2) == 0)
        entries.emplace_back(Name("notes", i, ".txt"),
                             generate.Text(generate.Size(100, 32 << 10)));
      else
        entries.emplace_back(Name("data", i, ".dat"),
                             generate.Binary(generate.Size(100, 32 << 10)));
    }
    return {Zip(entries), stem + ".zip"};
  }
  return {generate.Elf(generate.Size(4 << 10, 64 << 10)), stem};
}

int Make(const std::string& tree, const std::string& database, int files) {
  if (fs::exists(tree)) {
    std::fprintf(stderr, "make_scan_tree: %s exists already\n", tree.c_str());
    return 2;
  }
  fs::create_directories(database);
  testing_support::WriteSignatureDatabase(database);

  Generator generate(20261123);
  std::uint64_t bytes = 0;
  int infected = 0;
  for (int number = 0; number < files; ++number) {
    const int directory = number / kFilesPerDirectory;
    const fs::path where = fs::path(tree) / Name("d", directory / kDirectoriesPerLevel) /
                           Name("d", directory % kDirectoriesPerLevel);
    if (number % kFilesPerDirectory == 0) fs::create_directories(where);
    bool isInfected = false;
    const auto [content, name] = MakeFile(generate, number, &isInfected);
    testing_support::WriteFile(where / name, content);
    bytes += content.size();
    infected += isInfected ? 1 : 0;
  }

  tagSCHEDULE_SCAN_ENTRY scan = testing_support::MakeScan(kScanName, 0, {tree});
  scan.byScanOptions = SCAN_OPT_ARCHIVE | SCAN_OPT_PACKED;
  scan.nScanAction = ACTION_REPORT_ONLY;
  if (const std::uint32_t code = testing_support::AddScan(scan); code != SCHSCAN_OK) {
    std::fprintf(stderr, "make_scan_tree: the store refused the scan (%u)\n", code);
    return 1;
  }
  std::printf("%d %llu %d\n", files, static_cast<unsigned long long>(bytes), infected);
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  char* end = nullptr;
  const long files = argc == 4 ? std::strtol(argv[3], &end, 10) : 0;
  if (files <= 0 || files > 1000000 || *end != '\0') {
    std::fprintf(stderr, "usage: %s TREE DATABASE FILES\n", argv[0]);
    return 2;
  }
  try {
    return Make(argv[1], argv[2], static_cast<int>(files));
  } catch (const std::exception& error) {
    std::fprintf(stderr, "make_scan_tree: %s\n", error.what());
    return 1;
  }
}
