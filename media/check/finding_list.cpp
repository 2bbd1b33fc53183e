// Findings by stream, kind and text.

#include "check/finding_list.h"

#include <iterator>

namespace qlnmedia {

namespace {

// More than any stream has that is not made for it.
constexpr size_t kMostKinds = 10000;
constexpr char kOthers[] = "more of these, each in other words";

}  // namespace

const char* FindingWord(FindingKind kind) {
  static constexpr const char* kWords[] = {"colour", "range",      "size",    "rate",     "interlace",
                                           "hdr",    "sets",       "order",   "captions", "damage",
                                           "aspect", "encryption", "timecode"};
  const auto index = static_cast<size_t>(kind);
  return index < std::size(kWords) ? kWords[index] : "unknown";
}

const char* SeverityWord(Severity severity) {
  static constexpr const char* kWords[] = {"error", "warning", "note"};
  const auto index = static_cast<size_t>(severity);
  return index < std::size(kWords) ? kWords[index] : "unknown";
}

Severity UsualSeverity(FindingKind kind) {
  if (kind == FindingKind::kDamage || kind == FindingKind::kOrder) return Severity::kError;
  return kind == FindingKind::kEncryption ? Severity::kNote : Severity::kWarning;
}

void FindingList::Add(unsigned stream, FindingKind kind, std::string text, int64_t frame) {
  Add(stream, kind, std::move(text), frame, UsualSeverity(kind));
}

void FindingList::Add(unsigned stream, FindingKind kind, std::string text, int64_t frame, Severity severity) {
  Add({stream, kind, std::move(text), frame, 1, severity});
}

void FindingList::Add(Finding finding) {
  const auto known = places_.find({finding.stream, finding.kind, finding.text});
  if (known != places_.end()) {
    findings_[known->second].count += finding.count;
    return;
  }
  if (found_ && findings_.size() >= kMostKinds && finding.text != kOthers) {
    finding.text = kOthers;
    return Add(std::move(finding));
  }
  places_[{finding.stream, finding.kind, finding.text}] = findings_.size();
  findings_.push_back(std::move(finding));
  if (found_) found_(findings_.back(), seconds_);
}

}  // namespace qlnmedia
