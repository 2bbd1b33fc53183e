// Records for tests: zeroed at first, freed at last, their fields reached by position.
#ifndef TESTS_CLIPINFO_CLIP_INFO_SUPPORT_H
#define TESTS_CLIPINFO_CLIP_INFO_SUPPORT_H

#include <cstring>
#include <string>

#include "qlnutil/qlninfo.h"

namespace qln::test {

class Record {
 public:
  Record() { qlnInfoDelete(&info); }
  ~Record() { qlnInfoDelete(&info); }
  Record(const Record&) = delete;
  Record& operator=(const Record&) = delete;

  char** slot(size_t index) { return reinterpret_cast<char**>(&info) + index; }
  uint32_t* number(size_t index) {
    return reinterpret_cast<uint32_t*>(reinterpret_cast<char*>(&info) + 796) + index;
  }
  std::string text(size_t index) { return *slot(index) != nullptr ? *slot(index) : "(null)"; }
  void setText(size_t index, const std::string& text) { setBlock(index, text + '\0'); }
  // A block of exactly these bytes.
  void setBlock(size_t index, const std::string& bytes) {
    if (*slot(index) != nullptr) KXFree(*slot(index));
    *slot(index) = static_cast<char*>(KXAlloc(bytes.size()));
    std::memcpy(*slot(index), bytes.data(), bytes.size());
  }

  QLNInfo info = {};
};

constexpr size_t kSlots = 99;
constexpr size_t kNumbers = 49;

}  // namespace qln::test

#endif
