// A plain main for fuzz targets: runs each file of the folders given once, and truncated at a few lengths.

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

namespace {

void RunOne(const std::vector<uint8_t>& bytes, size_t size) {
  // An exact-size heap copy, so that one byte too far is seen.
  const std::unique_ptr<uint8_t[]> copy(new uint8_t[size]);
  std::copy_n(bytes.begin(), size, copy.get());
  LLVMFuzzerTestOneInput(copy.get(), size);
}

}  // namespace

int main(int argc, char** argv) {
  size_t runs = 0;
  for (int i = 1; i < argc; ++i) {
    if (!std::filesystem::exists(argv[i])) continue;
    std::vector<std::filesystem::path> files;
    if (std::filesystem::is_directory(argv[i])) {
      for (const auto& entry : std::filesystem::directory_iterator(argv[i])) files.push_back(entry.path());
    } else {
      files.emplace_back(argv[i]);
    }
    for (const auto& path : files) {
      std::ifstream file(path, std::ios::binary);
      const std::vector<uint8_t> bytes(std::istreambuf_iterator<char>(file), {});
      for (size_t part = 0; part <= 8; ++part, ++runs) RunOne(bytes, bytes.size() * part / 8);
    }
  }
  LLVMFuzzerTestOneInput(nullptr, 0);
  std::printf("%zu runs\n", runs + 1);
  return 0;
}
