// A line 21 caption channel as a decoder shows it (CTA-608): what stands where, in which looks, and since
// when.
#ifndef CAPTIONS_LINE21_SCREEN_H
#define CAPTIONS_LINE21_SCREEN_H

#include <array>
#include <cstdint>
#include <string>
#include <vector>

#include "captions/line21_look.h"
#include "captions/pop_on.h"

namespace qlnmedia::captions {

// Characters of one look.
struct StyledRun {
  std::string text;  // UTF-8
  Look look;

  friend bool operator==(const StyledRun&, const StyledRun&) = default;
};

struct StyledRow {
  int row = 0;     // 1 to 15; 0 where it has no place
  int column = 0;  // of its first character, 0 to 31
  int width = 0;   // columns
  std::vector<StyledRun> runs;

  friend bool operator==(const StyledRow&, const StyledRow&) = default;
};

// How captions come up, which says how they belong together.
enum class CaptionStyle : uint8_t { kPopOn, kRollUp, kPaintOn };

// What stood on the screen from one change to the next. Characters that are added to it are part of it.
struct StyledCaption {
  double begin = 0;  // seconds
  double end = 0;
  CaptionStyle style = CaptionStyle::kPopOn;
  std::vector<StyledRow> rows;  // from the top

  friend bool operator==(const StyledCaption&, const StyledCaption&) = default;
};

// Rows as plain text, apart by '\n', and such text as a caption without places and looks.
std::string TextOf(const StyledCaption& caption);
StyledCaption PlainCaption(double begin, double end, const std::string& text);

// The decoder of one channel.
class Line21Screen {
 public:
  // Takes a pair with its parity, control codes as those of channel 1 of field 1. A byte whose parity is
  // wrong is a solid block, or, in a control code, makes that one be passed over.
  void Add(uint8_t first, uint8_t second, double seconds);
  // Ends what stands on the screen.
  void Finish(double seconds) { Break(seconds); }

  const std::vector<StyledCaption>& captions() const { return captions_; }

 private:
  enum class Mode { kNone, kPopOn, kRollUp, kPaintOn };
  struct Cell {
    char32_t character = 0;  // 0 for none
    Look look;
  };
  using Memory = std::array<std::array<Cell, kLine21Columns>, kLine21Rows>;

  void Control(uint8_t first, uint8_t second, double seconds);
  void Preamble(int row, uint8_t attributes);
  void Miscellaneous(uint8_t code, double seconds);
  void RollUp(int rows, double seconds);
  void CarriageReturn(double seconds);
  void MidRow(uint8_t attributes, double seconds);
  void Put(char32_t character, double seconds);
  void Back();
  // What stands on the screen is a caption that ends, and what will stand there another one.
  void Break(double seconds);
  Memory& Written() { return mode_ == Mode::kPopOn ? hidden_ : shown_; }
  bool IsShownEmpty() const;
  std::vector<StyledRow> Rows() const;

  Mode mode_ = Mode::kNone;
  Memory shown_{};
  Memory hidden_{};
  int row_ = kLine21Rows;
  int column_ = 0;
  int depth_ = 2;  // rows that roll up
  Look look_;
  uint16_t last_ = 0;  // the control code that was taken last, if nothing came behind it
  CaptionStyle style_ = CaptionStyle::kPopOn;  // of what stands on the screen
  double begin_ = 0;
  std::vector<StyledCaption> captions_;
};

}  // namespace qlnmedia::captions

#endif
