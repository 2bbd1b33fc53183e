// Packets of any stream recorded for a page: every packet is counted, and what comes out is JSON that no
// markup is in.

#include "fuzz_input.h"
#include "html/safe_json.h"
#include "html/stream_recorder.h"

namespace {

using namespace qlnmedia;

void Expect(bool holds) {
  if (!holds) __builtin_trap();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  qln::fuzz::DropMessages();
  qln::fuzz::Input input(data, size);
  const uint32_t flags = input.Number(1);
  static constexpr VideoCodec kCodecs[] = {VideoCodec::kH264, VideoCodec::kHevc, VideoCodec::kMpeg2};
  MediaStream stream;
  stream.encrypted = (flags & 4) != 0;
  stream.codecName = "<any>";
  StreamDescription& coded = stream.coded;
  coded.codec = kCodecs[(flags & 3) % 3];
  if ((flags & 8) != 0) coded.lengthBytes = 4;
  coded.timeBase = {1, 50};
  coded.averageRate = {25, 1};
  coded.raw = (flags & 16) != 0;

  html::StreamRecorder recorder(stream, coded);
  int64_t packets = 0;
  while (input.left() > 0 && packets < 200) {
    const uint8_t* from = nullptr;
    const size_t taken = input.Take(input.Number(2), &from);
    const qln::fuzz::Block packet(from, taken, taken);
    PacketView view;
    view.data = {packet.bytes.get(), packet.size};
    if ((flags & 32) != 0) view.pts = view.dts = packets * static_cast<int64_t>(taken % 7);
    view.position = packets;
    recorder.Take(view, packets - static_cast<int64_t>(taken % 3 == 0));
    ++packets;
  }
  recorder.Finish();
  Expect(recorder.packets() == packets);
  Expect(recorder.PacketOfFrame(packets) == -1);
  Expect(recorder.units().size() ==
         (static_cast<size_t>(packets) + html::UnitBlocks::kPictures - 1) / html::UnitBlocks::kPictures);
  const std::string json = html::SafeJson(recorder.ToJson());
  Expect(json.find_first_of("<>&") == std::string::npos);
  return 0;
}
