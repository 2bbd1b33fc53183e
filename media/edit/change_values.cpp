// The forms in which people write what a stream shall say of its pictures, and which units shall go.

#include <algorithm>
#include <array>
#include <charconv>
#include <numeric>
#include <string_view>

#include "base/error.h"
#include "base/numbers.h"
#include "qlnmedia/stream_values.h"
#include "units/unit_types.h"

namespace qlnmedia {

namespace {

constexpr int kLastMessageType = 255;  // of those that have a name

// All of a text as a number.
template <class Number>
bool IsNumber(std::string_view text, Number& number, int base = 10) {
  const char* const end = text.data() + text.size();
  const auto [stop, error] = std::from_chars(text.data(), end, number, base);
  return error == std::errc() && stop == end;
}

std::vector<std::string_view> Pieces(std::string_view text, char between) {
  std::vector<std::string_view> pieces;
  for (size_t at = 0;;) {
    const size_t end = text.find(between, at);
    pieces.push_back(text.substr(at, end - at));
    if (end == std::string_view::npos) return pieces;
    at = end + 1;
  }
}

// A name as it is written and as people type it are the same in small letters, with "-" for other characters.
std::string Plain(std::string_view name) {
  std::string plain;
  for (const char c : name) {
    const bool letter = (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9');
    if (c >= 'A' && c <= 'Z') {
      plain += static_cast<char>(c - 'A' + 'a');
    } else if (letter) {
      plain += c;
    } else if (!plain.empty() && plain.back() != '-') {
      plain += '-';
    }
  }
  while (plain.ends_with('-')) plain.pop_back();
  return plain;
}

int MessageOf(std::string_view word) {
  int type = 0;
  if (IsNumber(word, type) && type >= 0) return type;
  for (type = 0; type <= kLastMessageType; ++type) {
    const std::string name = SeiTypeName(type);
    if (!name.starts_with("type ") && Plain(name) == Plain(word)) return type;
  }
  throw Error("--remove sei:" + std::string(word), "is no kind of SEI message",
              "name it as inspect does, as sei:picture-timing, or by its number");
}

T35Provider ProviderOf(const std::string& word) {
  const std::vector<std::string_view> pieces = Pieces(word, ':');
  T35Provider provider;
  uint16_t code = 0;
  const bool good = pieces.size() <= 3 && pieces.size() >= 2 && pieces[1].size() == 2 &&
                    IsNumber(pieces[1], provider.country, 16) &&
                    (pieces.size() == 2 || (pieces[2].size() == 4 && IsNumber(pieces[2], code, 16)));
  if (!good)
    throw Error("--remove " + word, "names no provider",
                "write country and provider, as t35:B5:003C, or t35:B5");
  if (pieces.size() == 3) provider.provider = code;
  return provider;
}

}  // namespace

SampleAspect ParseSampleAspect(const std::string& text) {
  const std::vector<std::string_view> pieces = Pieces(text, ':');
  uint16_t width = 0;
  uint16_t height = 0;
  const bool good = pieces.size() == 2 && IsNumber(pieces[0], width) && IsNumber(pieces[1], height) &&
                    (width == 0) == (height == 0);
  if (!good)
    throw Error("--sar " + text, "is no sample aspect ratio", "write W:H, as 16:11, or 0:0 for none");
  const auto common = std::max<uint32_t>(std::gcd(uint32_t{width}, uint32_t{height}), 1);
  return {width / common, height / common};
}

uint32_t ParseLevel(const std::string& text) {
  if (text == "1b") return 9;
  const std::vector<std::string_view> pieces = Pieces(text, '.');
  uint8_t whole = 0;
  uint8_t tenth = 0;
  const bool good = pieces.size() <= 2 && pieces[0].size() == 1 && IsNumber(pieces[0], whole) && whole > 0 &&
                    (pieces.size() == 1 || (pieces[1].size() == 1 && IsNumber(pieces[1], tenth)));
  if (!good) throw Error("--level " + text, "is no level", "write 4, 4.1 or 1b");
  return uint32_t{whole} * 10 + tenth;
}

bool ParseTier(const std::string& text) {
  if (text != "high" && text != "main")
    throw Error("--tier " + text, "is no tier", "there are main and high");
  return text == "high";
}

VuiTiming ParseVuiTiming(const std::string& text) {
  constexpr std::string_view kFixed = ":fixed";
  const bool fixed = text.ends_with(kFixed);
  const std::optional<RationalRate> rate =
      ParseRate(fixed ? text.substr(0, text.size() - kFixed.size()) : text);
  if (!rate)
    throw Error("--vui-timing " + text, "is no rate",
                "write 25, 29.97 or 30000/1001, and :fixed behind it for a fixed frame rate");
  VuiTiming timing{rate->rate, rate->scale, {}};
  // What people write for 24000/1001 and its multiples.
  for (const uint32_t frames : {24u, 30u, 60u, 120u}) {
    const double exact = frames * 1000 / 1001.0;
    const double written = static_cast<double>(rate->rate) / rate->scale;
    if (written > exact * 0.9998 && written < exact * 1.0002) timing = {frames * 1000, 1001, {}};
  }
  if (fixed) timing.fixed = true;
  return timing;
}

uint32_t ParseChromaLocation(const std::string& text) {
  uint32_t location = 0;
  if (!IsNumber(std::string_view(text), location) || location > 5)
    throw Error("--chroma-location " + text, "is no chroma sample location", "there are 0 to 5");
  return location;
}

Cropping ParseCropping(const std::string& text) {
  const std::vector<std::string_view> pieces = Pieces(text, ',');
  std::array<uint32_t, 4> sides{};
  bool good = pieces.size() == sides.size();
  for (size_t i = 0; good && i < sides.size(); ++i) good = IsNumber(pieces[i], sides[i]);
  if (!good) throw Error("--crop " + text, "is no cropping", "write LEFT,RIGHT,TOP,BOTTOM in luma samples");
  return {sides[0], sides[1], sides[2], sides[3]};
}

UnitRemoval ParseRemoval(const std::string& text) {
  UnitRemoval removal;
  for (const std::string_view piece : Pieces(text, ',')) {
    const std::string word(piece);
    if (word == "delimiters") {
      removal.delimiters = true;
    } else if (word == "filler") {
      removal.filler = true;
    } else if (word == "unspecified") {
      removal.unspecified = true;
    } else if (word.starts_with("sei:")) {
      removal.messages.push_back(MessageOf(piece.substr(4)));
    } else if (word.starts_with("t35:")) {
      removal.providers.push_back(ProviderOf(word));
    } else {
      throw Error("--remove " + word, "names no units",
                  "there are delimiters, filler, unspecified, sei:NUMBER or sei:NAME, t35:COUNTRY:PROVIDER");
    }
  }
  return removal;
}

}  // namespace qlnmedia
