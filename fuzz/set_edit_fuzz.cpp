// Sequence parameter sets edited: the result reads back with what was asked for and everything else as it
// was, and a set that is edited back is what it was.

#include "fuzz_input.h"
#include "mutators/formats.h"
#include "sets/set_edit.h"

namespace {

using namespace qlnmedia;

void Expect(bool holds) {
  if (!holds) __builtin_trap();
}

SpsEdit EditOf(qln::fuzz::Input& input) {
  SpsEdit edit;
  const uint32_t which = input.Number(1);
  const uint32_t values = input.Number(1);
  if ((which & 1) != 0) {
    edit.colour = ColourCodes{static_cast<uint8_t>(input.Number(1)), static_cast<uint8_t>(input.Number(1)),
                              static_cast<uint8_t>(input.Number(1))};
  }
  if ((which & 2) != 0) edit.fullRange = (values & 1) != 0;
  if ((which & 4) != 0) edit.picStruct = (values & 2) != 0;
  if ((which & 8) != 0) edit.interlace = {(values & 4) != 0, (values & 8) != 0, (values & 16) != 0};
  return edit;
}

// What a set must say behind an edit.
SpsFacts Edited(Codec codec, SpsFacts summary, const SpsEdit& edit) {
  const bool signal = (edit.colour && edit.colour != summary.colour) ||
                      (edit.fullRange && *edit.fullRange != summary.fullRange);
  const bool flags = codec == Codec::kH264
                         ? edit.picStruct && *edit.picStruct != summary.h264.picStruct
                         : edit.interlace && (*edit.interlace)[2] != summary.hevc.interlace[2];
  summary.vui = summary.vui || signal || flags;
  summary.signalType = summary.signalType || signal;
  if (edit.colour) summary.colour = edit.colour;
  if (edit.fullRange) summary.fullRange = *edit.fullRange;
  if (codec == Codec::kH264 && edit.picStruct) summary.h264.picStruct = *edit.picStruct;
  if (codec == Codec::kHevc && edit.interlace) summary.hevc.interlace = *edit.interlace;
  return summary;
}

// The edit that takes every element back to what `summary` says.
SpsEdit Reverse(Codec codec, const SpsFacts& summary) {
  SpsEdit edit;
  edit.colour = summary.colour;
  edit.fullRange = summary.fullRange;
  if (codec == Codec::kH264) edit.picStruct = summary.h264.picStruct;
  if (codec == Codec::kHevc) edit.interlace = summary.hevc.interlace;
  return edit;
}

// The payload without the zero bytes behind its stop bit.
Bytes Payload(ByteSpan unit) {
  Bytes payload = Unescape(unit);
  while (!payload.empty() && payload.back() == 0) payload.pop_back();
  return payload;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  qln::fuzz::Input input(data, size);
  const Codec codec = (input.Number(1) & 1) != 0 ? Codec::kHevc : Codec::kH264;
  const SpsEdit edit = EditOf(input);
  qln::fuzz::Block block(input.data(), input.left(), input.left());
  const ByteSpan set(block.data(), block.size);

  const std::optional<SpsFacts> was = ReadSpsFacts(codec, set);
  const std::optional<Bytes> edited = EditSps(codec, set, edit);
  Expect(was.has_value() == edited.has_value());
  if (!was) return 0;
  const std::optional<SpsFacts> is = ReadSpsFacts(codec, *edited);
  Expect(is && *is == Edited(codec, *was, edit));
  const std::optional<Bytes> same = EditSps(codec, *edited, edit);
  Expect(same && *same == *edited);
  // Where the elements were there before, nothing but their values has changed.
  if (was->colour) {
    const std::optional<Bytes> back = EditSps(codec, *edited, Reverse(codec, *was));
    Expect(back && Payload(*back) == Payload(set));
  }
  return 0;
}

QLN_FUZZ_BY_PIECES(qln::fuzz::Codes(), 3)
