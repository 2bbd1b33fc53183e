// Colours, columns, and output whose failure is noticed.

#include "output.h"

#include <fmt/format.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "qlnmedia/error.h"

namespace qlnmedia {

const char* Version() { return QLNMEDIA_VERSION; }

Style Style::ForStream(std::FILE* stream) {
  const char* const terminal = std::getenv("TERM");
  const char* const noColour = std::getenv("NO_COLOR");
  const bool plain = (noColour != nullptr && *noColour != 0) || terminal == nullptr ||
                     std::strcmp(terminal, "dumb") == 0 || isatty(fileno(stream)) == 0;
  return Style(!plain);
}

std::string Style::Wrap(const char* code, std::string_view text) const {
  if (!colour_ || text.empty()) return std::string(text);
  return fmt::format("\x1b[{}m{}\x1b[0m", code, text);
}

size_t ColumnsOf(std::string_view text) {
  return static_cast<size_t>(std::count_if(text.begin(), text.end(),
                                           [](char c) { return (static_cast<uint8_t>(c) & 0xC0) != 0x80; }));
}

std::string PadRight(std::string_view text, size_t width) {
  std::string padded(text);
  const size_t columns = ColumnsOf(text);
  if (columns < width) padded.append(width - columns, ' ');
  return padded;
}

std::string PadLeft(std::string_view text, size_t width) {
  const size_t columns = ColumnsOf(text);
  return std::string(columns < width ? width - columns : 0, ' ').append(text);
}

size_t OutputWidth(std::FILE* stream) {
  winsize size{};
  if (ioctl(fileno(stream), TIOCGWINSZ, &size) == 0 && size.ws_col >= 40) return size.ws_col;
  return 100;
}

std::string FormatTable(const std::vector<std::string>& headings,
                        const std::vector<std::vector<std::string>>& rows,
                        const std::vector<bool>& rightAligned, size_t indent, const Style& style) {
  std::vector<size_t> widths;
  for (const std::string& heading : headings) widths.push_back(ColumnsOf(heading));
  for (const auto& row : rows) {
    for (size_t i = 0; i < row.size() && i < widths.size(); ++i)
      widths[i] = std::max(widths[i], ColumnsOf(row[i]));
  }
  const auto line = [&](const std::vector<std::string>& cells) {
    std::string text(indent, ' ');
    for (size_t i = 0; i < cells.size() && i < widths.size(); ++i) {
      if (i != 0) text += "  ";
      text += i < rightAligned.size() && rightAligned[i] ? PadLeft(cells[i], widths[i])
                                                         : PadRight(cells[i], widths[i]);
    }
    text.erase(text.find_last_not_of(' ') + 1);
    return text;
  };
  std::string text = style.Faint(line(headings)) + "\n";
  for (const auto& row : rows) text += line(row) + "\n";
  return text;
}

namespace {
[[noreturn]] void FailOutput() {
  throw Error("standard output", fmt::format("cannot be written: {}", std::strerror(errno)));
}
}  // namespace

void Print(std::string_view text) {
  if (std::fwrite(text.data(), 1, text.size(), stdout) != text.size()) FailOutput();
}

void FlushOutput() {
  if (std::fflush(stdout) != 0 || std::ferror(stdout) != 0) FailOutput();
}

}  // namespace qlnmedia
