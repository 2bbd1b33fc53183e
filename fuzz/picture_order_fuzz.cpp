// Pictures of any stream told apart, placed and read: no picture begins outside its packet, every picture
// gets a place of its own, and what a timecode message holds can be said.

#include <algorithm>

#include "fuzz_input.h"
#include "pictures/picture_tracker.h"
#include "pictures/presentation_order.h"
#include "timing/hevc_timing.h"
#include "timing/timecode.h"

namespace {

using namespace qlnmedia;

void Expect(bool holds) {
  if (!holds) __builtin_trap();
}

void TakePacket(PictureTracker& tracker, const std::vector<Unit>& units, PresentationOrder& order) {
  size_t end = 0;
  for (const CodedPicture& picture : tracker.Take(units)) {
    Expect(picture.begin >= end && picture.begin <= picture.slice && picture.slice < picture.end &&
           picture.end <= units.size());
    end = picture.end;
    Expect(tracker.SlicesOf(units, picture) <= (kSliceI | kSliceP | kSliceB | kSliceSwitching));
    if (!picture.head) continue;
    Expect(picture.head->sps != nullptr);
    if (!picture.secondField) order.Add(KeyOfHeader(picture));
  }
}

void TakeMessages(const std::vector<Unit>& units, const HevcDelays& delays) {
  for (const Unit& unit : units) {
    for (const SeiMessage& message : ReadSeiMessages(Codec::kHevc, unit.bytes)) {
      for (const ClockTime& time : ReadTimeCode(message.payload)) Expect(!time.Text().empty());
      const FrameFieldInfo info{kBottomBehindTop, 0, false};
      const std::optional<Bytes> made = WithFrameFieldInfo(message.payload, false, delays, info);
      if (made) Expect(ReadFrameFieldInfo(*made) == info);
    }
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  qln::fuzz::DropMessages();
  qln::fuzz::Input input(data, size);
  const uint32_t flags = input.Number(1);
  const Codec codec = (flags & 1) != 0 ? Codec::kHevc : Codec::kH264;
  const size_t perPacket = 1 + (flags >> 1 & 7);
  HevcDelays delays;
  delays.present = (flags & 16) != 0;
  delays.subPictures = (flags & 32) != 0;
  delays.unitsInPictureTiming = (flags & 64) != 0;
  delays.cpbRemoval = delays.dpbOutput = delays.dpbOutputDu = delays.duIncrement = 1 + (flags >> 3);

  const std::vector<Unit> all = TakeApart(ByteSpan(input.data(), input.left()), Framing{}).units;
  PictureTracker tracker(codec);
  PresentationOrder order;
  for (size_t from = 0; from < all.size(); from += perPacket) {
    const size_t to = std::min(all.size(), from + perPacket);
    TakePacket(
        tracker,
        {all.begin() + static_cast<std::ptrdiff_t>(from), all.begin() + static_cast<std::ptrdiff_t>(to)},
        order);
  }
  TakeMessages(all, delays);
  while (!order.empty()) order.Take();
  return 0;
}
