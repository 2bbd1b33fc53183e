// Picture timing payloads under any layout: what was read and written again reads the same.

#include "fuzz_input.h"
#include "timing/timecode.h"

namespace {

using namespace qlnmedia;

void Expect(bool holds) {
  if (!holds) __builtin_trap();
}

// Any layout that a sequence parameter set can ask for.
SpsFacts LayoutOf(qln::fuzz::Input& input) {
  SpsFacts sps;
  const uint32_t flags = input.Number(1);
  sps.h264.hrd = (flags & 1) != 0;
  sps.h264.picStruct = (flags & 2) != 0;
  if (sps.h264.hrd) {
    sps.h264.cpbRemovalDelayLength = input.Number(1) % 32 + 1;
    sps.h264.dpbOutputDelayLength = input.Number(1) % 32 + 1;
    sps.h264.timeOffsetLength = input.Number(1) % 32;
  }
  return sps;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  qln::fuzz::Input input(data, size);
  SpsFacts sps = LayoutOf(input);
  constexpr uint8_t kTypes[] = {1, 2, 4, 8, 16, 32, 64, 132};
  const uint8_t type = kTypes[input.Number(1) % std::size(kTypes)];
  const uint32_t count = input.Number(3);
  const Bytes payload(input.data(), input.data() + input.left());
  const std::optional<PictureTiming> was = ReadPictureTiming(payload, sps);
  if (!was) return 0;
  sps.h264.picStruct = true;
  const Bytes made = MakePictureTiming(*was, sps, count, type);
  const std::optional<PictureTiming> is = ReadPictureTiming(made, sps);
  Expect(is && is->cpbRemovalDelay == was->cpbRemovalDelay && is->dpbOutputDelay == was->dpbOutputDelay &&
         is->picStruct == was->picStruct);
  for (int i = 0; i < 3; ++i) {
    if (was->clocks[i])
      Expect(is->clocks[i] && is->fieldBased[i] == was->fieldBased[i] &&
             is->scanTypes[i] == was->scanTypes[i]);
  }
  Expect(MakePictureTiming(*is, sps, count, type) == made);
  return 0;
}
