// MXF files in memory: whatever their triplets say, a change of nothing is the input, and what was changed
// comes out of the same elements while all others are those of the input.

#include <vector>

#include "container/mp4/memory_sink.h"
#include "container/mxf/carrier.h"
#include "container/mxf/layout_check.h"
#include "fuzz_input.h"
#include "mutators/formats.h"

namespace {

using qlnmedia::Codec;
using qlnmedia::mp4::MemorySink;
using qlnmedia::mp4::MemorySource;
using namespace qlnmedia::mxf;

void Expect(bool holds) {
  if (!holds) __builtin_trap();
}

// Changes a picture as a number says.
Bytes Changed(const Bytes& bytes, uint32_t random) {
  Bytes is = bytes;
  const size_t at = (random >> 8) % is.size();
  const auto place = is.begin() + static_cast<std::ptrdiff_t>(at);
  if (random >> 30 == 1) {
    is.erase(place + 1, is.end());
  } else if (random >> 30 == 2) {
    is.insert(place, (random >> 12) % 700, 0x55);
  } else if (random >> 30 == 3) {
    is.insert(is.end(), (random >> 12) % 70, is.back());
  }
  return is;
}

Bytes Carried(const Bytes& bytes, uint32_t seed, bool changes, std::vector<Bytes>& pictures) {
  const MemorySource source(bytes);
  Carrier carrier(source);
  PictureReader reader(source, carrier.layout(), carrier.tracks());
  for (Picture picture; reader.Next(picture);) {
    seed = seed * 1664525 + 1013904223;
    const bool kept = !changes || carrier.isConstant(picture.track);
    pictures.push_back(kept ? picture.bytes : Changed(picture.bytes, seed));
    carrier.Replace(picture, pictures.back(), Codec::kH264);
    picture.bytes.clear();
  }
  FactsByTrack facts;
  if (changes && (seed & 1) != 0) {
    DescriptorFacts told;
    told.colour = qlnmedia::ColourCodes{9, 16, 9};
    told.mastering = qlnmedia::MasteringDisplay{};
    told.fullRange = true;
    told.sampleAspect = qlnmedia::SampleAspect{4, 3};
    told.avcLevel = uint8_t{41};
    told.avcSet3 = (seed & 4) != 0;
    for (const PictureTrack& track : carrier.tracks()) facts[{track.bodySid, track.number}] = told;
  }
  carrier.Prepare(facts);
  MemorySink sink;
  carrier.Write(sink);
  CheckLayout(source, carrier.layout(), MemorySource(sink.bytes()), "out");
  return sink.bytes();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  qln::fuzz::Input input(data, size);
  const uint32_t seed = input.Number(4);
  if (size < 4) return 0;
  const Bytes bytes(data + 4, data + size);
  try {
    std::vector<Bytes> was, is;
    Expect(Carried(bytes, seed, false, was) == bytes);
    const Bytes out = Carried(bytes, seed, true, is);
    // The output's pictures are those that went in.
    std::vector<Bytes> comes;
    Carried(out, seed, false, comes);
    Expect(comes == is);
  } catch (const qlnmedia::Error&) {
    // refused
  }
  return 0;
}

QLN_FUZZ_BY_PIECES(qln::fuzz::Triplets(), 4)
