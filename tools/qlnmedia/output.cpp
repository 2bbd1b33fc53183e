// Colours, columns, and output whose failure is noticed.

#include "output.h"

#include <fmt/format.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "exit_status.h"
#include "memory_watch.h"
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

size_t OutputWidth(std::FILE* stream, size_t elsewhere) {
  winsize size{};
  if (ioctl(fileno(stream), TIOCGWINSZ, &size) == 0 && size.ws_col >= 40) return size.ws_col;
  return elsewhere;
}

std::string WrapText(std::string_view text, size_t width, size_t indent) {
  std::string out;
  size_t column = indent;
  for (size_t at = 0; at < text.size();) {
    const size_t end = std::min(text.find_first_of(" \n", at), text.size());
    const std::string_view word = text.substr(at, end - at);
    const size_t columns = ColumnsOf(word);
    const bool begins = column == indent;
    if (!begins && column + 1 + columns > width) {
      out += "\n" + std::string(indent, ' ');
      column = indent;
    } else if (!begins) {
      out += ' ';
      ++column;
    }
    out += word;
    column += columns;
    if (end < text.size() && text[end] == '\n') {
      out += "\n" + std::string(indent, ' ');
      column = indent;
    }
    at = end + 1;
  }
  return out;
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

// A pipe tells so whenever it is asked, also when the write that met it is long past.
bool IsOutputGone() {
  pollfd one{STDOUT_FILENO, POLLOUT, 0};
  return poll(&one, 1, 0) > 0 && (one.revents & POLLERR) != 0;
}

namespace {

constexpr size_t kMostBuffered = size_t{1} << 16;

// Of one thread: results of several files are printed by the one that gives out the work.
std::string& Buffered() {
  static std::string buffer;
  return buffer;
}

// False where the descriptor does not take all of it; errno says why.
bool WriteAll(int descriptor, std::string_view text) noexcept {
  while (!text.empty()) {
    const ssize_t put = write(descriptor, text.data(), text.size());
    if (put < 0 && errno == EINTR) continue;
    if (put < 0 && errno == EAGAIN) {  // whoever shares the terminal or pipe wants no waiting
      pollfd one{descriptor, POLLOUT, 0};
      poll(&one, 1, -1);
      continue;
    }
    if (put < 0) return false;
    text.remove_prefix(static_cast<size_t>(put));
  }
  return true;
}

[[noreturn]] void FailOutput() {
  const int error = errno;
  Buffered().clear();
  if (error == EPIPE || IsOutputGone()) throw ToolExit{kExitSuccess};
  throw Error("standard output", fmt::format("cannot be written: {}", std::strerror(error)));
}

void Send() {
  RequireMemory();
  if (!WriteAll(STDOUT_FILENO, Buffered())) FailOutput();
  Buffered().clear();
}

}  // namespace

void Print(std::string_view text) {
  Buffered().append(text);
  if (Buffered().size() >= kMostBuffered) Send();
}

void FlushOutput() { Send(); }

void PrintError(std::string_view text) noexcept { static_cast<void>(WriteAll(STDERR_FILENO, text)); }

void PrintFailure(std::string_view line) noexcept {
  try {
    PrintError(fmt::format("{} {}\n", Style::ForStream(stderr).Bad("qlnmedia:"), line));
  } catch (...) {
    PrintError("qlnmedia: ");
    PrintError(line.size() < kMostBuffered ? line : std::string_view(MemoryLine()));
    PrintError("\n");
  }
}

}  // namespace qlnmedia
