// Tables of the format family, out of the files of the tests.
#ifndef BENCH_FORMAT_TABLES_H
#define BENCH_FORMAT_TABLES_H

#include <algorithm>
#include <cstdint>
#include <fstream>
#include <string>
#include <utility>
#include <vector>

#include "bench_support.h"

namespace qln::bench {

// Rows of a file of the tests: a key and a text, separated by a tab.
inline std::vector<std::pair<std::string, std::string>> ReadRows(const char* name) {
  std::ifstream file(std::string(QLN_TEST_DATA) + "/format/" + name);
  Require(file.good(), name);
  std::vector<std::pair<std::string, std::string>> rows;
  for (std::string line; std::getline(file, line);) {
    const size_t tab = line.find('\t');
    if (line[0] != '#' && tab != std::string::npos)
      rows.emplace_back(line.substr(0, tab), line.substr(tab + 1));
  }
  return rows;
}

template <class Value>
struct Entry {
  uint32_t key;
  Value value;
};

template <class Value>
using Table = std::vector<Entry<Value>>;

template <class Value>
Table<Value> Sorted(Table<Value> table) {
  std::sort(table.begin(), table.end(), [](const auto& a, const auto& b) { return a.key < b.key; });
  return table;
}

template <class Value>
const Entry<Value>* Find(const Table<Value>& table, uint32_t key) {
  const auto found = std::lower_bound(table.begin(), table.end(), key,
                                      [](const Entry<Value>& entry, uint32_t k) { return entry.key < k; });
  return found != table.end() && found->key == key ? &*found : nullptr;
}

// Keys and numbers of a file; kept.
inline const Table<uint32_t>& Numbers(const char* file) {
  static std::vector<std::pair<std::string, Table<uint32_t>>> tables;
  for (const auto& [name, table] : tables) {
    if (name == file) return table;
  }
  Table<uint32_t> table;
  for (const auto& [key, value] : ReadRows(file))
    table.push_back({static_cast<uint32_t>(std::stoul(key)), static_cast<uint32_t>(std::stoul(value))});
  tables.reserve(8);
  return tables.emplace_back(file, Sorted(table)).second;
}

// How many keys or rasters a benchmark asks for in a round.
inline constexpr size_t kQuestions = 4096;

}  // namespace qln::bench

#endif
