// Writes with every writer of the library into memory that nobody has set. Run under valgrind, which tells
// when a decision or a byte that comes out depends on such memory.

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "qlnutil/helpers.h"
#include "qlnutil/qlnaac.h"
#include "qlnutil/qlninband.h"
#include "qlnutil/qlnutil.h"

namespace {

using Bytes = std::vector<uint8_t>;

// Sets of x264 (854x480, High) and x265 (854x480, Main 10, BT.2020 PQ).
const Bytes kSps = {0x67, 0x64, 0x00, 0x1E, 0xAC, 0xD9, 0x40, 0xD8, 0x3D, 0xE6, 0xF0, 0x11, 0x00,
                    0x00, 0x03, 0x00, 0x01, 0x00, 0x00, 0x03, 0x00, 0x32, 0x0F, 0x16, 0x2D, 0x96};
const Bytes kPps = {0x68, 0xEB, 0xE3, 0xCB, 0x22, 0xC0};
const Bytes kHevcVps = {0x40, 0x01, 0x0C, 0x01, 0xFF, 0xFF, 0x02, 0x20, 0x00, 0x00, 0x03, 0x00,
                        0x90, 0x00, 0x00, 0x03, 0x00, 0x00, 0x03, 0x00, 0x5A, 0x95, 0x98, 0x09};
const Bytes kHevcSps = {0x42, 0x01, 0x01, 0x02, 0x20, 0x00, 0x00, 0x03, 0x00, 0x90, 0x00, 0x00,
                        0x03, 0x00, 0x00, 0x03, 0x00, 0x5A, 0xA0, 0x06, 0xB2, 0x01, 0xE1, 0xD6,
                        0xD9, 0x65, 0x66, 0x92, 0x4C, 0xAF, 0x01, 0x6A, 0x12, 0x20, 0x12, 0x08,
                        0x00, 0x00, 0x03, 0x00, 0x08, 0x00, 0x00, 0x03, 0x00, 0xC8, 0x40};
const Bytes kHevcPps = {0x44, 0x01, 0xC1, 0x72, 0xB4, 0x62, 0x40};

constexpr uint32_t kRoom = 1u << 17;
uint8_t* scratch = nullptr;
int problems = 0;

// Looks at every byte, so that one that was never set is told.
uint64_t Sum(const uint8_t* bytes, uint64_t size) {
  uint64_t sum = 0;
  for (uint64_t i = 0; i < size; ++i) {
    if (bytes[i] != 0) sum += bytes[i] * (i + 1);
  }
  return sum;
}

void Wrote(const char* what, uint64_t size) {
  std::printf("%s: %llu bytes, %llu\n", what, static_cast<unsigned long long>(size),
              static_cast<unsigned long long>(Sum(scratch, size)));
  problems += size == 0;
  std::free(scratch);
  scratch = static_cast<uint8_t*>(std::malloc(kRoom));
}

QLNBitState State() { return {scratch, kRoom / 2, kRoom * 4, 0}; }

DFrame FrameOf(std::initializer_list<Bytes> units) {
  DFrame frame{};
  frame.frameData = scratch;
  frame.frameCapacity = kRoom;
  for (const Bytes& unit : units) {
    const uint8_t code[] = {0, 0, 0, 1};
    std::memcpy(scratch + frame.frameSize, code, sizeof code);
    std::memcpy(scratch + frame.frameSize + 4, unit.data(), unit.size());
    frame.frameSize += static_cast<uint32_t>(4 + unit.size());
  }
  return frame;
}

void WriteSets() {
  auto sps = qlnutil::ReadH264Sps(kSps.data(), kSps.size());
  auto pps = qlnutil::ReadH264Pps(kPps.data(), kPps.size());
  QLNBitState state = State();
  Wrote("H.264 SPS", qlnutilWrite_SPS(&state, &*sps));
  state = State();
  Wrote("H.264 PPS", qlnutilWrite_PPS(&state, &*pps));
  auto vps = qlnutil::ReadHevcVps(kHevcVps.data(), kHevcVps.size());
  auto hevcSps = qlnutil::ReadHevcSps(kHevcSps.data(), kHevcSps.size());
  auto hevcPps = qlnutil::ReadHevcPps(kHevcPps.data(), kHevcPps.size());
  Wrote("HEVC VPS", qlnutilWrite_HEVC_VPS(&*vps, scratch));
  Wrote("HEVC SPS", qlnutilWrite_HEVC_SPS(&*hevcSps, scratch, kRoom));
  Wrote("HEVC PPS", qlnutilWrite_HEVC_PPS(&*hevcPps, scratch));
  const HevcConfigRecord config{};
  state = State();
  Wrote("hvcC",
        qlnutilWrite_HEVC_CR(&state, &config, kHevcVps.data(), kHevcSps.data(), kHevcPps.data(),
                             static_cast<int32_t>(kHevcVps.size()), static_cast<int32_t>(kHevcSps.size()),
                             static_cast<int32_t>(kHevcPps.size())));
  const DvvcConfigRecord dolbyVision{};
  state = State();
  Wrote("dvcC", qlnutilWrite_DVVC_CR(&state, &dolbyVision));
}

void WriteIntoFrames() {
  const Bytes slice = {0x65, 0x88, 0x84, 0x00, 0x10};
  const Bytes hevcSlice = {0x26, 0x01, 0xAF, 0x08, 0x40};
  const qlnutil::CaptionTriplet triplet{true, 0, 0x94, 0x20};

  DFrame frame = FrameOf({kSps, kPps, slice});
  qlnutil::SetCaptions(&frame, &triplet, 1, qlnutil::CaptionRate::k25, 1);
  qlnutilAddAVCCaptions(&frame, frame.captionData, frame.captionSize, 0);
  Wrote("H.264 captions", frame.frameSize);

  frame = FrameOf({kSps, kPps, slice});
  frame.frameType = 0x10000000;
  qlnutilAddNalUnits(&frame, kSps.data(), static_cast<int32_t>(kSps.size()), 1, 1, 1, 1, 90000, 0, 2, 2, 0);
  Wrote("H.264 units", frame.frameSize);

  frame = FrameOf({kSps, kPps, slice});
  frame.colorFlags = QLN_COLOR_MATRIX | QLN_COLOR_TRANSFER | QLN_COLOR_PRIMARIES;
  frame.matrixCoefficients = frame.transferCharacteristics = frame.colourPrimaries = 1;
  qlnutilWriteColorimetryToSPS(&frame, 0x48323634);
  Wrote("H.264 colour", frame.frameSize);

  frame = FrameOf({kHevcVps, kHevcSps, kHevcPps, hevcSlice});
  qlnutil::SetCaptions(&frame, &triplet, 1, qlnutil::CaptionRate::k25, 1);
  frame.frameSize += qlnUtilAddHevcCaptions(&frame, 0);
  frame.timeCodeA = 1000;
  qlnutilAddHEVCTimeCode(&frame, 3);
  frame.colorFlags = QLN_COLOR_MASTERING | QLN_COLOR_MAX_CLL | QLN_COLOR_MAX_FALL;
  frame.maxDisplayLuminance = 1000;
  qlnutilWrite_HDR_WCG_SEI_Packet(&frame, 0x68766331);
  Wrote("HEVC captions, timecode, HDR", frame.frameSize);
}

}  // namespace

int main() {
  scratch = static_cast<uint8_t*>(std::malloc(kRoom));
  WriteSets();
  WriteIntoFrames();
  std::free(scratch);
  return problems;
}
