// Finds slices by start codes.

#include "patch/cut_picture.h"

#include <algorithm>

#include "base/error.h"

namespace qlnmedia {

namespace {

// More than any slice header takes, entry points of many tiles aside, which no editor looks at.
constexpr size_t kCutHead = 4096;

}  // namespace

CutPicture::CutPicture(Codec codec, ByteSpan whole) : codec_(codec), size_(whole.size()) {
  size_t taken = 0;  // of the whole
  size_t slices = 0;
  const auto take = [&](size_t end) {
    const ByteSpan bytes = whole.subspan(taken, end - taken);
    given_.insert(given_.end(), bytes.begin(), bytes.end());
    taken = end;
  };
  VisitUnits(whole, Framing{}, [&](ByteSpan unit) {
    if (!IsSlice(codec_, UnitType(codec_, unit))) return;
    const size_t slice = slices++;
    if (unit.size() <= 2 * kCutHead) return;
    // Zeros at the end of a unit would not be its own.
    size_t head = kCutHead;
    while (head < unit.size() && unit[head - 1] == 0) ++head;
    const size_t at = static_cast<size_t>(unit.data() - whole.data());
    const size_t before = at - taken + given_.size();
    take(at + head);
    cuts_.push_back({before, slice, head, unit.size() - head, unit.back()});
    taken += unit.size() - head;
  });
  take(whole.size());
}

std::vector<CutPicture::Part> CutPicture::PartsOf(const Bytes& edited, const std::string& where) const {
  std::vector<size_t> slices;
  if (!cuts_.empty()) {
    VisitUnits(edited, Framing{}, [&](ByteSpan unit) {
      if (IsSlice(codec_, UnitType(codec_, unit)))
        slices.push_back(static_cast<size_t>(unit.data() - edited.data()));
    });
  }
  std::vector<Part> parts;
  size_t at = 0, was = 0, is = 0;
  for (const Cut& cut : cuts_) {
    const ByteSpan head = ByteSpan(given_).subspan(cut.at, cut.head);
    const size_t place = cut.slice < slices.size() ? slices[cut.slice] : edited.size();
    const bool same =
        place >= is && edited.size() - place >= head.size() &&
        std::equal(head.begin(), head.end(), edited.begin() + static_cast<std::ptrdiff_t>(place));
    if (!same) throw Error(where, "a slice came back changed; nothing was written");
    const size_t wasEnd = cut.at + cut.head, isEnd = place + cut.head;
    parts.push_back({at, ByteSpan(given_).subspan(was, wasEnd - was),
                     ByteSpan(edited).subspan(is, isEnd - is), cut.rest, cut.last});
    at += wasEnd - was + cut.rest;
    was = wasEnd;
    is = isEnd;
  }
  parts.push_back({at, ByteSpan(given_).subspan(was), ByteSpan(edited).subspan(is), 0, 0});
  return parts;
}

}  // namespace qlnmedia
