// The stream editor on any stream: what goes in comes out, in its order; without changes byte for byte, and
// with any changes with its slices as they were, or it is refused.

#include "qlnmedia/stream_editor.h"

#include "fuzz_input.h"
#include "units/access_unit.h"
#include "units/coded_stream.h"

namespace {

using namespace qlnmedia;

void Expect(bool holds) {
  if (!holds) __builtin_trap();
}

std::vector<Bytes> SlicesOf(const StreamDescription& stream, const Bytes& data) {
  const ConfigRecord config = ConfigOf(stream);
  std::vector<Bytes> slices;
  for (const Unit& unit : TakeApart(data, config.framing).units) {
    if (IsSlice(config.codec, UnitType(config.codec, unit.bytes))) slices.push_back(unit.bytes);
  }
  return slices;
}

StreamChanges ChangesOf(uint32_t flags) {
  StreamChanges changes;
  if ((flags & 1) != 0) changes.colour = ColourCodes{9, 16, 9};
  if ((flags & 2) != 0) changes.lightLevel = LightLevel{1000, 400};
  if ((flags & 4) != 0) changes.timecode = "00:59:59:20";
  if ((flags & 8) != 0) changes.delimiters = true;
  if ((flags & 16) != 0) changes.recoveryPoints = true;
  if ((flags & 32) != 0)
    changes.captionProvider = [](uint32_t place) {
      return std::vector<captions::Triplet>(place % 40, {true, captions::CcType::kServiceData, 1, 2});
    };
  if ((flags & 64) != 0) changes.interlaced = (flags & 4) == 0;
  changes.replaceCaptions = (flags & 128) != 0;
  changes.rate = changes.timecode.empty() ? "" : "25";
  return changes;
}

std::vector<AccessUnit> PacketsOf(qln::fuzz::Input& input) {
  std::vector<AccessUnit> packets;
  while (input.left() != 0 && packets.size() < 100) {
    const auto pts = static_cast<int64_t>(input.Number(1));
    const uint32_t size = input.Number(2);
    AccessUnit packet;
    const uint8_t* from = nullptr;
    const size_t taken = input.Take(size, &from);
    if (taken != 0) packet.data.assign(from, from + taken);
    packet.pts = pts == 0 ? kNoTime : pts;
    packet.key = (pts & 1) != 0;
    packets.push_back(std::move(packet));
  }
  return packets;
}

void Run(const StreamDescription& stream, const StreamChanges& changes,
         const std::vector<AccessUnit>& packets) {
  StreamSurvey survey(stream);
  for (const AccessUnit& packet : packets) survey.Add({packet.data, packet.pts, packet.dts, packet.key, -1});
  survey.Finish();
  const bool nothing = !changes.beyondCaptions() && !changes.captionProvider && !changes.replaceCaptions;
  StreamEditor editor(stream, changes, &survey, "stream");
  size_t pulled = 0;
  const auto pull = [&] {
    while (const std::optional<EditedUnit> edited = editor.Pull()) {
      const AccessUnit& source = packets.at(pulled++);
      Expect(edited->unit.pts == source.pts && (edited->unit.key || !source.key));
      Expect(edited->changed || edited->unit.data == source.data);
      Expect(!nothing || !edited->changed);
      if (stream.codec != VideoCodec::kMpeg2)
        Expect(SlicesOf(stream, edited->unit.data) == SlicesOf(stream, source.data));
    }
  };
  for (const AccessUnit& packet : packets) {
    editor.Push(packet);
    pull();
  }
  editor.Finish();
  pull();
  Expect(pulled == packets.size());
  if (nothing) Expect(editor.privateData() == stream.privateData);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  qln::fuzz::DropMessages();
  qln::fuzz::Input input(data, size);
  const uint32_t flags = input.Number(1);
  const uint32_t form = input.Number(1);
  StreamDescription stream;
  static constexpr VideoCodec kCodecs[] = {VideoCodec::kH264, VideoCodec::kHevc, VideoCodec::kMpeg2};
  stream.codec = kCodecs[form % 3];
  static constexpr int kLengths[] = {0, 1, 2, 4};
  if ((form & 64) == 0) stream.lengthBytes = kLengths[form >> 4 & 3];
  stream.timeBase = {1, 25};
  stream.averageRate = stream.baseRate = {25, 1};
  stream.raw = (form & 128) != 0;
  const uint32_t privateSize = input.Number(1);
  const uint8_t* from = nullptr;
  const size_t taken = input.Take(privateSize, &from);
  if (taken != 0) stream.privateData.assign(from, from + taken);
  const StreamChanges changes = ChangesOf(flags);
  const std::vector<AccessUnit> packets = PacketsOf(input);
  try {
    Run(stream, changes, packets);
  } catch (const Error&) {
  }
  return 0;
}
