// Keeps each set once and lists its elements.

#include "html/set_list.h"

#include <fmt/format.h>

#include <algorithm>
#include <string_view>

#include "inspect/published_elements.h"

namespace qlnmedia::html {

namespace {

std::string_view IdName(Codec codec, int type) {
  if (codec == Codec::kH264) return type == h264::kPps ? "pic_parameter_set_id" : "seq_parameter_set_id";
  if (type == hevc::kVps) return "vps_video_parameter_set_id";
  return type == hevc::kSps ? "sps_seq_parameter_set_id" : "pps_pic_parameter_set_id";
}

std::string EndText(const SetElements& set) {
  if (set.stop == 0) return "the set has no stop bit";
  if (set.end == WalkEnd::kCutOff) return fmt::format("cut off: {} leads past its end", set.endedAt);
  if (set.end != WalkEnd::kWhole) return fmt::format("{} is above what the standard allows", set.endedAt);
  if (set.endPosition < set.stop)
    return fmt::format("{} bits behind the last element have no known meaning", set.stop - set.endPosition);
  return {};
}

}  // namespace

void SetList::Take(ByteSpan unit, int64_t picture) {
  const int type = UnitType(codec_, unit);
  if (!HasSetSyntax(codec_, type)) return;
  formats_.Take(codec_, unit);
  auto found = std::find_if(sets_.begin(), sets_.end(), [&](const Kept& set) {
    return set.type == type && std::equal(set.bytes.begin(), set.bytes.end(), unit.begin(), unit.end());
  });
  if (found == sets_.end()) {
    if (sets_.size() >= kMost) {
      ++left_;
      return;
    }
    Kept set;
    set.bytes.assign(unit.begin(), unit.end());
    set.type = type;
    const SetElements elements = ListSetElements(codec_, unit, formats_);
    const SetElement* const id = elements.Find(IdName(codec_, type));
    if (id != nullptr) set.id = static_cast<uint32_t>(id->value);
    sets_.push_back(std::move(set));
    formatsOf_.push_back(formats_);
    found = sets_.end() - 1;
  }
  if (picture < 0) found->configured = true;
  if (picture >= 0 && found->times++ == 0) found->first = picture;
  inForce_[{type, found->id}] = static_cast<size_t>(found - sets_.begin());
}

int SetList::InForce(int type, uint32_t id) const {
  const auto found = inForce_.find({type, id});
  return found == inForce_.end() ? -1 : static_cast<int>(found->second);
}

Json SetList::JsonOf(const Kept& kept) const {
  const size_t place = static_cast<size_t>(&kept - sets_.data());
  const SetElements set = ListSetElements(codec_, kept.bytes, formatsOf_[place]);
  Json names = Json::array(), values = Json::array(), notes = Json::array();
  for (const Element& element : PublishedElements(codec_, set, Unescape(kept.bytes))) {
    names.push_back(element.name);
    values.push_back(element.value.is_array()
                         ? element.value.dump(-1, ' ', false, Json::error_handler_t::replace)
                         : PlainText(element.value));
    notes.push_back(element.note);
  }
  return Json{{"type", kept.type},
              {"name", UnitTypeName(codec_, kept.type)},
              {"id", kept.id},
              {"size", kept.bytes.size()},
              {"configured", kept.configured},
              {"first", kept.first},
              {"times", kept.times},
              {"end", EndText(set)},
              {"names", std::move(names)},
              {"values", std::move(values)},
              {"notes", std::move(notes)}};
}

Json SetList::ToJson() const {
  Json list = Json::array();
  for (const Kept& set : sets_) list.push_back(JsonOf(set));
  return Json{{"list", std::move(list)}, {"left", left_}};
}

}  // namespace qlnmedia::html
