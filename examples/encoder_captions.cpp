// Puts captions into the pictures of an H.264 encoder on their way to a file: encoder_captions IN.h264
// OUT.h264
//
// The pictures come from a byte stream here, in which each begins with an access unit delimiter; a capture
// host has them from its encoder one by one.
#include <qlnutil/helpers.h>
#include <qlnutil/qlninband.h>

#include <cstdint>
#include <cstdio>
#include <fstream>
#include <iterator>
#include <vector>

namespace {

using Bytes = std::vector<uint8_t>;

// "HI" on line 21, field 1, as pop-on captions go: load, place, characters, show; each with odd parity,
// control codes twice. The other pictures have nothing to say.
qlnutil::CaptionTriplet TripletOf(size_t picture) {
  constexpr uint8_t pairs[][2] = {{0x94, 0x20}, {0x94, 0x20}, {0x94, 0x70}, {0x94, 0x70},
                                  {0xC8, 0x49}, {0x94, 0x2F}, {0x94, 0x2F}};
  if (picture >= std::size(pairs)) return {true, 0, 0x80, 0x80};
  return {true, 0, pairs[picture][0], pairs[picture][1]};
}

bool AddCaptions(Bytes& picture, size_t number) {
  DFrame frame{};
  const size_t size = picture.size();
  picture.resize(size + 1024);  // the unit goes into the frame's own buffer
  frame.frameData = picture.data();
  frame.frameSize = static_cast<uint32_t>(size);
  frame.frameCapacity = static_cast<uint32_t>(picture.size());
  const qlnutil::CaptionTriplet triplet = TripletOf(number);
  const bool added =
      qlnutil::SetCaptions(&frame, &triplet, 1, qlnutil::CaptionRate::k25, static_cast<uint16_t>(number)) &&
      qlnutilAddAVCCaptions(&frame, frame.captionData, frame.captionSize, 0) == 0;
  picture.resize(frame.frameSize);
  return added;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 3) {
    std::fprintf(stderr, "usage: encoder_captions IN.h264 OUT.h264\n");
    return 2;
  }
  std::ifstream in(argv[1], std::ios::binary);
  const Bytes stream((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());

  std::vector<Bytes> pictures;
  for (const qlnutil::NalUnit& unit : qlnutil::StartCodeUnits(stream.data(), stream.size())) {
    if (unit.H264Type() == 9 || pictures.empty()) pictures.emplace_back();
    const uint8_t code[] = {0, 0, 0, 1};
    Bytes& picture = pictures.back();
    picture.insert(picture.end(), std::begin(code), std::end(code));
    picture.insert(picture.end(), unit.data, unit.data + unit.size);
  }

  std::ofstream out(argv[2], std::ios::binary);
  for (size_t i = 0; i < pictures.size(); ++i) {
    if (!AddCaptions(pictures[i], i)) {
      std::fprintf(stderr, "encoder_captions: picture %zu took no captions\n", i);
      return 1;
    }
    out.write(reinterpret_cast<const char*>(pictures[i].data()),
              static_cast<std::streamsize>(pictures[i].size()));
  }
  std::printf("%zu pictures\n", pictures.size());
  return out.flush() ? 0 : 1;
}
