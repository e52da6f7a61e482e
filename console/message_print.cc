#include "console/message_print.h"

#include <cstdarg>
#include <cstdio>

#include "console/message_catalogue.h"

namespace {

void PrintCatalogueFormat(const char* key, ...) {
  va_list args;
  va_start(args, key);
  std::vprintf(GetMessageText(key), args);
  va_end(args);
}

}  // namespace

void PrintText(const char* key) { std::fputs(GetMessageText(key), stdout); }
void PrintLiteral(const char* literal) { std::fputs(literal, stdout); }
void PrintMessageLine(const char* key) {
  PrintText(key);
  PrintLiteral(".\n");
}

void PrintFormat0(const char* key) { PrintCatalogueFormat(key); }
void PrintFormatS(const char* key, const char* s) { PrintCatalogueFormat(key, s); }
void PrintFormatD(const char* key, int d) { PrintCatalogueFormat(key, d); }
void PrintFormatSS(const char* key, const char* s1, const char* s2) {
  PrintCatalogueFormat(key, s1, s2);
}
void PrintFormatDS(const char* key, int d, const char* s) { PrintCatalogueFormat(key, d, s); }
void PrintFormatDSS(const char* key, int d, const char* s1, const char* s2) {
  PrintCatalogueFormat(key, d, s1, s2);
}
void PrintFormatSDDD(const char* key, const char* s, int d1, int d2, int d3) {
  PrintCatalogueFormat(key, s, d1, d2, d3);
}
void PrintFormatDDD(const char* key, int d1, int d2, int d3) {
  PrintCatalogueFormat(key, d1, d2, d3);
}
void FormatTextDDD(char* buffer, std::size_t size, const char* key, int d1, int d2, int d3) {
  std::snprintf(buffer, size, GetMessageText(key), d1, d2, d3);
}
