// The banner and the usage text.
#pragma once

void PrintBanner();
// `programPath` is argv[0] exactly as the tool was started.
void PrintUsage(const char* programPath);
