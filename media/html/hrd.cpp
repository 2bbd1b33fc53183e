// Reads what the coded picture buffer is worked out from.

#include "html/hrd.h"

#include <cmath>
#include <string_view>

namespace qlnmedia::html {

namespace {

// A payload read like a unit, whose last bit is followed by a stop bit that the reader looks for.
Bytes WithStopBit(ByteSpan payload) {
  Bytes bytes(payload.begin(), payload.end());
  bytes.push_back(0x80);
  return Escape(bytes);
}

int64_t ValueOf(const SetElements& set, std::string_view name, int64_t otherwise = 0) {
  const SetElement* const element = set.Find(name);
  return element == nullptr ? otherwise : element->value;
}

// The first element of that name in the structure `structure` that is the last of its kind: of HEVC the
// highest sub-layer counts.
const SetElement* InLast(const SetElements& set, std::string_view structure, std::string_view name) {
  const SetElement* found = nullptr;
  for (const SetElement& element : set.elements) {
    const SetStructure& where = set.structures[element.structure];
    if (where.name != structure || element.name != name) continue;
    if (found == nullptr || where.index > set.structures[found->structure].index) found = &element;
  }
  return found;
}

// The elements of that name in one structure.
uint32_t CountIn(const SetElements& set, uint16_t structure, std::string_view name) {
  uint32_t count = 0;
  for (const SetElement& element : set.elements)
    if (element.structure == structure && element.name == name) ++count;
  return count;
}

// Schedules, and the first one's values, of the parameters in `structure`; false where there are none.
bool TakeSchedule(const SetElements& set, std::string_view structure, int64_t rateScale, int64_t sizeScale,
                  CpbSchedule& schedule, uint32_t& schedules) {
  const SetElement* const rate = InLast(set, structure, "bit_rate_value_minus1");
  if (rate == nullptr) return false;
  const SetElement* const size = InLast(set, structure, "cpb_size_value_minus1");
  const SetElement* const constant = InLast(set, structure, "cbr_flag");
  if (size == nullptr || constant == nullptr) return false;
  schedules = CountIn(set, rate->structure, "bit_rate_value_minus1");
  schedule.bitRate = static_cast<uint64_t>(rate->value + 1) << (6 + rateScale);
  schedule.cpbSize = static_cast<uint64_t>(size->value + 1) << (4 + sizeScale);
  schedule.constant = constant->value != 0;
  return true;
}

// The value of an element inside the H.264 structure that counts; both have the same names.
int64_t InStructure(const SetElements& set, std::string_view structure, std::string_view name,
                    int64_t otherwise) {
  const SetElement* const element = InLast(set, structure, name);
  return element == nullptr ? otherwise : element->value;
}

std::optional<Hrd> H264Hrd(const SetElements& set) {
  Hrd hrd;
  CpbSchedule nal, vcl;
  const auto take = [&](std::string_view structure, CpbSchedule& schedule, uint32_t& schedules) {
    return TakeSchedule(set, structure, InStructure(set, structure, "bit_rate_scale", 0),
                        InStructure(set, structure, "cpb_size_scale", 0), schedule, schedules);
  };
  hrd.nal = take("nal_hrd_parameters", nal, hrd.nalSchedules);
  const bool hasVcl = take("vcl_hrd_parameters", vcl, hrd.vclSchedules);
  if (!hrd.nal && !hasVcl) return {};
  const std::string_view used = hrd.nal ? "nal_hrd_parameters" : "vcl_hrd_parameters";
  hrd.schedule = hrd.nal ? nal : vcl;
  const auto length = [&](std::string_view name) {
    return static_cast<uint32_t>(InStructure(set, used, name, 23)) + 1;
  };
  hrd.initialDelayLength = length("initial_cpb_removal_delay_length_minus1");
  hrd.removalDelayLength = length("cpb_removal_delay_length_minus1");
  hrd.outputDelayLength = length("dpb_output_delay_length_minus1");
  hrd.schedule.lowDelay = ValueOf(set, "low_delay_hrd_flag") != 0;
  const double scale = static_cast<double>(ValueOf(set, "time_scale"));
  if (scale <= 0) return {};
  hrd.schedule.tick = static_cast<double>(ValueOf(set, "num_units_in_tick")) / scale;
  return hrd;
}

std::optional<Hrd> HevcHrdOf(const SetElements& set) {
  if (ValueOf(set, "vui_hrd_parameters_present_flag") == 0) return {};
  Hrd hrd;
  CpbSchedule nal, vcl;
  const int64_t rateScale = ValueOf(set, "bit_rate_scale");
  const int64_t sizeScale = ValueOf(set, "cpb_size_scale");
  hrd.nal = TakeSchedule(set, "nal_sub_layer_hrd_parameters", rateScale, sizeScale, nal, hrd.nalSchedules);
  const bool hasVcl =
      TakeSchedule(set, "vcl_sub_layer_hrd_parameters", rateScale, sizeScale, vcl, hrd.vclSchedules);
  if (!hrd.nal && !hasVcl) return {};
  hrd.schedule = hrd.nal ? nal : vcl;
  const auto length = [&](std::string_view name) {
    return static_cast<uint32_t>(ValueOf(set, name, 23)) + 1;
  };
  hrd.initialDelayLength = length("initial_cpb_removal_delay_length_minus1");
  hrd.removalDelayLength = length("au_cpb_removal_delay_length_minus1");
  hrd.outputDelayLength = length("dpb_output_delay_length_minus1");
  hrd.subPictures = ValueOf(set, "sub_pic_hrd_params_present_flag") != 0;
  hrd.frameFieldInfo = ValueOf(set, "frame_field_info_present_flag") != 0;
  // The highest sub-layer's, which is the last one read.
  for (const SetElement& element : set.elements)
    if (element.name == "low_delay_hrd_flag") hrd.schedule.lowDelay = element.value != 0;
  const double scale = static_cast<double>(ValueOf(set, "vui_time_scale"));
  if (scale <= 0) return {};
  hrd.schedule.tick = static_cast<double>(ValueOf(set, "vui_num_units_in_tick")) / scale;
  return hrd;
}

}  // namespace

std::optional<Hrd> HrdOf(Codec codec, ByteSpan sps) {
  const SetElements set = ListSetElements(codec, sps);
  std::optional<Hrd> hrd = codec == Codec::kH264 ? H264Hrd(set) : HevcHrdOf(set);
  if (hrd) hrd->schedules = hrd->nal ? hrd->nalSchedules : hrd->vclSchedules;
  return hrd;
}

std::optional<BufferingPeriod> ReadBufferingPeriod(Codec codec, ByteSpan payload, const Hrd& hrd) {
  RbspReader in(WithStopBit(payload));
  const int length = static_cast<int>(hrd.initialDelayLength);
  in.ue();  // seq_parameter_set_id
  bool both = false;
  if (codec == Codec::kHevc) {
    const bool irap = !hrd.subPictures && in.flag();  // irap_cpb_params_present_flag
    if (irap) {
      in.u(static_cast<int>(hrd.removalDelayLength));  // cpb_delay_offset
      in.u(static_cast<int>(hrd.outputDelayLength));   // dpb_delay_offset
    }
    in.flag();                                       // concatenation_flag
    in.u(static_cast<int>(hrd.removalDelayLength));  // au_cpb_removal_delay_delta_minus1
    both = irap || hrd.subPictures;
  }
  // Those of the NAL parameters stand in front of those of the VCL ones, and those of the first schedule in
  // front of all others; where there are no NAL parameters the VCL ones are the first.
  BufferingPeriod period;
  period.delay = in.u(length);
  period.offset = in.u(length);
  if (both) {
    in.u(length);
    in.u(length);
  }
  if (!in.good()) return {};
  return period;
}

std::optional<uint32_t> ReadRemovalDelay(Codec codec, ByteSpan payload, const Hrd& hrd) {
  RbspReader in(WithStopBit(payload));
  if (codec == Codec::kHevc && hrd.frameFieldInfo) in.u(4 + 2 + 1);
  const uint32_t delay = in.u(static_cast<int>(hrd.removalDelayLength));
  if (!in.good()) return {};
  return codec == Codec::kHevc ? delay + 1 : delay;
}

uint64_t RemovalDelays::Next(uint32_t coded, uint32_t bits, bool period) {
  if (period) {
    last_ = 0;
    high_ = 0;
    return coded;
  }
  if (coded <= last_) high_ += uint64_t{1} << bits;
  last_ = coded;
  return high_ + coded;
}

}  // namespace qlnmedia::html
