// Runs a fuzz target once over each input file given, or each file of each
// directory given (in name order), as libFuzzer runs a corpus: for the test
// build, which has no libFuzzer. A missing directory holds no inputs.
#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);
extern "C" __attribute__((weak)) int LLVMFuzzerInitialize(int* argc, char*** argv);

namespace fs = std::filesystem;

int main(int argc, char** argv) {
  if (LLVMFuzzerInitialize != nullptr) LLVMFuzzerInitialize(&argc, &argv);
  std::vector<fs::path> inputs;
  for (int i = 1; i < argc; ++i) {
    const fs::path path = argv[i];
    if (fs::is_directory(path)) {
      for (const fs::directory_entry& entry : fs::directory_iterator(path)) {
        if (entry.is_regular_file()) inputs.push_back(entry.path());
      }
    } else if (fs::exists(path)) {
      inputs.push_back(path);
    }
  }
  std::sort(inputs.begin(), inputs.end());
  for (const fs::path& input : inputs) {
    std::ifstream file(input, std::ios::binary);
    const std::string bytes((std::istreambuf_iterator<char>(file)),
                            std::istreambuf_iterator<char>());
    std::fprintf(stderr, "replaying %s\n", input.c_str());
    LLVMFuzzerTestOneInput(reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size());
  }
  std::fprintf(stderr, "%zu inputs replayed\n", inputs.size());
  return 0;
}
