// Gathers findings; what is found again counts up.
#ifndef MEDIA_CHECK_FINDING_LIST_H
#define MEDIA_CHECK_FINDING_LIST_H

#include <map>
#include <optional>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "qlnmedia/check.h"

namespace qlnmedia {

// Damage and order are errors, encryption is a note, all else a warning.
Severity UsualSeverity(FindingKind kind);

class FindingList {
 public:
  FindingList() = default;
  // Tells `found` of each finding when it is new, unless that is empty. The kinds that are kept apart are
  // then limited.
  explicit FindingList(FoundCallback found) : found_(std::move(found)) {}
  // The time that goes with what is found from here on.
  void At(std::optional<double> seconds) { seconds_ = seconds; }

  // Adds a finding, of its kind's usual severity where none is given, or counts up the one of the same
  // stream, kind and text.
  void Add(unsigned stream, FindingKind kind, std::string text, int64_t frame);
  void Add(unsigned stream, FindingKind kind, std::string text, int64_t frame, Severity severity);
  void Add(Finding finding);
  const std::vector<Finding>& findings() const { return findings_; }
  std::vector<Finding> Take() { return std::move(findings_); }

 private:
  std::vector<Finding> findings_;
  std::map<std::tuple<unsigned, FindingKind, std::string>, size_t> places_;
  FoundCallback found_;
  std::optional<double> seconds_;
};

}  // namespace qlnmedia

#endif
