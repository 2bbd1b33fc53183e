// Data and checks that the benchmarks share.

#include "bench_support.h"

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>

#include "nalstream/nalstream.h"

namespace qln::bench {

void Require(bool held, const char* what) {
  if (held) return;
  std::fprintf(stderr, "bench: wrong result: %s\n", what);
  std::exit(1);
}

std::string EncodedFile(const std::string& name, const std::string& command) {
  // A name of its own for each command, so that a changed one is run.
  const std::string file = std::to_string(std::hash<std::string>()(command) % 100000) + "-" + name;
  const std::string path = std::string(QLN_BENCH_DATA) + "/" + file;
  if (!std::filesystem::exists(path)) {
    std::filesystem::create_directories(QLN_BENCH_DATA);
    // Under another name until it is whole.
    const std::string made = std::string(QLN_BENCH_DATA) + "/part-" + file;
    std::string filled = command;
    for (size_t at; (at = filled.find("{out}")) != std::string::npos;) filled.replace(at, 5, made);
    Require(std::system((filled + " >/dev/null 2>&1 </dev/null").c_str()) == 0, filled.c_str());
    std::filesystem::rename(made, path);
  }
  return path;
}

Bytes ReadFile(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  return Bytes(std::istreambuf_iterator<char>(file), {});
}

std::vector<Bytes> UnitsOf(const Bytes& stream) {
  std::vector<Bytes> units;
  const uint8_t* at = stream.data();
  int left = static_cast<int>(stream.size());
  int start;
  int end;
  while (left >= 4 && find_nal_unit(at, left, &start, &end) > 0) {
    units.emplace_back(at + start, at + end);
    at += end;
    left -= end;
  }
  return units;
}

Bytes CodedLikeBytes(size_t count, uint64_t seed) {
  Bytes bytes(count);
  uint64_t state = seed * 0x9E3779B97F4A7C15u + 1;
  for (size_t i = 0; i < count; ++i) {
    state ^= state << 13;
    state ^= state >> 7;
    state ^= state << 17;
    bytes[i] = static_cast<uint8_t>(state >> 32);
    // Two zeros in a row are followed by a byte above 3, as an encoder leaves it.
    if (i >= 2 && bytes[i] <= 3 && bytes[i - 1] == 0 && bytes[i - 2] == 0) bytes[i] = 0x55;
  }
  return bytes;
}

}  // namespace qln::bench
