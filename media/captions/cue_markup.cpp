// Takes tags, entities and commands out of lines.

#include "captions/cue_markup.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstdint>
#include <optional>
#include <utility>

#include "base/text.h"
#include "captions/line21_characters.h"

namespace qlnmedia::captions {

namespace {

using View = std::u32string_view;

constexpr size_t kMostOpen = 64;  // tags inside each other

// What an entity of .vtt stands for; 0 for a text that is none.
char32_t EntityOf(View name) {
  constexpr std::pair<View, char32_t> kEntities[] = {
      {U"amp", U'&'},    {U"lt", U'<'},    {U"gt", U'>'},    {U"quot", U'"'},
      {U"nbsp", 0x00A0}, {U"lrm", 0x200E}, {U"rlm", 0x200F}, {U"apos", U'\''},
  };
  for (const auto& [known, character] : kEntities) {
    if (name == known) return character;
  }
  return 0;
}

std::u32string Lower(View text) {
  std::u32string lower(text);
  for (char32_t& c : lower) c = c >= U'A' && c <= U'Z' ? c + 32 : c;
  return lower;
}

// Whether `tag`, what stands between < and >, is one that .srt files have; other brackets are text.
bool IsSrtTag(View tag) {
  if (!tag.empty() && tag.front() == U'/') tag.remove_prefix(1);
  const std::u32string name = Lower(tag.substr(0, tag.find(U' ')));
  for (const View known : {U"i", U"b", U"u", U"s", U"font"}) {
    if (name == known) return true;
  }
  return false;
}

struct Named {
  View name;
  uint32_t rgb;
};
// Of CSS: those that WebVTT has as classes, and their other names.
constexpr Named kColours[] = {
    {U"white", 0xFFFFFF},   {U"lime", 0x00FF00},    {U"green", 0x008000},  {U"blue", 0x0000FF},
    {U"cyan", 0x00FFFF},    {U"aqua", 0x00FFFF},    {U"red", 0xFF0000},    {U"yellow", 0xFFFF00},
    {U"magenta", 0xFF00FF}, {U"fuchsia", 0xFF00FF}, {U"black", 0x000000},  {U"orange", 0xFFA500},
    {U"gray", 0x808080},    {U"grey", 0x808080},    {U"silver", 0xC0C0C0}, {U"navy", 0x000080},
    {U"purple", 0x800080},  {U"teal", 0x008080},    {U"olive", 0x808000},  {U"maroon", 0x800000},
};

std::optional<uint32_t> RgbOf(View value) {
  if (value.empty()) return {};
  const std::u32string name = Lower(value);
  for (const Named& known : kColours) {
    if (known.name == name) return known.rgb;
  }
  const std::u32string digits = name.front() == U'#' ? name.substr(1) : name;
  if (digits.size() != 3 && digits.size() != 6) return {};
  uint32_t rgb = 0;
  for (const char32_t c : digits) {
    const bool letter = c >= U'a' && c <= U'f';
    if (!letter && (c < U'0' || c > U'9')) return {};
    const auto digit = static_cast<uint32_t>(letter ? c - U'a' + 10 : c - U'0');
    rgb = digits.size() == 3 ? rgb << 8 | digit * 0x11 : rgb << 4 | digit;
  }
  return rgb;
}

const char* NameOf(Line21Colour colour) {
  constexpr const char* kNames[] = {"white", "green", "blue", "cyan", "red", "yellow", "magenta"};
  return kNames[static_cast<size_t>(colour)];
}

// The nearest of the seven colours: each of red, green and blue is there or not.
Line21Colour NearestOf(uint32_t rgb) {
  constexpr uint32_t kHalf = 0x80;
  const bool red = (rgb >> 16 & 0xFF) >= kHalf, green = (rgb >> 8 & 0xFF) >= kHalf,
             blue = (rgb & 0xFF) >= kHalf;
  if (red == green && green == blue) return Line21Colour::kWhite;
  if (red) return green ? Line21Colour::kYellow : blue ? Line21Colour::kMagenta : Line21Colour::kRed;
  if (green) return blue ? Line21Colour::kCyan : Line21Colour::kGreen;
  return Line21Colour::kBlue;
}

// Those that are each fully there, and the green of CSS, which line 21 has as its own.
bool IsExact(uint32_t rgb) {
  if (rgb == 0x008000) return true;
  for (const int shift : {0, 8, 16}) {
    const uint32_t part = rgb >> shift & 0xFF;
    if (part != 0 && part != 0xFF) return false;
  }
  return rgb != 0;
}

}  // namespace

StyledText CueMarkup::Take(View line) {
  StyledText text;
  std::u32string gone;  // what no longer follows
  for (size_t i = 0; i < line.size(); ++i) {
    const char32_t close = line[i] == U'<' ? U'>' : line[i] == U'{' ? U'}' : line[i] == U'&' ? U';' : 0;
    const bool sought = close != 0 && gone.find(close) == View::npos;
    const size_t end = sought ? line.find(close, i) : View::npos;
    if (sought && end == View::npos) gone += close;
    const View inside = end == View::npos ? View() : line.substr(i + 1, end - i - 1);
    if (line[i] == U'<' && vtt_ && end == View::npos) break;  // a tag that breaks off
    const bool tag = line[i] == U'<' && end != View::npos && (vtt_ || IsSrtTag(inside));
    const bool command = line[i] == U'{' && !vtt_ && !inside.empty() && inside.front() == U'\\';
    const char32_t entity = line[i] == U'&' && vtt_ ? EntityOf(inside) : 0;
    if (!tag && !command && entity == 0) {
      text.Add(line[i], look_);
      continue;
    }
    if (entity != 0) text.Add(entity, look_);
    if (tag) Tag(inside);
    if (command) Command(inside.substr(1));
    i = end;
  }
  return text;
}

std::vector<std::string> CueMarkup::TakeLosses() { return std::exchange(losses_, {}); }

void CueMarkup::Tag(View tag) {
  if (tag.empty() || (tag.front() >= U'0' && tag.front() <= U'9')) return;  // a time of karaoke
  const bool end = tag.front() == U'/';
  if (end) tag.remove_prefix(1);
  const size_t name = std::min(tag.find_first_of(U" \t.\n"), tag.size());
  if (end) return End(Lower(tag.substr(0, name)));
  Start(Lower(tag.substr(0, name)), tag.substr(name));
}

void CueMarkup::Start(View name, View rest) {
  if (open_.size() == kMostOpen) return;
  open_.push_back({std::u32string(name), look_});
  if (name == U"i") look_.italic = true;
  if (name == U"u") look_.underline = true;
  if (name == U"b") Lose("bold is left out");
  if (name == U"s") Lose("a line through the text is left out");
  if (name == U"ruby") Lose("ruby text stands in line");
  if (name == U"font") Font(rest);
  if (vtt_ && !rest.empty() && rest.front() == U'.')
    Classes(rest.substr(1, std::min(rest.find_first_of(U" \t"), rest.size()) - 1));
}

// A tag ends with those that were opened inside it and never ended.
void CueMarkup::End(View name) {
  for (size_t i = open_.size(); i-- > 0;) {
    if (open_[i].name != name) continue;
    look_ = open_[i].before;
    open_.resize(i);
    return;
  }
}

void CueMarkup::Classes(View list) {
  while (!list.empty()) {
    const size_t end = std::min(list.find(U'.'), list.size());
    const View name = list.substr(0, end);
    list.remove_prefix(std::min(end + 1, list.size()));
    if (name.substr(0, 3) == U"bg_") {
      Lose("the colour behind the text is left out");
      continue;
    }
    // The eight that WebVTT names; others are of style sheets.
    for (const View known : {U"white", U"lime", U"cyan", U"red", U"yellow", U"magenta", U"blue", U"black"}) {
      if (name == known) Colour(name);
    }
  }
}

void CueMarkup::Font(View attributes) {
  const std::u32string lower = Lower(attributes);
  if (lower.find(U"face=") != View::npos || lower.find(U"size=") != View::npos) Lose("the font is left out");
  const size_t at = lower.find(U"color=");
  if (at == View::npos) return;
  View value = View(lower).substr(at + 6);
  const bool quoted = !value.empty() && (value.front() == U'"' || value.front() == U'\'');
  if (quoted) {
    const char32_t quote = value.front();
    value.remove_prefix(1);
    value = value.substr(0, value.find(quote));
  } else {
    value = value.substr(0, value.find_first_of(U" \t"));
  }
  Colour(value);
}

void CueMarkup::Colour(View value) {
  const std::optional<uint32_t> rgb = RgbOf(value);
  const std::string said = Printable(ToUtf8(value));
  if (!rgb) return Lose(fmt::format("\"{}\" is no colour", said));
  look_.colour = NearestOf(*rgb);
  if (!IsExact(*rgb)) Lose(fmt::format("the colour {} becomes {}", said, NameOf(look_.colour)));
}

// {\an8}, {\i1} and their like; several may follow each other.
void CueMarkup::Command(View command) {
  while (!command.empty()) {
    const size_t end = std::min(command.find(U'\\'), command.size());
    const View one = command.substr(0, end);
    command.remove_prefix(std::min(end + 1, command.size()));
    const bool on = one.size() == 2 && one[1] == U'1', off = one.size() == 2 && one[1] == U'0';
    if (one.size() == 3 && one.substr(0, 2) == U"an" && one[2] >= U'1' && one[2] <= U'9') {
      if (place_ == 0) place_ = static_cast<int>(one[2] - U'0');
    } else if (one.substr(0, 1) == U"i" && (on || off)) {
      look_.italic = on;
    } else if (one.substr(0, 1) == U"u" && (on || off)) {
      look_.underline = on;
    } else {
      Lose(fmt::format("the command \"{}\" is left out", Printable(ToUtf8(one))));
    }
  }
}

void CueMarkup::Lose(const std::string& what) {
  if (std::find(told_.begin(), told_.end(), what) != told_.end()) return;
  told_.push_back(what);
  losses_.push_back(what);
}

}  // namespace qlnmedia::captions
