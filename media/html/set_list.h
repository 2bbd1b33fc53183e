// The parameter sets of a stream, wherever they stand, and those in force at a picture.
#ifndef MEDIA_HTML_SET_LIST_H
#define MEDIA_HTML_SET_LIST_H

#include <cstdint>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "base/report.h"
#include "sets/set_elements.h"

namespace qlnmedia::html {

class SetList {
 public:
  // Distinct sets that are kept; a stream with more has something else to look at.
  static constexpr size_t kMost = 400;

  explicit SetList(Codec codec) : codec_(codec) {}
  // Any unit, of the private data (`picture` -1) or of a picture; what is no set is passed over.
  void Take(ByteSpan unit, int64_t picture);
  // The place in the list of the set of that type and number that came last; -1 where there is none.
  int InForce(int type, uint32_t id) const;
  // The sets: type, id, name, size, where they were met, their elements by published names with their values,
  // and what is wrong with their ends.
  Json ToJson() const;

 private:
  struct Kept {
    Bytes bytes;
    int type = 0;
    uint32_t id = 0;
    int64_t first = -1;       // the first picture that brings it; -1 for none
    int64_t times = 0;        // pictures that bring it
    bool configured = false;  // the private data has it
  };
  Json JsonOf(const Kept& set) const;

  Codec codec_;
  std::vector<Kept> sets_;
  std::map<std::pair<int, uint32_t>, size_t> inForce_;
  ChromaFormats formats_;
  std::vector<ChromaFormats> formatsOf_;  // when the set of that place came
  int64_t left_ = 0;                      // sets beyond kMost
};

}  // namespace qlnmedia::html

#endif
