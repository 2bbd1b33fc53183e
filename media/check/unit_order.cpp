// Walks the units of a frame, one access unit after the other.

#include "check/unit_order.h"

#include <fmt/format.h>

#include "units/access_unit.h"

namespace qlnmedia {

namespace {

class AccessUnit {
 public:
  AccessUnit(Codec codec, OrderRules rules, std::vector<std::string>& findings)
      : codec_(codec), rules_(rules), findings_(findings) {}

  bool hasSlice() const { return slice_; }
  // Nothing but units of the frame in the packet before.
  bool endsOnly() const { return ended_ && !any_; }

  void Take(const Bytes& unit) {
    const int type = UnitType(codec_, unit);
    if (IsEnd(codec_, type)) {
      TakeEnd();
      return;
    }
    if (ended_) {
      TakeBehindEnd(type);
      if (ended_) return;
    }
    if (IsSlice(codec_, type)) {
      if (!slice_ && !rules_.anySliceOrder && !IsFirstSlice(codec_, unit))
        Add("a frame does not begin with its picture's first slice: a unit between its slices cut it, or "
            "slices "
            "are missing");
      slice_ = true;
    } else if (IsDelimiter(codec_, type)) {
      if (delimiter_) {
        Add("a frame has two access unit delimiters");
      } else if (any_) {
        Add("an access unit delimiter is not the first unit of its frame");
      }
      delimiter_ = true;
    } else if (type == hevc::kSuffixSei && codec_ == Codec::kHevc) {
      if (!slice_) Add("a suffix SEI stands in front of the slices of its frame");
    } else if (codec_ == Codec::kHevc && type >= hevc::kFirstUnspecifiedBehind) {
      if (!slice_) Add(fmt::format("{} stands in front of the slices of its frame", NameWithArticle(type)));
    } else if (slice_ && (IsParameterSet(codec_, type) || IsSei(codec_, type))) {
      Add(fmt::format("{} stands behind a slice of its frame", NameWithArticle(type)));
    }
    any_ = true;
  }

 private:
  // The end of a sequence stands behind a picture. Where it comes in front of one it is the end of the frame
  // in the packet before.
  void TakeEnd() { ended_ = true; }

  // What comes behind an end begins the next access unit, or is out of place.
  void TakeBehindEnd(int type) {
    if (codec_ == Codec::kHevc && FollowsPicture(codec_, type)) {
      Add(fmt::format("{} stands behind the end of its sequence", NameWithArticle(type)));
      return;
    }
    ended_ = any_ = delimiter_ = false;
  }

  std::string NameWithArticle(int type) const {
    const std::string name = UnitTypeName(codec_, type);
    return fmt::format("{} {}", name[0] == 'S' || name[0] == 'u' ? "an" : "a", name);
  }

  void Add(std::string text) { findings_.push_back(std::move(text)); }

  Codec codec_;
  OrderRules rules_;
  std::vector<std::string>& findings_;
  bool any_ = false;
  bool slice_ = false;
  bool delimiter_ = false;
  bool ended_ = false;
};

// Where the second field's access unit begins: behind the last slice in front of the second picture's first,
// and the suffix SEI that goes with it.
size_t SecondFieldAt(Codec codec, const std::vector<const Bytes*>& units) {
  size_t behindSlice = 0;
  for (size_t i = 0; i < units.size(); ++i) {
    const int type = UnitType(codec, *units[i]);
    if (codec == Codec::kHevc && type == hevc::kSuffixSei && i == behindSlice && i != 0) behindSlice = i + 1;
    if (!IsSlice(codec, type)) continue;
    if (behindSlice != 0 && IsFirstSlice(codec, *units[i])) return behindSlice;
    behindSlice = i + 1;
  }
  return units.size();
}

}  // namespace

std::vector<std::string> OrderFindings(Codec codec, const std::vector<Unit>& units, OrderRules rules) {
  std::vector<const Bytes*> base;
  for (const Unit& unit : units) {
    if (IsBaseLayer(codec, unit.bytes)) base.push_back(&unit.bytes);
  }
  std::vector<std::string> findings;
  const size_t second = rules.twoFields ? SecondFieldAt(codec, base) : base.size();
  AccessUnit first(codec, rules, findings);
  for (size_t i = 0; i < second; ++i) first.Take(*base[i]);
  AccessUnit field(codec, rules, findings);
  for (size_t i = second; i < base.size(); ++i) field.Take(*base[i]);
  if (!first.hasSlice() && !first.endsOnly() && !CompletesPicture(codec, units))
    findings.emplace_back("a frame has no slice");
  return findings;
}

}  // namespace qlnmedia
