// Findings by stream, kind and text.

#include "check/finding_list.h"

#include <iterator>

namespace qlnmedia {

const char* FindingWord(FindingKind kind) {
  static constexpr const char* kWords[] = {"colour", "range", "size",  "rate",     "interlace",
                                           "hdr",    "sets",  "order", "captions", "damage"};
  const auto index = static_cast<size_t>(kind);
  return index < std::size(kWords) ? kWords[index] : "unknown";
}

void FindingList::Add(Finding finding) {
  const auto [place, added] =
      places_.try_emplace({finding.stream, finding.kind, finding.text}, findings_.size());
  if (added) {
    findings_.push_back(std::move(finding));
  } else {
    findings_[place->second].count += finding.count;
  }
}

}  // namespace qlnmedia
