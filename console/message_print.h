// Printing catalogue texts. Each function prints the text of a key, either
// unchanged or as a print format with a fixed list of arguments; the function
// name spells that list (S a string, D an integer), so that a test can check
// every format text in the catalogue against what its callers pass.
#pragma once

#include <cstddef>

// Writes the text of `key` unchanged.
void PrintText(const char* key);
// Writes `literal` as it stands (separators such as ".\n" and ":").
void PrintLiteral(const char* literal);
// Writes the text of `key` followed by ".\n": one message line.
void PrintMessageLine(const char* key);

void PrintFormat0(const char* key);
void PrintFormatS(const char* key, const char* s);
void PrintFormatD(const char* key, int d);
void PrintFormatSS(const char* key, const char* s1, const char* s2);
void PrintFormatDS(const char* key, int d, const char* s);
void PrintFormatDSS(const char* key, int d, const char* s1, const char* s2);
void PrintFormatSDDD(const char* key, const char* s, int d1, int d2, int d3);
void PrintFormatDDD(const char* key, int d1, int d2, int d3);
// Formats into `buffer` instead of printing.
void FormatTextDDD(char* buffer, std::size_t size, const char* key, int d1, int d2, int d3);

// Identity markers for keys kept in tables, so that the catalogue checks find
// them under the arguments they will be printed with.
constexpr const char* TextKey(const char* key) { return key; }
constexpr const char* Format0Key(const char* key) { return key; }
constexpr const char* FormatSKey(const char* key) { return key; }
constexpr const char* FormatDKey(const char* key) { return key; }
constexpr const char* FormatSSKey(const char* key) { return key; }
constexpr const char* FormatDSKey(const char* key) { return key; }
constexpr const char* FormatSDDDKey(const char* key) { return key; }
