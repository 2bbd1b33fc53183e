// Makes the metadata of HDR10 out of those of HLG: hdr10_from_hlg IN.hevc OUT.hevc
//
// For pictures whose samples a converter has turned from HLG into PQ, and whose encoder still says what it
// was set up for. The pictures come from a byte stream in which each begins with an access unit delimiter.
#include <qlnutil/helpers.h>
#include <qlnutil/qlninband.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <fstream>
#include <iterator>
#include <vector>

namespace {

using Bytes = std::vector<uint8_t>;

constexpr uint32_t kHevc = 0x68766331;  // "hvc1"

// What the display was that the pictures were graded on: primaries of ITU-R BT.2020 in the message's units of
// 0.00002, 0.005 to 1000 cd/m2. The library cuts off what is less than a unit, hence the half.
void DescribeDisplay(DFrame& frame) {
  const int primaries[] = {35400, 14600, 8500, 39850, 6550, 2300, 15635, 16450};
  std::transform(std::begin(primaries), std::end(primaries), frame.displayPrimaries,
                 [](int units) { return (units + 0.5) / 50000; });
  frame.maxDisplayLuminance = 1000;
  frame.minDisplayLuminance = 0.005;
  frame.maxContentLightLevel = 1000;
  frame.maxFrameAverageLightLevel = 400;
  frame.transferCharacteristics = 16;  // SMPTE ST 2084 in place of 18; primaries and matrix stay
}

// Returns whether the picture has parameter sets, and so was changed.
bool MakeHdr10(Bytes& picture) {
  DFrame frame{};
  const size_t size = picture.size();
  picture.resize(size + 1024);  // both functions work in the frame's own buffer
  frame.frameData = picture.data();
  frame.frameSize = static_cast<uint32_t>(size);
  frame.frameCapacity = static_cast<uint32_t>(picture.size());
  DescribeDisplay(frame);
  frame.colorFlags = QLN_COLOR_TRANSFER;
  const bool changed = qlnutilWriteColorimetryToSPS(&frame, kHevc) == 1;
  frame.colorFlags = QLN_COLOR_MASTERING | QLN_COLOR_MAX_CLL | QLN_COLOR_MAX_FALL;
  const bool described = changed && qlnutilWrite_HDR_WCG_SEI_Packet(&frame, kHevc) != 0;
  picture.resize(frame.frameSize);
  return described;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 3) {
    std::fprintf(stderr, "usage: hdr10_from_hlg IN.hevc OUT.hevc\n");
    return 2;
  }
  std::ifstream in(argv[1], std::ios::binary);
  const Bytes stream((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());

  std::vector<Bytes> pictures;
  for (const qlnutil::NalUnit& unit : qlnutil::StartCodeUnits(stream.data(), stream.size())) {
    if (unit.HevcType() == 35 || pictures.empty()) pictures.emplace_back();
    const uint8_t code[] = {0, 0, 0, 1};
    Bytes& picture = pictures.back();
    picture.insert(picture.end(), std::begin(code), std::end(code));
    picture.insert(picture.end(), unit.data, unit.data + unit.size);
  }

  std::ofstream out(argv[2], std::ios::binary);
  size_t changed = 0;
  for (Bytes& picture : pictures) {
    changed += MakeHdr10(picture) ? 1 : 0;
    out.write(reinterpret_cast<const char*>(picture.data()), static_cast<std::streamsize>(picture.size()));
  }
  std::printf("%zu of %zu pictures\n", changed, pictures.size());
  return out.flush() && changed != 0 ? 0 : 1;
}
