// Text for people: colours on a terminal only, aligned columns, and output whose failure is noticed.
#ifndef TOOLS_QLNMEDIA_OUTPUT_H
#define TOOLS_QLNMEDIA_OUTPUT_H

#include <cstddef>
#include <cstdio>
#include <string>
#include <string_view>
#include <vector>

namespace qlnmedia {

// The version of this build, as "1.0.0".
const char* Version();

// Marks up pieces of text. Colours are used when the stream is a terminal that has them and the environment
// does not hold NO_COLOR; otherwise every text comes back as it is.
class Style {
 public:
  explicit Style(bool colour = false) : colour_(colour) {}
  static Style ForStream(std::FILE* stream);

  bool colour() const { return colour_; }
  std::string Heading(std::string_view text) const { return Wrap("1;36", text); }
  std::string Name(std::string_view text) const { return Wrap("36", text); }
  std::string Strong(std::string_view text) const { return Wrap("1", text); }
  std::string Faint(std::string_view text) const { return Wrap("2", text); }
  std::string Good(std::string_view text) const { return Wrap("32", text); }
  std::string Warning(std::string_view text) const { return Wrap("33", text); }
  std::string Bad(std::string_view text) const { return Wrap("1;31", text); }

 private:
  std::string Wrap(const char* code, std::string_view text) const;
  bool colour_;
};

// `text` filled up with blanks to `width` columns; left alone when it is longer. Bytes that continue a UTF-8
// character take no column.
std::string PadRight(std::string_view text, size_t width);
std::string PadLeft(std::string_view text, size_t width);
size_t ColumnsOf(std::string_view text);

// Columns on a terminal: its width, or `elsewhere` where there is none to ask.
size_t OutputWidth(std::FILE* stream, size_t elsewhere = 100);

// `text` broken at blanks into lines that end at column `width` at the latest, as far as its words allow it.
// The first line begins at column `indent`, the others are indented to there.
std::string WrapText(std::string_view text, size_t width, size_t indent);

// Rows of cells under a heading row, each column as wide as its widest cell; numbers (columns named in
// `rightAligned`) flush right. Every line begins with `indent` blanks.
std::string FormatTable(const std::vector<std::string>& headings,
                        const std::vector<std::vector<std::string>>& rows,
                        const std::vector<bool>& rightAligned, size_t indent, const Style& style);

// Writes to standard output, through a buffer. Throws Error when it does not take the text, and ToolExit of
// success where it is a pipe whose reader has gone: that one has what it wanted.
void Print(std::string_view text);

// Sends out what is buffered; throws as Print does, and std::bad_alloc where memory ran out in this thread.
void FlushOutput();

// Whether standard output is a pipe whose reader has gone.
bool IsOutputGone();

// Text for standard error. Where that does not take it, nobody is left to be told.
void PrintError(std::string_view text) noexcept;

// One line about a failure on standard error; that there is no memory, where there is none for the line.
void PrintFailure(std::string_view line) noexcept;

}  // namespace qlnmedia

#endif
