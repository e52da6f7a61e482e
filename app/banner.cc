#include "app/banner.h"

#include <cstdio>

#include "console/message_catalogue.h"
#include "console/message_print.h"

namespace {

struct UsageLine {
  const char* optionWordKey;
  const char* separator;
  const char* descriptionKey;
};

constexpr UsageLine kUsageLines[] = {
    {TextKey("schscan_str_help"), "\t\t", TextKey("schscan_msg_help_display")},
    {TextKey("schscan_str_add"), "\t\t", TextKey("schscan_str_addnewscan")},
    {TextKey("schscan_str_view"), "\t\t", TextKey("schscan_str_view_schldscn")},
    {TextKey("schscan_str_modify"), "\t", TextKey("schscan_msg_modify_existingscan")},
    {TextKey("schscan_str_delete"), "\t", TextKey("schscan_msg_delete_schscan")},
    {TextKey("schscan_str_report"), "\t", TextKey("schscan_msg_view_scan_report")},
    {TextKey("schscan_str_deleterpt"), "\t", TextKey("schscan_msg_delete_scan_report")},
};

}  // namespace

void PrintBanner() {
  std::printf("\n%s\n", GetMessageText("schscan_str_toolname"));
  PrintText("tul_zvcopyright_string");
  PrintLiteral("\n");
  PrintText("tul_zvcopyright_footer");
  PrintLiteral("\n\n");
}

void PrintUsage(const char* programPath) {
  PrintFormatS("schscan_msg_usagestr", programPath);
  PrintLiteral("\n");
  PrintText("schscan_str_option");
  PrintLiteral(" :\n");
  for (const UsageLine& line : kUsageLines) {
    PrintLiteral("\t--");
    PrintText(line.optionWordKey);
    PrintLiteral(line.separator);
    PrintText(line.descriptionKey);
    PrintLiteral(".\n");
  }
}
