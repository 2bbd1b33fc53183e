// Reads the tables under tests/data/format: a line a row, cells separated by tabs, '#' in front of a remark.
#ifndef TESTS_FORMAT_TABLE_FILE_H
#define TESTS_FORMAT_TABLE_FILE_H

#include <string>
#include <vector>

namespace qln::test {

using TableRow = std::vector<std::string>;

// All rows of a table, each of the given number of cells; a file that cannot be read fails the test.
std::vector<TableRow> ReadTable(const std::string& name, size_t cells);

// Splits at blanks.
std::vector<std::string> Words(const std::string& text);

}  // namespace qln::test

#endif
