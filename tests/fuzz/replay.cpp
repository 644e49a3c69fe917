// Runs a fuzzer's function over the files of the folders that are given: the corpus as a test.
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size);

int main(int argc, char** argv) {
  int runs = 0;
  for (int at = 1; at < argc; ++at) {
    for (auto const& entry : std::filesystem::directory_iterator(argv[at])) {
      std::ifstream file(entry.path(), std::ios::binary);
      std::vector<char> const bytes{std::istreambuf_iterator<char>(file), {}};
      LLVMFuzzerTestOneInput(reinterpret_cast<std::uint8_t const*>(bytes.data()), bytes.size());
      ++runs;
    }
  }
  std::printf("%d inputs\n", runs);
  return runs > 0 ? 0 : 1;
}
