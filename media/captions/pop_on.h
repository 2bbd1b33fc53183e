// Cues as pop-on captions of line 21 (CTA-608): rows, columns and codes.
#ifndef CAPTIONS_POP_ON_H
#define CAPTIONS_POP_ON_H

#include <cstdint>
#include <string>
#include <vector>

#include "captions/cue_file.h"
#include "captions/line21.h"
#include "captions/line21_look.h"

namespace qlnmedia::captions {

inline constexpr int kLine21Rows = 15;
inline constexpr int kLine21Columns = 32;
inline constexpr int kMostCaptionRows = 4;  // that may be shown at one time

// What is done about cues that cannot be sent as they stand.
struct MakingOptions {
  bool fit = false;            // long lines are broken, late captions shifted, overlapping ones cut
  bool transliterate = false;  // characters that line 21 lacks are replaced
};

// Something about a cue that people must know.
struct CueProblem {
  int line = 0;  // of the file
  std::string what;
  bool solved = false;  // done about as the options say; else captions cannot be made

  friend bool operator==(const CueProblem&, const CueProblem&) = default;
};

// A pair that is sent once, or a control code, which is sent twice in a row.
struct CodeUnit {
  Pair pair = kNullPair;
  bool twice = false;

  friend bool operator==(const CodeUnit&, const CodeUnit&) = default;
};

// A caption that is ready to be sent: what loads it into the memory that is not shown.
struct LoadedCaption {
  int line = 0;  // of the file, with its times
  std::string text;
  int64_t begin = 0;  // milliseconds
  int64_t end = 0;
  std::vector<CodeUnit> load;
};

// One row of a caption.
struct CaptionRow {
  int row = kLine21Rows;  // 1 to 15
  int column = 0;         // of its first character, 0 to 31
  std::u32string text;    // that ends within the row, of characters that line 21 has
  // Of each character; white where it has fewer. It changes behind as many spaces as CodesNeeded says, whose
  // columns the codes take; coloured italics do not begin in column 0.
  std::vector<Look> looks = {};

  friend bool operator==(const CaptionRow&, const CaptionRow&) = default;
};

// How many mid-row codes, and columns, lead from one look to another.
size_t CodesNeeded(const Look& from, const Look& to);

// The codes that load rows: memory cleared, pop-on mode, then each row at its place in its looks.
std::vector<CodeUnit> LoadCodes(const std::vector<CaptionRow>& rows);

// Lays out cues whose times rise; those of one begin and one end become one caption. Without a place of their
// own, lines stand centred at the bottom. What does not fit is told in `problems`: rows of more than 32
// characters and captions of more than four rows, which `fit` breaks, and characters that line 21 lacks; and
// what is lost of looks and places, as solved. A look is that of whole words, since its codes take the place
// of spaces.
std::vector<LoadedCaption> LayOut(const std::vector<Cue>& cues, const MakingOptions& options,
                                  std::vector<CueProblem>* problems);

}  // namespace qlnmedia::captions

#endif
