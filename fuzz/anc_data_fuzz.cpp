// Ancillary data of MXF, transport streams and files of its elements: packets that a reader takes are
// written, read again and the same, whatever stood around them; and whatever is damaged is named.

#include <string>
#include <vector>

#include "base/error.h"
#include "captions/anc_element.h"
#include "container/anc_file.h"
#include "container/service_info.h"
#include "fuzz_input.h"

namespace {

using namespace qlnmedia;
using namespace qlnmedia::captions;
using Span = std::span<const uint8_t>;

void Expect(bool holds) {
  if (!holds) __builtin_trap();
}

// What was read, and what was said of it.
void TakePackets(std::vector<AncPacket> packets, const std::vector<std::string>& damage) {
  for (const std::string& what : damage) Expect(!what.empty());
  for (AncPacket& packet : packets) {
    std::string reason;
    std::optional<Rate> rate;
    const auto captions = CaptionsOfAnc(packet, &rate, &reason);
    Expect(!captions || reason.empty());
    if (packet.did == 0x61 && packet.sdid == 0x01) {
      const std::optional<CaptionPacket> cdp = ReadCdp(packet.words, &reason);
      if (cdp) ServicesOfSection(cdp->serviceInfo);
    }
    FieldOfLine(packet.line, 1080, true);
    // Elements do not keep these.
    packet.offset = 0;
    packet.parityErrors = false;
    packet.line &= 0xFFFF;
  }
  std::vector<std::string> none;
  size_t used = 0;
  const captions::Bytes written = WriteAncElement(packets, false);
  Expect(ReadAncElement(written, AncElementKind::kPackets, &none, &used) == packets);
  Expect(none.empty() && used == written.size());
}

void TakeFile(Span bytes) {
  std::vector<std::string> damage;
  const std::string_view text(reinterpret_cast<const char*>(bytes.data()), bytes.size());
  try {
    const CaptionTrack track = ReadAncFile(text, "file", {}, &damage);
    Expect(!track.events.empty());
    int64_t last = -1;
    for (const CaptionEvent& event : track.events) {
      Expect(event.at > last);
      last = event.at;
    }
  } catch (const Error&) {
    // refused
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size == 0) return 0;
  qln::fuzz::Block block(data + 1, size - 1, size - 1);
  const Span bytes(block.data(), size - 1);
  std::vector<std::string> damage;
  switch (data[0] % 4) {
    case 0:
      TakePackets(ReadAncElement(bytes, AncElementKind::kPackets, &damage), damage);
      break;
    case 1:
      TakePackets(ReadAncElement(bytes, AncElementKind::kLines, &damage), damage);
      break;
    case 2:
      TakePackets(ReadSt2038(bytes, &damage), damage);
      break;
    default:
      TakeFile(bytes);
  }
  return 0;
}
