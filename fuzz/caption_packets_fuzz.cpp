// Caption packets of every kind: what a reader takes is written, read again and the same.

#include <string>

#include "captions/cdp.h"
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
  return 0;
}
