// Streams that come through a pipe, raw, transport or Matroska: whatever they say, they are refused by a
// text, or go out, raw ones with the coded slices that came.

#include <string>

#include "fuzz_input.h"
#include "nameless_file.h"
#include "qlnmedia/patch.h"
#include "units/unit_types.h"
#include "units/units.h"

namespace {

using namespace qlnmedia;
using qln::fuzz::NamelessFile;

void Expect(bool holds) {
  if (!holds) __builtin_trap();
}

PatchOptions OptionsOf(uint32_t steer) {
  PatchOptions options;
  options.in = "in";
  options.out = "out";
  if ((steer & 1) != 0) options.colour = ColourCodes{9, 16, 9};
  if ((steer & 2) != 0) options.lightLevel = LightLevel{1000, 400};
  if ((steer & 4) != 0) options.timecode = "00:59:59:20";
  if ((steer & 8) != 0) options.delimiters = true;
  if ((steer & 16) != 0) options.recoveryPoints = true;
  if ((steer & 32) != 0) options.rate = "25";
  if ((steer & 64) != 0) options.replaceCaptions = true;
  if (!options.beyondCaptions()) options.fullRange = true;
  return options;
}

std::vector<Bytes> SlicesOf(Codec codec, const Bytes& stream) {
  std::vector<Bytes> slices;
  for (const Unit& unit : TakeApart(stream, Framing{}).units) {
    if (IsSlice(codec, UnitType(codec, unit.bytes))) slices.push_back(unit.bytes);
  }
  return slices;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  qln::fuzz::DropMessages();
  if (size < 1) return 0;
  const uint32_t steer = data[0];
  const NamelessFile in(data + 1, size - 1);
  const NamelessFile out(nullptr, 0);
  const Bytes input(data + 1, data + size);
  size_t lines = 0;
  try {
    PatchLive(OptionsOf(steer), {in.number(), out.number(), [&lines](const std::string&) { ++lines; }});
  } catch (const Error& error) {
    Expect(*error.what() != 0);
    return 0;
  }
  const Bytes output = out.Contents();
  const bool raw = input.size() > 2 && input[0] == 0 && input[1] == 0;
  const auto kept = [&](Codec codec) { return SlicesOf(codec, input) == SlicesOf(codec, output); };
  Expect(!raw || kept(Codec::kH264) || kept(Codec::kHevc));
  return 0;
}
