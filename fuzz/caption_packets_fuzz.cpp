// Caption packets of every kind: what a reader takes is written, read again and the same.

#include <string>

#include "captions/anc_packets.h"
#include "captions/caption_sample.h"
#include "captions/cdp.h"
#include "captions/old_user_data.h"
#include "captions/user_data.h"
#include "fuzz_input.h"

namespace {

using namespace qlnmedia::captions;

void Expect(bool holds) {
  if (!holds) __builtin_trap();
}

void TakeCdp(const Bytes& bytes) {
  std::string reason;
  const std::optional<CaptionPacket> packet = ReadCdp(bytes, &reason);
  if (!packet) return Expect(!reason.empty());
  const Bytes written = WriteCdp(*packet);
  const std::optional<CaptionPacket> again = ReadCdp(written, &reason);
  Expect(again && *again == *packet);
  Expect(WriteCdp(*again) == written);
}

void TakeAnc(const Bytes& bytes) {
  std::string reason;
  FramePacket(bytes);
  const std::optional<Bytes> words = UnwrapAnc(bytes, &reason);
  if (!words) return Expect(!reason.empty());
  Bytes anc = WrapInAnc(*words);
  Expect(UnwrapAnc(anc, &reason) == words);
  anc.push_back(AncChecksum(anc));
  Expect(UnwrapAnc(anc, &reason) == words);
  TakeCdp(*words);
}

void TakeUserData(const Bytes& bytes) {
  const auto triplets = ReadUserData(bytes);
  if (triplets) {
    Expect(triplets->size() <= kMostTriplets);
    Expect(ReadUserData(MakeUserData(*triplets)) == triplets);
    Expect(ReadRegisteredUserData(MakeRegisteredUserData(*triplets)) == triplets);
  }
  ReadRegisteredUserData(bytes);
}

// The older forms hold no more pairs than there is room for.
void TakeOldUserData(const Bytes& bytes) {
  const auto scte20 = ReadScte20UserData(bytes, bytes.size() % 2 == 0);
  const auto dvd = ReadDvdUserData(bytes);
  Expect(IsOldUserData(bytes) == (scte20.has_value() || dvd.has_value()));
  if (scte20) Expect(scte20->size() * 26 + 21 <= bytes.size() * 8);
  if (dvd) Expect(dvd->size() * 3 + 5 <= bytes.size());
}

void TakeSample(const Bytes& bytes) {
  std::string reason;
  const std::optional<CaptionSample> sample = ReadCaptionSample(bytes, &reason);
  if (!sample) return Expect(!reason.empty());
  size_t triplets = 0;
  for (const std::vector<Triplet>& picture : sample->pictures) triplets += picture.size();
  Expect(triplets * 2 <= bytes.size());
}

void TakeAncPackets(const Bytes& bytes) {
  std::vector<std::string> damage;
  size_t words = 0;
  for (const AncPacket& packet : ReadSt2038(bytes, &damage)) {
    words += packet.words.size() + 7;  // six of the head, and the checksum
    std::optional<Rate> rate;
    std::string reason;
    CaptionsOfAnc(packet, &rate, &reason);
  }
  Expect(words * 10 <= bytes.size() * 8);
  Expect(damage.size() <= bytes.size());
}

// The same bytes with a length and a checksum that are right, so that the sections come to be read.
Bytes Repaired(Bytes bytes) {
  if (bytes.size() < 4 || bytes.size() > 255) return bytes;
  bytes[0] = 0x96;
  bytes[1] = 0x69;
  bytes[2] = static_cast<uint8_t>(bytes.size());
  bytes.back() = 0;
  bytes.back() = static_cast<uint8_t>(-AncChecksum(bytes));
  return bytes;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const Bytes bytes(data, data + size);
  TakeCdp(bytes);
  TakeCdp(Repaired(bytes));
  TakeAnc(bytes);
  TakeUserData(bytes);
  TakeOldUserData(bytes);
  TakeSample(bytes);
  TakeAncPackets(bytes);
  return 0;
}
