// Table calls of the format family beside std::lower_bound over the same tables.

#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstring>
#include <sstream>
#include <string>
#include <utility>

#include "bench_support.h"
#include "format_tables.h"
#include "qlnutil/qlnformat.h"

namespace {

using qln::bench::Find;
using qln::bench::kQuestions;
using qln::bench::Numbers;
using qln::bench::ReadRows;
using qln::bench::Require;
using qln::bench::Sorted;
using qln::bench::Table;

const Table<std::string>& Codecs() {
  static const Table<std::string> kTable = [] {
    Table<std::string> table;
    for (const auto& [name, codes] : ReadRows("codec_names.tsv")) {
      std::istringstream words(codes);
      for (std::string code; words >> code;) {
        uint32_t key = 0;
        for (const char c : code) key = key << 8 | static_cast<uint8_t>(c == '_' ? ' ' : c);
        table.push_back({code.size() == 4 ? key : static_cast<uint32_t>(std::stoul(code, nullptr, 0)), name});
      }
    }
    return Sorted(table);
  }();
  return kTable;
}

struct Name {
  char text[21];
};

const Table<Name>& FormatNames() {
  static const Table<Name> kTable = [] {
    Table<Name> table;
    for (const auto& [word, text] : ReadRows("signal_format_names.tsv")) {
      Name name;
      std::memset(name.text, ' ', 20);
      name.text[20] = '\0';
      std::memcpy(name.text, text.c_str(), text.size() + 1);
      table.push_back({static_cast<uint32_t>(std::stoul(word, nullptr, 16)), name});
    }
    return Sorted(table);
  }();
  return kTable;
}

const Table<std::string>& FileTypes() {
  static const Table<std::string> kTable = [] {
    Table<std::string> table;
    for (const auto& [key, text] : ReadRows("file_type_names.tsv"))
      table.push_back({static_cast<uint32_t>(std::stoul(key)), text});
    return Sorted(table);
  }();
  return kTable;
}

// Keys of a table in an order that no branch predictor knows.
template <class Value>
std::vector<uint32_t> Questions(const Table<Value>& table) {
  std::vector<uint32_t> keys;
  uint64_t state = 88172645463325252u;
  for (size_t i = 0; i < kQuestions; ++i) {
    state ^= state << 13;
    state ^= state >> 7;
    state ^= state << 17;
    keys.push_back(table[(state >> 20) % table.size()].key);
  }
  return keys;
}

template <class Call>
void Ask(benchmark::State& run, const std::vector<uint32_t>& keys, Call call) {
  for (auto _ : run) {
    for (const uint32_t key : keys) benchmark::DoNotOptimize(call(key));
  }
  run.SetItemsProcessed(static_cast<int64_t>(run.iterations()) * static_cast<int64_t>(keys.size()));
}

void CodecNameOurs(benchmark::State& run) {
  for (const auto& entry : Codecs()) Require(entry.value == qlnutilCodecTypeString(entry.key), "codec names");
  Ask(run, Questions(Codecs()), [](uint32_t key) { return qlnutilCodecTypeString(key); });
}
BENCHMARK(CodecNameOurs)->Name("codec_name/ours");

void CodecNameLowerBound(benchmark::State& run) {
  Table<const char*> table;
  for (const auto& entry : Codecs()) table.push_back({entry.key, entry.value.c_str()});
  Ask(run, Questions(table), [&](uint32_t key) {
    const auto* entry = Find(table, key);
    return entry != nullptr ? entry->value : "";
  });
}
BENCHMARK(CodecNameLowerBound)->Name("codec_name/lower_bound");

void FormatNameOurs(benchmark::State& run) {
  char text[21];
  for (const auto& entry : FormatNames()) {
    vidSignalFormatToStr20(entry.key, text);
    Require(std::memcmp(text, entry.value.text, 21) == 0, "signal format names");
  }
  Ask(run, Questions(FormatNames()), [&](uint32_t key) {
    const int32_t result = vidSignalFormatToStr20(key, text);
    benchmark::DoNotOptimize(text);
    return result;
  });
}
BENCHMARK(FormatNameOurs)->Name("signal_format_name/ours");

void FormatNameLowerBound(benchmark::State& run) {
  char text[21];
  Ask(run, Questions(FormatNames()), [&](uint32_t key) {
    const auto* entry = Find(FormatNames(), key);
    if (entry != nullptr) std::memcpy(text, entry->value.text, 21);
    benchmark::DoNotOptimize(text);
    return entry != nullptr ? 0 : 1;
  });
}
BENCHMARK(FormatNameLowerBound)->Name("signal_format_name/lower_bound");

void FileTypeOurs(benchmark::State& run) {
  for (const auto& entry : FileTypes())
    Require(entry.value == qlnutilFileTypeString(static_cast<int32_t>(entry.key)), "file type names");
  Ask(run, Questions(FileTypes()),
      [](uint32_t key) { return qlnutilFileTypeString(static_cast<int32_t>(key)); });
}
BENCHMARK(FileTypeOurs)->Name("file_type_name/ours");

void FileTypeLowerBound(benchmark::State& run) {
  Table<const char*> table;
  for (const auto& entry : FileTypes()) table.push_back({entry.key, entry.value.c_str()});
  Ask(run, Questions(table), [&](uint32_t key) {
    const auto* entry = Find(table, key);
    return entry != nullptr ? entry->value : "";
  });
}
BENCHMARK(FileTypeLowerBound)->Name("file_type_name/lower_bound");

void TokenSizeOurs(benchmark::State& run) {
  const Table<uint32_t>& table = Numbers("size_of_token.tsv");
  for (const auto& entry : table) Require(entry.value == vidGetSizeFromToken(entry.key), "sizes of tokens");
  Ask(run, Questions(table), [](uint32_t key) { return vidGetSizeFromToken(key); });
}
BENCHMARK(TokenSizeOurs)->Name("size_of_token/ours");

void TokenSizeLowerBound(benchmark::State& run) {
  const Table<uint32_t>& table = Numbers("size_of_token.tsv");
  Ask(run, Questions(table), [&](uint32_t key) {
    const auto* entry = Find(table, key);
    return entry != nullptr ? entry->value : 0xFFFFFFFFu;
  });
}
BENCHMARK(TokenSizeLowerBound)->Name("size_of_token/lower_bound");

void SizeTokenOurs(benchmark::State& run) {
  const Table<uint32_t>& table = Numbers("token_thresholds.tsv");
  for (const auto& entry : table) Require(entry.value == vidGetTokenFromSize(entry.key), "tokens of sizes");
  Ask(run, Questions(table), [](uint32_t key) { return vidGetTokenFromSize(key); });
}
BENCHMARK(SizeTokenOurs)->Name("token_of_size/ours");

void SizeTokenLowerBound(benchmark::State& run) {
  const Table<uint32_t>& table = Numbers("token_thresholds.tsv");
  Ask(run, Questions(table), [&](uint32_t key) {
    const auto* entry = Find(table, key);
    return entry != nullptr ? entry->value : 0xFFFFFFFFu;
  });
}
BENCHMARK(SizeTokenLowerBound)->Name("token_of_size/lower_bound");

}  // namespace
