// A scan in front of the XML parser: how much of a text it can take without running deep or long.
//
// TinyXML goes one call deeper for each nested element, walks up to the document from every node, and
// compares every attribute with all others of its element, so a hostile text can exhaust the stack or the
// clock. This scan follows the parser's own rules byte for byte (its tolerance, entities and encodings
// included) and tells where a text has to end.
#ifndef KXUTIL_XML_PRESCAN_H
#define KXUTIL_XML_PRESCAN_H

#include <cctype>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string_view>

namespace qln {

// What is parsed of a text. Beside the two limits there is one to the sum of the parser's steps, which else
// would grow with the product of size and depth or attributes: up to the document from each node, and over
// the attributes in front of each attribute. Each of these two sums may reach what a text that is as deep, or
// an element that is as wide, as the limit allows takes by itself, and for each byte of the text
// kXmlStepsAByte more. A usual text takes less than one step a byte.
struct XmlLimits {
  size_t depth = 1000;       // elements in elements, the root counted
  size_t attributes = 2000;  // of one element
};
inline constexpr size_t kXmlStepsAByte = 8;

class XmlPrescan {
 public:
  XmlPrescan(const char* text, size_t size, bool legacyEncoding, XmlLimits limits)
      : text_(text),
        size_(size),
        encoding_(legacyEncoding ? Encoding::kLegacy : Encoding::kUnknown),
        limits_(limits),
        depthSteps_(limits.depth * limits.depth + size * kXmlStepsAByte),
        attributeSteps_(limits.attributes * limits.attributes / 2 + size * kXmlStepsAByte) {}

  // The offset at which the text has to end; its size if it may stay whole. Where the parser gives up, so
  // does the scan, or it goes on over text that the parser never reaches.
  size_t Run() {
    if (encoding_ == Encoding::kUnknown && StartsWith("\xEF\xBB\xBF")) encoding_ = Encoding::kUtf8;
    SkipBlanks();
    while (At(p_) != 0 && end_ == kNoEnd && NextNode()) SkipBlanks();
    return end_ != kNoEnd ? end_ : size_;
  }

 private:
  enum class Encoding { kUnknown, kUtf8, kLegacy };
  static constexpr size_t kNoEnd = SIZE_MAX;

  // The first bytes of a decoded attribute value, enough to know an encoding's name.
  struct ValueStart {
    char bytes[8] = {};
    size_t length = 0;
    void Add(char c) {
      if (length < sizeof bytes - 1) bytes[length++] = c;
    }
  };

  unsigned char At(size_t i) const { return i < size_ ? static_cast<unsigned char>(text_[i]) : 0; }
  static bool IsBlank(unsigned char c) { return std::isspace(c) != 0; }
  static bool StartsName(unsigned char c) { return c >= 127 || std::isalpha(c) != 0 || c == '_'; }
  static bool ContinuesName(unsigned char c) {
    return c >= 127 || std::isalnum(c) != 0 || c == '_' || c == '-' || c == '.' || c == ':';
  }

  bool StartsWith(std::string_view text) const {
    return p_ < size_ && std::string_view(text_ + p_, size_ - p_).substr(0, text.size()) == text;
  }
  bool StartsWithAnyCase(std::string_view lowerText) const {
    for (size_t i = 0; i < lowerText.size(); ++i) {
      if (std::tolower(At(p_ + i)) != lowerText[i]) return false;
    }
    return true;
  }

  void SkipBlanks() {
    for (;;) {
      if (encoding_ == Encoding::kUtf8 &&
          (StartsWith("\xEF\xBB\xBF") || StartsWith("\xEF\xBF\xBE") || StartsWith("\xEF\xBF\xBF"))) {
        p_ += 3;
      } else if (IsBlank(At(p_))) {
        ++p_;
      } else {
        return;
      }
    }
  }

  // Behind the next `mark`, looked for from `skip` bytes on. False if there is none.
  bool SkipBehind(size_t skip, std::string_view mark) {
    for (p_ += skip; At(p_) != 0; ++p_) {
      if (StartsWith(mark)) {
        p_ += mark.size();
        return true;
      }
    }
    return false;
  }

  // Takes steps from what is left of them. False if there are too few.
  static bool Take(size_t steps, size_t& left) {
    if (steps > left) return false;
    left -= steps;
    return true;
  }

  // One node, or one end tag. False where the parser ends, or where the text has to.
  bool NextNode() {
    if (depth_ != 0 && At(p_) == '<' && At(p_ + 1) == '/') {
      --depth_;  // a tag of another name ends the parse
      return SkipBehind(2, ">");
    }
    if (!Take(depth_, depthSteps_)) {
      end_ = p_;
      return false;
    }
    if (At(p_) != '<') return depth_ != 0 && SkipCharacters('<', nullptr);
    if (StartsWithAnyCase("<?xml")) return SkipDeclaration();
    if (StartsWith("<!--")) return SkipBehind(4, "-->");
    if (StartsWith("<![CDATA[")) return SkipBehind(9, "]]>");
    if (At(p_ + 1) == '!' || !StartsName(At(p_ + 1))) return SkipBehind(1, ">");
    return EnterElement();
  }

  bool EnterElement() {
    if (depth_ == limits_.depth) {
      end_ = p_;
      return false;
    }
    ++p_;
    SkipBlanks();
    if (!SkipName()) return false;
    for (size_t attributes = 0;; ++attributes) {
      SkipBlanks();
      if (At(p_) == '/') {
        p_ += 2;
        return At(p_ - 1) == '>';
      }
      if (At(p_) == '>') {
        ++p_;
        ++depth_;
        return true;
      }
      if (At(p_) != 0 && (attributes == limits_.attributes || !Take(attributes, attributeSteps_))) {
        end_ = p_ + 1;  // one byte of it stays: the parser drops an attribute with nothing behind it
        return false;
      }
      if (!SkipAttribute(nullptr)) return false;
    }
  }

  bool SkipName() {
    if (!StartsName(At(p_))) return false;
    while (ContinuesName(At(p_))) ++p_;
    return At(p_) != 0;
  }

  bool SkipAttribute(ValueStart* value) {
    SkipBlanks();
    if (!SkipName()) return false;
    SkipBlanks();
    if (At(p_) != '=') return false;
    ++p_;
    SkipBlanks();
    const unsigned char quote = At(p_);
    if (quote == '"' || quote == '\'') {
      ++p_;
      if (!SkipCharacters(quote, value)) return false;
      ++p_;
      return At(p_) != 0;
    }
    for (; At(p_) != 0 && !IsBlank(At(p_)) && At(p_) != '/' && At(p_) != '>'; ++p_) {
      if (At(p_) == '"' || At(p_) == '\'') return false;
      if (value != nullptr) value->Add(static_cast<char>(At(p_)));
    }
    return At(p_) != 0;
  }

  // Up to the byte `end`, by characters: a long UTF-8 lead or an entity may hide it. False if there is none.
  bool SkipCharacters(unsigned char end, ValueStart* value) {
    while (At(p_) != 0 && At(p_) != end) {
      const size_t length = encoding_ == Encoding::kUtf8 ? Utf8Length(At(p_)) : 1;
      if (length == 1 && At(p_) == '&') {
        if (!SkipEntity(value)) return false;
        continue;
      }
      if (value != nullptr) value->Add(static_cast<char>(At(p_)));
      p_ += length;
    }
    return At(p_) != 0;
  }

  static size_t Utf8Length(unsigned char lead) {
    if (lead < 0xC2 || lead > 0xF4) return 1;
    return lead < 0xE0 ? 2 : lead < 0xF0 ? 3 : 4;
  }

  bool SkipEntity(ValueStart* value) {
    if (At(p_ + 1) == '#' && At(p_ + 2) != 0) return SkipNumericEntity(value);
    struct Named {
      std::string_view text;
      char character;
    };
    static constexpr Named kNamed[] = {
        {"&amp;", '&'}, {"&lt;", '<'}, {"&gt;", '>'}, {"&quot;", '"'}, {"&apos;", '\''}};
    for (const Named& named : kNamed) {
      if (StartsWith(named.text)) {
        if (value != nullptr) value->Add(named.character);
        p_ += named.text.size();
        return true;
      }
    }
    ++p_;
    return true;
  }

  // The parser takes the next ";", however far, and reads digits backwards from there to the nearest mark.
  bool SkipNumericEntity(ValueStart* value) {
    const bool hexadecimal = At(p_ + 2) == 'x';
    const unsigned char mark = hexadecimal ? 'x' : '#';
    size_t semicolon = p_ + (hexadecimal ? 3 : 2);
    while (At(semicolon) != 0 && At(semicolon) != ';') ++semicolon;
    if (At(semicolon) == 0) return false;
    uint32_t code = 0;
    uint32_t place = 1;
    for (size_t i = semicolon - 1; At(i) != mark; --i) {
      const unsigned char c = At(i);
      if (c >= '0' && c <= '9') {
        code += place * (c - uint32_t{'0'});
      } else if (hexadecimal && std::isxdigit(c) != 0) {
        code += place * (static_cast<uint32_t>(std::tolower(c)) - 'a' + 10);
      } else {
        return false;
      }
      place *= hexadecimal ? 16 : 10;
    }
    if (value != nullptr) value->Add(static_cast<char>(code));
    p_ = semicolon + 1;
    return true;
  }

  bool SkipDeclaration() {
    ValueStart encodingName;
    p_ += 5;
    while (At(p_) != 0) {
      if (At(p_) == '>') {
        ++p_;
        if (depth_ == 0 && encoding_ == Encoding::kUnknown) TakeEncoding(encodingName.bytes);
        return true;
      }
      SkipBlanks();
      if (StartsWithAnyCase("encoding")) {
        encodingName = {};
        if (!SkipAttribute(&encodingName)) return false;
      } else if (StartsWithAnyCase("version") || StartsWithAnyCase("standalone")) {
        if (!SkipAttribute(nullptr)) return false;
      } else {
        while (At(p_) != 0 && At(p_) != '>' && !IsBlank(At(p_))) ++p_;
      }
    }
    return false;
  }

  // No name, and all that begin with UTF-8 or UTF8, mean UTF-8.
  void TakeEncoding(const char* name) {
    const auto begins = [name](std::string_view upperText) {
      for (size_t i = 0; i < upperText.size(); ++i) {
        if (std::toupper(static_cast<unsigned char>(name[i])) != upperText[i]) return false;
      }
      return true;
    };
    encoding_ = *name == '\0' || begins("UTF-8") || begins("UTF8") ? Encoding::kUtf8 : Encoding::kLegacy;
  }

  const char* text_;
  size_t size_;
  Encoding encoding_;
  XmlLimits limits_;
  size_t depthSteps_;      // left
  size_t attributeSteps_;  // left
  size_t p_ = 0;
  size_t depth_ = 0;
  size_t end_ = kNoEnd;
};

// How many of a text's bytes may go to the parser: all of them, or those in front of the node that would pass
// a limit, or behind the first byte of the attribute that would. The caller parses a copy cut there, with at
// least four zero bytes behind it. `legacyEncoding` if the parser is told that encoding.
inline size_t SafeXmlLength(const char* text, size_t size, bool legacyEncoding = false,
                            XmlLimits limits = {}) {
  // No element and no attribute takes fewer than three bytes: a short text reaches neither limit.
  if (size / 3 < limits.depth && size / 3 < limits.attributes) return size;
  return XmlPrescan(text, size, legacyEncoding, limits).Run();
}

}  // namespace qln

#endif
