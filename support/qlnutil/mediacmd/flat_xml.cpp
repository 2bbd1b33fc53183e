// Takes the text apart where it stands: names are views, values and texts get a zero behind them.

#include "qlnutil/mediacmd/flat_xml.h"

#include <array>
#include <cstdint>
#include <cstring>

#include "qlnutil/mediacmd/command_words.h"

namespace qln {
namespace {

constexpr std::string_view kDeclaration = "<?xml version=\"1.0\" encoding=\"iso-8859-1\" ?>";
constexpr std::string_view kRootNames[] = {"MediaCmd", "ClipInfo"};

constexpr bool IsBlank(char c) { return c == ' ' || c == '\n' || c == '\r' || c == '\t'; }
constexpr bool IsLetter(char c) { return AsciiLower(c) >= 'a' && AsciiLower(c) <= 'z'; }

// A plain byte stands for itself in texts and values alike.
enum Kind : uint8_t { kNameByte = 1, kPlain = 2 };

consteval std::array<uint8_t, 256> MakeKinds() {
  std::array<uint8_t, 256> kinds{};
  for (size_t i = 0; i < kinds.size(); ++i) {
    const char c = static_cast<char>(i);
    if (IsLetter(c) || (c >= '0' && c <= '9') || c == '_') kinds[i] |= kNameByte;
    if (c >= ' ' && c <= '~' && c != '<' && c != '>' && c != '&' && c != '"') kinds[i] |= kPlain;
  }
  return kinds;
}

// The kinds of each byte.
constexpr std::array<uint8_t, 256> kKinds = MakeKinds();

constexpr bool Is(Kind kind, char c) { return (kKinds[static_cast<uint8_t>(c)] & kind) != 0; }

}  // namespace

const char* FlatXml::Element::Search(std::string_view name) const {
  for (size_t i = 0; i < count_; ++i) {
    if (pairs_[i].name == name) return pairs_[i].value;
  }
  return nullptr;
}

const FlatXml::Element* FlatXml::Search(std::string_view name) const {
  for (size_t i = 0; i < elementCount_; ++i) {
    if (elements_[i].name_ == name) return &elements_[i];
  }
  return nullptr;
}

bool FlatXml::Skip(std::string_view text) {
  // The zero at the end differs from every byte of `text`, so that this stops there.
  if (std::strncmp(at_, text.data(), text.size()) != 0) return false;
  at_ += text.size();
  return true;
}

void FlatXml::SkipBlanks() {
  while (IsBlank(*at_)) ++at_;
}

FlatXml::Element::Name FlatXml::ParseName() {
  char* const begin = at_;
  if (!IsLetter(*begin)) return {begin, 0};
  char* end = begin;
  while (Is(kNameByte, *end)) ++end;
  at_ = end;
  return {begin, static_cast<size_t>(end - begin)};
}

bool FlatXml::Parse(char* text) {
  at_ = text;
  elementCount_ = pairCount_ = 0;
  marks_ = 0;
  Skip(kDeclaration);
  SkipBlanks();
  if (!Skip('<')) return false;
  const Element::Name name = ParseName();
  const std::string_view root(name.begin, name.size);
  if ((root != kRootNames[0] && root != kRootNames[1]) || !Skip('>')) return false;
  SkipBlanks();
  if (Skip("<!--") && !(Skip(kCommandComment) && Skip("-->"))) return false;
  for (SkipBlanks(); !Skip('<', '/'); SkipBlanks()) {
    if (!ParseElement()) return false;
  }
  if (!Skip(root) || !Skip('>')) return false;
  SkipBlanks();
  return *at_ == '\0';
}

bool FlatXml::ParseElement() {
  if (elementCount_ == kMostElements || !Skip('<')) return false;
  Element& element = elements_[elementCount_];
  element.name_ = ParseName();
  if (element.name_.size == 0 || !ParsePairs(element)) return false;
  element.text_ = nullptr;
  marks_ |= Element::MarkOf(element.name_.begin, element.name_.size);
  if (!Skip('/', '>') && !(Skip('>') && ParseText(element))) return false;
  ++elementCount_;
  return true;
}

bool FlatXml::ParsePairs(Element& element) {
  element.pairs_ = pairs_ + pairCount_;
  element.count_ = 0;
  element.marks_ = 0;
  while (*at_ == ' ') {
    SkipBlanks();
    if (*at_ == '/' || *at_ == '>') return true;
    const Element::Name name = ParseName();
    if (name.size == 0 || pairCount_ == kMostPairs || element.Attribute({name.begin, name.size}) != nullptr ||
        !Skip('=', '"'))
      return false;
    const char* const value = at_;
    char* end = at_;
    while (Is(kPlain, *end)) ++end;
    if (*end != '"') return false;
    *end = '\0';
    at_ = end + 1;
    pairs_[pairCount_++] = {name, value};
    ++element.count_;
    element.marks_ |= Element::MarkOf(name.begin, name.size);
  }
  return true;
}

// Up to the end tag. Blanks at the ends and in rows would be condensed.
bool FlatXml::ParseText(Element& element) {
  char* const begin = at_;
  char* end = begin;
  for (; Is(kPlain, *end) || *end == '"'; ++end) {
    if (*end == ' ' && (end == begin || end[1] == ' ' || end[1] == '<')) return false;
  }
  at_ = end;
  if (!Skip('<', '/') || !Skip({element.name_.begin, element.name_.size}) || !Skip('>')) return false;
  *end = '\0';
  if (end != begin) element.text_ = begin;
  return true;
}

}  // namespace qln
