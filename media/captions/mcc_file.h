// MacCaption files (.mcc): one ANC packet with captions a line, by timecode.
#ifndef CAPTIONS_MCC_FILE_H
#define CAPTIONS_MCC_FILE_H

#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "captions/cdp.h"
#include "timing/frame_rate.h"

namespace qlnmedia::captions {

// An ANC packet from its DID to its checksum, at a timecode. Version 2 may say in which field and line it
// stands.
struct MccLine {
  Timecode at;
  int field = -1;  // -1: not told
  int line = -1;
  Bytes anc;

  friend bool operator==(const MccLine&, const MccLine&) = default;
};

struct MccFile {
  int version = 1;         // 1 or 2
  int nominal = 30;        // pictures that timecode counts in a second: 24, 25, 30, 50 or 60
  bool dropFrame = false;  // at 30, and at 60 in version 2
  // Keys with their values ("UUID", "Creation Program", ...) in order, but for the format and the rate.
  std::vector<std::pair<std::string, std::string>> keys;
  std::vector<MccLine> lines;

  friend bool operator==(const MccFile&, const MccFile&) = default;
};

// Reads a file. Comment lines are passed over; shorthand characters stand for bytes as ExpandAnc has them. A
// packet that was broken over several lines, as by a mail program, is put together again. Nothing, with a
// reason that names the line, for any other text and for timecodes that go back or do not exist at the file's
// rate. Packets are not looked into. `numbers`, if given, takes the number of the text's line in which each
// packet stands.
std::optional<MccFile> ReadMcc(std::string_view text, std::string* reason,
                               std::vector<int>* numbers = nullptr);

// The text of a file, with the comment that the format asks for.
std::string WriteMcc(const MccFile& file);

// One line of such a text, with its line end.
std::string WriteMccLine(const MccLine& line);

// Hexadecimal digits with the shorthand: G to O are 1 to 9 times FA 00 00; P, Q and R are FB, FC and FD
// followed by 80 80; S is 96 69, T 61 01, U E1 00 00 00, Z 00. Nothing for any other character, or a digit
// without its fellow.
std::optional<Bytes> ExpandAnc(std::string_view text);

// The shortest text by that shorthand, taken from front to back.
std::string ShortenAnc(const Bytes& anc);

}  // namespace qlnmedia::captions

#endif
