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
extern "C" int LLVMFuzzerInitialize(int* argc, char*** argv);

namespace fs = std::filesystem;

int main(int argc, char** argv) {
  LLVMFuzzerInitialize(&argc, &argv);
  std::vector<fs::path> inputs;
  for (int i = 1; i < argc; ++i) {
    if (fs::is_directory(argv[i])) {
      for (const fs::directory_entry& entry : fs::directory_iterator(argv[i]))
        inputs.push_back(entry.path());
    } else if (fs::exists(argv[i])) {
      inputs.push_back(argv[i]);
    }
  }
  std::sort(inputs.begin(), inputs.end());
  for (const fs::path& input : inputs) {
    std::fprintf(stderr, "replaying %s\n", input.c_str());
    std::ifstream file(input, std::ios::binary);
    const std::string bytes(std::istreambuf_iterator<char>(file), {});
    LLVMFuzzerTestOneInput(reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size());
  }
  std::fprintf(stderr, "%zu inputs replayed\n", inputs.size());
}
