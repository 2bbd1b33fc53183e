// Takes the text apart where it stands: names are views, values and texts get a zero behind them.

#include "qlnutil/mediacmd/flat_xml.h"

#include <cstring>

#include "qlnutil/mediacmd/command_words.h"

namespace qln {
namespace {

constexpr std::string_view kDeclaration = "<?xml version=\"1.0\" encoding=\"iso-8859-1\" ?>";
constexpr std::string_view kRootNames[] = {"MediaCmd", "ClipInfo"};

constexpr bool IsBlank(char c) { return c == ' ' || c == '\n' || c == '\r' || c == '\t'; }
constexpr bool IsLetter(char c) { return AsciiLower(c) >= 'a' && AsciiLower(c) <= 'z'; }
constexpr bool IsNameByte(char c) { return IsLetter(c) || (c >= '0' && c <= '9') || c == '_'; }
// What stands for itself in texts and values alike.
constexpr bool IsPlain(char c) {
  return c >= ' ' && c <= '~' && c != '<' && c != '>' && c != '&' && c != '"';
}

}  // namespace

const char* FlatXml::Element::Attribute(std::string_view name) const {
  for (size_t i = 0; i < count_; ++i) {
    if (pairs_[i].name == name) return pairs_[i].value;
  }
  return nullptr;
}

const FlatXml::Element* FlatXml::Find(std::string_view name) const {
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
  const char* const begin = at_;
  if (!IsLetter(*at_)) return {begin, 0};
  while (IsNameByte(*at_)) ++at_;
  return {begin, static_cast<size_t>(at_ - begin)};
}

bool FlatXml::Parse(char* text) {
  at_ = text;
  elementCount_ = pairCount_ = 0;
  Skip(kDeclaration);
  SkipBlanks();
  if (!Skip("<")) return false;
  const Element::Name name = ParseName();
  const std::string_view root(name.begin, name.size);
  if ((root != kRootNames[0] && root != kRootNames[1]) || !Skip(">")) return false;
  SkipBlanks();
  if (Skip("<!--") && !(Skip(kCommandComment) && Skip("-->"))) return false;
  for (SkipBlanks(); !Skip("</"); SkipBlanks()) {
    if (!ParseElement()) return false;
  }
  if (!Skip(root) || !Skip(">")) return false;
  SkipBlanks();
  return *at_ == '\0';
}

bool FlatXml::ParseElement() {
  if (elementCount_ == kMostElements || !Skip("<")) return false;
  Element& element = elements_[elementCount_];
  element.name_ = ParseName();
  if (element.name_.size == 0 || !ParsePairs(element)) return false;
  element.text_ = nullptr;
  if (!Skip("/>") && !(Skip(">") && ParseText(element))) return false;
  ++elementCount_;
  return true;
}

bool FlatXml::ParsePairs(Element& element) {
  element.pairs_ = pairs_ + pairCount_;
  element.count_ = 0;
  while (*at_ == ' ') {
    SkipBlanks();
    if (*at_ == '/' || *at_ == '>') return true;
    const Element::Name name = ParseName();
    if (name.size == 0 || pairCount_ == kMostPairs || element.Attribute({name.begin, name.size}) != nullptr ||
        !Skip("=\""))
      return false;
    const char* const value = at_;
    while (IsPlain(*at_)) ++at_;
    if (*at_ != '"') return false;
    *at_++ = '\0';
    pairs_[pairCount_++] = {name, value};
    ++element.count_;
  }
  return true;
}

// Up to the end tag. Blanks at the ends and in rows would be condensed.
bool FlatXml::ParseText(Element& element) {
  char* const begin = at_;
  for (; IsPlain(*at_) || *at_ == '"'; ++at_) {
    if (*at_ == ' ' && (at_ == begin || at_[1] == ' ' || at_[1] == '<')) return false;
  }
  char* const end = at_;
  if (!Skip("</") || !Skip({element.name_.begin, element.name_.size}) || !Skip(">")) return false;
  *end = '\0';
  if (end != begin) element.text_ = begin;
  return true;
}

}  // namespace qln
