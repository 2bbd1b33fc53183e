// XML of the shape that commands are written in: a root with elements of attributes and a text, and nothing
// deeper.
#ifndef QLNUTIL_MEDIACMD_FLAT_XML_H
#define QLNUTIL_MEDIACMD_FLAT_XML_H

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string_view>

namespace qln {

// Takes such a text apart in one pass, without a tree. It knows what it takes: whatever an XML parser could
// read in another way than letter by letter (entities, blanks that are condensed, bytes above ASCII, comments
// other than the writer's own, attributes that stand twice, elements in elements, anything behind the root)
// is left to a real one.
class FlatXml {
 public:
  class Element {
   public:
    // A value by its name; null where there is none.
    const char* Attribute(std::string_view name) const {
      return (marks_ & MarkOf(name.data(), name.size())) != 0 ? Search(name) : nullptr;
    }
    // Null where there is none.
    const char* GetText() const { return text_; }

   private:
    friend class FlatXml;
    const char* Search(std::string_view name) const;
    // Nothing in here is cleared before it is used.
    struct Name {
      const char* begin;
      size_t size;
      bool operator==(std::string_view other) const {
        return size == other.size() && std::memcmp(begin, other.data(), size) == 0;
      }
    };
    // One bit of 64 by a name's size and ends: of names that are not there it is mostly not set.
    static uint64_t MarkOf(const char* begin, size_t size) {
      const auto byte = [begin](size_t i) { return static_cast<unsigned char>(begin[i]); };
      return uint64_t{1} << ((size * 11 + byte(0) * 5U + byte(size / 2) + byte(size - 1) * 3U) & 63);
    }
    struct Pair {
      Name name;
      const char* value;
    };
    Name name_;
    const char* text_;
    const Pair* pairs_;
    size_t count_;
    uint64_t marks_;  // of the names of its attributes
  };

  FlatXml() {}  // NOLINT(modernize-use-equals-default): "= default" would let callers clear kilobytes
  FlatXml(const FlatXml&) = delete;
  FlatXml& operator=(const FlatXml&) = delete;

  // `text` ends with a zero byte, is written to, and is kept by the caller as long as this is used. Returns
  // false, with the text in whatever state, where it has another shape.
  bool Parse(char* text);

  // Of the root's elements the first of that name; null where there is none.
  const Element* Find(std::string_view name) const {
    return (marks_ & Element::MarkOf(name.data(), name.size())) != 0 ? Search(name) : nullptr;
  }

 private:
  static constexpr size_t kMostElements = 64;
  static constexpr size_t kMostPairs = 256;

  bool ParseElement();
  bool ParsePairs(Element& element);
  bool ParseText(Element& element);
  const Element* Search(std::string_view name) const;
  bool Skip(std::string_view text);
  bool Skip(char one) {
    if (*at_ != one) return false;
    ++at_;
    return true;
  }
  bool Skip(char one, char other) {
    if (at_[0] != one || at_[1] != other) return false;
    at_ += 2;
    return true;
  }
  void SkipBlanks();
  Element::Name ParseName();

  char* at_;
  size_t elementCount_;
  size_t pairCount_;
  uint64_t marks_;  // of the names of elements
  Element elements_[kMostElements];
  Element::Pair pairs_[kMostPairs];
};

}  // namespace qln

#endif
