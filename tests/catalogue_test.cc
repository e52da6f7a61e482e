// Checks the message catalogue source against the code: every key that the
// code prints has an English text, and every text carries exactly the
// conversions that its callers pass (a wrong conversion is a crash).
#include <gtest/gtest.h>

#include <cctype>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <map>
#include <set>
#include <sstream>
#include <string>

namespace fs = std::filesystem;

namespace {

// The msgid/msgstr pairs of a PO text whose entries are one line each (as
// the catalogue's and xgettext's with --no-wrap are), the header left out.
std::map<std::string, std::string> ParsePo(const std::string& po) {
  auto unquote = [](const std::string& line) {
    std::string text;
    for (std::size_t i = line.find('"') + 1; i + 1 < line.size(); ++i) {
      char c = line[i];
      if (c == '\\') c = line[++i] == 'n' ? '\n' : line[i] == 't' ? '\t' : line[i];
      text.push_back(c);
    }
    return text;
  };
  std::map<std::string, std::string> entries;
  std::istringstream lines(po);
  std::string id;
  for (std::string line; std::getline(lines, line);) {
    if (line.starts_with("msgid ")) id = unquote(line);
    if (line.starts_with("msgstr ") && !id.empty()) entries[id] = unquote(line);
  }
  return entries;
}

// The conversions of a print format, one letter each (d for d/i, s for s).
std::string Conversions(const std::string& format) {
  std::string kinds;
  for (std::size_t i = 0; i < format.size(); ++i) {
    if (format[i] != '%') continue;
    ++i;
    if (i < format.size() && format[i] == '%') continue;
    while (i < format.size() && std::string("-+ #0").find(format[i]) != std::string::npos) ++i;
    while (i < format.size() && (std::isdigit(static_cast<unsigned char>(format[i])) ||
                                 format[i] == '.' || format[i] == '*'))
      ++i;
    while (i < format.size() && std::string("hlLqjzt").find(format[i]) != std::string::npos) ++i;
    if (i < format.size()) kinds.push_back(format[i] == 'i' ? 'd' : format[i]);
  }
  return kinds;
}

std::string CommandOutput(const std::string& command) {
  std::string output;
  FILE* pipe = popen(command.c_str(), "r");
  if (pipe == nullptr) return output;
  char buffer[4096];
  for (std::size_t n; (n = fread(buffer, 1, sizeof buffer, pipe)) > 0;) output.append(buffer, n);
  pclose(pipe);
  return output;
}

std::string ToolSources() {
  std::string files;
  for (const char* dir : {"app", "console", "commands", "reports"}) {
    for (const auto& entry : fs::directory_iterator(fs::path(SOURCE_DIR) / dir)) {
      const std::string name = entry.path().filename();
      if (entry.path().extension() == ".cc" && name.find("_test") == std::string::npos)
        files += " '" + entry.path().string() + "'";
    }
  }
  return files;
}

struct Signature {
  const char* keywords;     // xgettext keyword options
  const char* conversions;  // what the callers pass
};

const Signature kSignatures[] = {
    {"--keyword=GetMessageText --keyword=PrintText --keyword=PrintMessageLine --keyword=TextKey",
     ""},
    {"--keyword=PrintFormat0 --keyword=Format0Key", ""},
    {"--keyword=PrintFormatS --keyword=FormatSKey", "s"},
    {"--keyword=PrintFormatD --keyword=FormatDKey", "d"},
    {"--keyword=PrintFormatSS --keyword=FormatSSKey", "ss"},
    {"--keyword=PrintFormatDS --keyword=FormatDSKey", "ds"},
    {"--keyword=PrintFormatDSS", "dss"},
    {"--keyword=PrintFormatSDDD --keyword=FormatSDDDKey", "sddd"},
    {"--keyword=PrintFormatDDD --keyword=FormatTextDDD:3", "ddd"},
};

TEST(Catalogue, EveryPrintedKeyHasATextWithTheCallersConversions) {
  std::ifstream poFile(std::string(SOURCE_DIR) + "/catalogue/lang.po");
  std::stringstream po;
  po << poFile.rdbuf();
  const auto catalogue = ParsePo(po.str());
  ASSERT_GT(catalogue.size(), 190u);

  const std::string sources = ToolSources();
  std::set<std::string> printed;
  for (const Signature& signature : kSignatures) {
    const std::string extracted =
        CommandOutput(std::string("xgettext --language=C++ --from-code=UTF-8 --no-wrap -k ") + signature.keywords +
            " --omit-header --no-location -o -" + sources);
    for (const auto& [key, unused] : ParsePo(extracted)) {
      if (key.empty()) continue;
      printed.insert(key);
      const auto text = catalogue.find(key);
      if (text == catalogue.end()) {
        ADD_FAILURE() << "the catalogue has no text for the key \"" << key << '"';
        continue;
      }
      EXPECT_EQ(Conversions(text->second), signature.conversions)
          << "key \"" << key << "\", text \"" << text->second << '"';
    }
  }
  EXPECT_GT(printed.size(), 30u);  // the extraction itself worked
}

TEST(Catalogue, ConversionParser) {
  EXPECT_EQ(Conversions("%-26s: %02d:%02d %% %i %ld"), "sddd" "d");
  EXPECT_EQ(Conversions("no conversions, 100%%"), "");
}

}  // namespace
