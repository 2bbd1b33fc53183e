// Packets taken apart into units and put together again, SEI messages read and taken out, emulation
// prevention both ways: whatever the bytes are, none is lost and none is made up. Program tables beside them.

#include "container/caption_services.h"
#include "fuzz_input.h"
#include "mutators/formats.h"
#include "units/access_unit.h"
#include "units/mpeg2.h"
#include "units/units.h"

namespace {

using namespace qlnmedia;

void Expect(bool holds) {
  if (!holds) __builtin_trap();
}

bool Same(const SeiMessage& a, const SeiMessage& b) { return a.type == b.type && a.payload == b.payload; }

bool Same(const std::vector<SeiMessage>& a, const std::vector<SeiMessage>& b) {
  return std::equal(a.begin(), a.end(), b.begin(), b.end(),
                    [](const SeiMessage& one, const SeiMessage& other) { return Same(one, other); });
}

void TakeSei(Codec codec, ByteSpan unit, int unwanted) {
  bool whole = false;
  const std::vector<SeiMessage> messages = ReadSeiMessages(codec, unit, &whole);
  if (whole) {
    const Bytes made = MakeSeiUnit(unit.first(codec == Codec::kH264 ? 1 : 2), messages);
    bool again = false;
    Expect(Same(ReadSeiMessages(codec, made, &again), messages) && again);
  }
  std::vector<SeiMessage> wanted = messages;
  std::erase_if(wanted, [unwanted](const SeiMessage& message) { return message.type == unwanted; });
  Bytes left(unit.begin(), unit.end());
  int removed = 0;
  const SeiRemoval removal = RemoveSeiMessages(
      codec, left, [unwanted](const SeiMessage& message) { return message.type == unwanted; }, &removed);
  if (removal == SeiRemoval::kUntouched) {
    Expect(removed == 0 && std::equal(left.begin(), left.end(), unit.begin(), unit.end()));
  } else {
    Expect(whole && static_cast<size_t>(removed) == messages.size() - wanted.size());
    Expect(removal == SeiRemoval::kEmptied ? wanted.empty() : Same(ReadSeiMessages(codec, left), wanted));
  }
}

void TakeUnits(Codec codec, ByteSpan data, Framing framing, int unwanted) {
  UnitRun run = TakeApart(data, framing);
  const Bytes again = PutTogether(run, framing);
  Expect(std::equal(again.begin(), again.end(), data.begin(), data.end()));
  for (const Unit& unit : run.units) TakeSei(codec, unit.bytes, unwanted);
  IsRandomAccess(codec, run.units);
  const size_t count = run.units.size();
  const size_t place = FirstPictureUnit(codec, run.units);
  InsertSei(codec, run.units, {0x4E, 0x01, 0x80});
  Expect(run.units.size() == count + 1 && run.units[place].bytes.size() == 3);
}

void TakeMpeg2(ByteSpan data) {
  for (const auto& units : {Mpeg2Units(data), Mpeg2Head(data)}) {
    size_t at = 0;
    for (const Mpeg2Unit& unit : units) {
      Expect(unit.at == at && unit.size != 0);
      at += unit.size;
    }
    Expect(at == data.size());
  }
  ReadMpeg2Picture(data);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  qln::fuzz::Input input(data, size);
  const uint32_t steer = input.Number(1);
  const int unwanted = static_cast<int>(input.Number(1));
  const Codec codec = (steer & 1) != 0 ? Codec::kHevc : Codec::kH264;
  qln::fuzz::Block block(input.data(), input.left(), input.left());
  const ByteSpan bytes(block.data(), block.size);
  TakeUnits(codec, bytes, Framing{static_cast<int>(steer >> 1) % 5}, unwanted);
  TakeSei(codec, bytes, unwanted);
  const Bytes escaped = Escape(bytes);
  const Bytes back = Unescape(escaped);
  Expect(std::equal(back.begin(), back.end(), bytes.begin(), bytes.end()));
  TakeMpeg2(bytes);
  AnnouncedServices(bytes);
  return 0;
}

QLN_FUZZ_BY_PIECES(qln::fuzz::Units(), 2)
