// Reading of the test tables.

#include "format/table_file.h"

#include <gtest/gtest.h>

#include <fstream>
#include <sstream>

namespace qln::test {

std::vector<TableRow> ReadTable(const std::string& name, size_t cells) {
  const std::string path = std::string(QLN_TEST_DATA) + "/format/" + name;
  std::ifstream file(path);
  EXPECT_TRUE(file.good()) << path;
  std::vector<TableRow> rows;
  for (std::string line; std::getline(file, line);) {
    if (line.empty() || line[0] == '#') continue;
    TableRow row;
    std::istringstream stream(line);
    for (std::string cell; std::getline(stream, cell, '\t');) row.push_back(cell);
    EXPECT_EQ(row.size(), cells) << line;
    if (row.size() == cells) rows.push_back(row);
  }
  return rows;
}

std::vector<std::string> Words(const std::string& text) {
  std::istringstream stream(text);
  std::vector<std::string> words;
  for (std::string word; stream >> word;) words.push_back(word);
  return words;
}

}  // namespace qln::test
