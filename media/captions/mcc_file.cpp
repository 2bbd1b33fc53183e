// Reading and writing .mcc text, shorthand included.

#include "captions/mcc_file.h"

#include <algorithm>
#include <charconv>
#include <cstring>

#include "captions/text_lines.h"

namespace qlnmedia::captions {
namespace {

constexpr std::string_view kFormatKey = "File Format";
constexpr std::string_view kRateKey = "Time Code Rate";
constexpr std::string_view kFormats[] = {"MacCaption_MCC V1.0", "MacCaption_MCC V2.0"};

// Bytes that one character stands for.
struct Shorthand {
  char letter;
  int count;
  uint8_t bytes[4];
};

// Runs of FA 00 00 come first; these are tried in this order.
constexpr Shorthand kShorthand[] = {
    {'U', 4, {0xE1, 0, 0, 0}},
    {'P', 3, {0xFB, 0x80, 0x80}},
    {'Q', 3, {0xFC, 0x80, 0x80}},
    {'R', 3, {0xFD, 0x80, 0x80}},
    {'S', 2, {0x96, 0x69}},
    {'T', 2, {0x61, 0x01}},
    {'Z', 1, {0}},
};
constexpr int kMostPadding = 9;
constexpr uint8_t kPadding[] = {0xFA, 0, 0};

constexpr std::string_view kComment =
    "///////////////////////////////////////////////////////////////////////////////////\n"
    "//\n"
    "// Ancillary data packets with closed captions, one a line\n"
    "//\n"
    "// General file format:\n"
    "//   HH:MM:SS:FF(tab)[Hexadecimal ANC data in groups of 2 characters]\n"
    "//     Hexadecimal data starts with the Ancillary Data Packet DID (Data ID)\n"
    "//       and concludes with the Check Sum following the User Data Words.\n"
    "//     Each time code line must contain at most one complete ancillary data packet.\n"
    "//     To transfer additional ANC Data successive lines may contain identical time code.\n"
    "//\n"
    "//   ANC data bytes may be represented by one ASCII character according to the following schema:\n"
    "//     G  FAh 00h 00h\n"
    "//     H  2 x (FAh 00h 00h)\n"
    "//     I  3 x (FAh 00h 00h)\n"
    "//     J  4 x (FAh 00h 00h)\n"
    "//     K  5 x (FAh 00h 00h)\n"
    "//     L  6 x (FAh 00h 00h)\n"
    "//     M  7 x (FAh 00h 00h)\n"
    "//     N  8 x (FAh 00h 00h)\n"
    "//     O  9 x (FAh 00h 00h)\n"
    "//     P  FBh 80h 80h\n"
    "//     Q  FCh 80h 80h\n"
    "//     R  FDh 80h 80h\n"
    "//     S  96h 69h\n"
    "//     T  61h 01h\n"
    "//     U  E1h 00h 00h 00h\n"
    "//     Z  00h\n"
    "//\n"
    "///////////////////////////////////////////////////////////////////////////////////\n";

bool SetRate(std::string_view text, MccFile* file) {
  file->dropFrame = text.size() > 2 && text.substr(text.size() - 2) == "DF";
  if (file->dropFrame) text.remove_suffix(2);
  for (const int nominal : {24, 25, 30, 50, 60}) {
    if (text != std::to_string(nominal)) continue;
    file->nominal = nominal;
    return !file->dropFrame || nominal == 30 || nominal == 60;
  }
  return false;
}

bool ParseNumber(std::string_view text, int* number) {
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), *number);
  return error == std::errc() && end == text.data() + text.size() && *number >= 0;
}

// "HH:MM:SS:FF", with ".FIELD" and ",LINE" behind it or not.
bool ParsePlace(std::string_view text, MccLine* line) {
  bool dropMark = false;
  const std::optional<Timecode> at = ParseTimecode(text.substr(0, 11), &dropMark);
  if (!at) return false;
  line->at = *at;
  text.remove_prefix(11);
  if (!text.empty() && text[0] == '.') {
    const size_t end = std::min(text.find(','), text.size());
    if (!ParseNumber(text.substr(1, end - 1), &line->field)) return false;
    text.remove_prefix(end);
  }
  if (!text.empty() && text[0] == ',') {
    if (!ParseNumber(text.substr(1), &line->line)) return false;
    text = {};
  }
  return text.empty();
}

// The digits of the packet that was met last, until it is clear that no line goes on with them.
struct PendingPacket {
  bool open = false;
  int number = 0;  // of its line
  std::string text;

  // Gives the last line of `file` its packet; false for text that is none.
  bool Close(MccFile* file) {
    if (!open) return true;
    open = false;
    std::optional<Bytes> anc = ExpandAnc(text);
    if (!anc) return false;
    file->lines.back().anc = std::move(*anc);
    return true;
  }
};

// What a line holds that goes on with the packet of the line before it.
bool IsDigitsOnly(std::string_view line) {
  return std::all_of(line.begin(), line.end(),
                     [](char c) { return HexDigit(c) >= 0 || (c >= 'G' && c <= 'Z'); });
}

bool StartsWith(const Bytes& bytes, size_t at, const uint8_t* piece, size_t size) {
  return bytes.size() - at >= size && std::memcmp(bytes.data() + at, piece, size) == 0;
}

}  // namespace

std::optional<Bytes> ExpandAnc(std::string_view text) {
  Bytes anc;
  for (size_t i = 0; i < text.size(); ++i) {
    const char c = text[i];
    if (c >= 'G' && c <= 'O') {
      for (int n = 0; n <= c - 'G'; ++n) anc.insert(anc.end(), std::begin(kPadding), std::end(kPadding));
      continue;
    }
    const auto* const entry = std::find_if(std::begin(kShorthand), std::end(kShorthand),
                                           [c](const Shorthand& s) { return s.letter == c; });
    if (entry != std::end(kShorthand)) {
      anc.insert(anc.end(), entry->bytes, entry->bytes + entry->count);
      continue;
    }
    const int high = HexDigit(c);
    const int low = i + 1 < text.size() ? HexDigit(text[i + 1]) : -1;
    if (high < 0 || low < 0) return std::nullopt;
    anc.push_back(static_cast<uint8_t>(high << 4 | low));
    ++i;
  }
  return anc;
}

std::string ShortenAnc(const Bytes& anc) {
  constexpr const char* kDigits = "0123456789ABCDEF";
  std::string text;
  for (size_t i = 0; i < anc.size();) {
    int padding = 0;
    while (padding < kMostPadding && StartsWith(anc, i + 3 * static_cast<size_t>(padding), kPadding, 3))
      ++padding;
    if (padding != 0) {
      text += static_cast<char>('G' + padding - 1);
      i += 3 * static_cast<size_t>(padding);
      continue;
    }
    const auto* const entry = std::find_if(
        std::begin(kShorthand), std::end(kShorthand),
        [&](const Shorthand& s) { return StartsWith(anc, i, s.bytes, static_cast<size_t>(s.count)); });
    if (entry != std::end(kShorthand)) {
      text += entry->letter;
      i += static_cast<size_t>(entry->count);
      continue;
    }
    text += kDigits[anc[i] >> 4];
    text += kDigits[anc[i] & 15];
    ++i;
  }
  return text;
}

std::optional<MccFile> ReadMcc(std::string_view text, std::string* reason, std::vector<int>* numbers) {
  TextLines lines(text);
  std::string_view line;
  const auto refuse = [&](const char* what) {
    *reason = lines.Place(what);
    return std::nullopt;
  };
  MccFile file;
  file.version = 0;
  PendingPacket pending;
  const auto close = [&] {
    if (pending.Close(&file)) return true;
    *reason = TextLines::PlaceOf(pending.number, "not hexadecimal digits and shorthand");
    return false;
  };
  bool rateTold = false;
  int64_t last = -1;
  while (lines.Next(&line)) {
    if (TextLines::SaysNothing(line)) continue;
    if (pending.open && IsDigitsOnly(line)) {
      pending.text += line;
      continue;
    }
    if (!close()) return std::nullopt;
    const size_t equals = line.find('=');
    if (equals != std::string_view::npos) {
      const std::string_view key = TextLines::Trimmed(line.substr(0, equals));
      const std::string_view value = TextLines::Trimmed(line.substr(equals + 1));
      if (key == kFormatKey) {
        if (value == kFormats[0]) file.version = 1;
        if (value == kFormats[1]) file.version = 2;
        if (file.version == 0) return refuse("a format that is not known");
      } else if (key == kRateKey) {
        if (!file.lines.empty()) return refuse("a rate behind packets");
        if (!SetRate(value, &file)) return refuse("a rate that is not known");
        rateTold = true;
      } else {
        file.keys.emplace_back(key, value);
      }
      continue;
    }
    if (file.version == 0) return refuse("not the heading of a MacCaption file");
    if (!rateTold) return refuse("a packet in front of the rate");
    const size_t end = line.find_first_of(" \t");
    MccLine entry;
    if (line.size() < 11 || !ParsePlace(line.substr(0, end), &entry)) return refuse("no timecode");
    const std::optional<int64_t> picture = PictureOf(entry.at, file.nominal, file.dropFrame);
    if (!picture) return refuse("a timecode that does not exist");
    if (*picture < last) return refuse("the time goes back");
    last = *picture;
    pending.open = true;
    pending.text = end == std::string_view::npos ? std::string_view() : TextLines::Trimmed(line.substr(end));
    pending.number = lines.number();
    file.lines.push_back(entry);
    if (numbers != nullptr) numbers->push_back(lines.number());
  }
  if (!close()) return std::nullopt;
  if (file.version == 0) return refuse("not the heading of a MacCaption file");
  return file;
}

std::string WriteMcc(const MccFile& file) {
  std::string text(kFormatKey);
  text += "=" + std::string(kFormats[file.version == 2 ? 1 : 0]) + "\n\n" + std::string(kComment) + "\n";
  for (const auto& [key, value] : file.keys) text += key + "=" + value + "\n";
  text += std::string(kRateKey) + "=" + std::to_string(file.nominal) + (file.dropFrame ? "DF" : "") + "\n\n";
  for (const MccLine& line : file.lines) text += WriteMccLine(line);
  return text;
}

std::string WriteMccLine(const MccLine& line) {
  std::string text = FormatTimecode(line.at, false);
  if (line.field >= 0) text += "." + std::to_string(line.field);
  if (line.line >= 0) text += "," + std::to_string(line.line);
  return text + "\t" + ShortenAnc(line.anc) + "\n";
}

}  // namespace qlnmedia::captions
