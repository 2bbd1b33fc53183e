// The same captions as each form holds them, against each other: pictures' user data, MacCaption files,
// ancillary data of MXF and of transport streams, and Scenarist files for what these can hold.

#include <string>
#include <utility>
#include <vector>

#include "captions/anc_element.h"
#include "captions/anc_packets.h"
#include "captions/anc_writer.h"
#include "captions/cdp.h"
#include "captions/user_data.h"
#include "fuzz_input.h"
#include "qlnmedia/caption_file.h"

namespace {

using namespace qlnmedia;
using namespace qlnmedia::captions;
using Pictures = std::vector<CaptionPicture>;

void Expect(bool holds) {
  if (!holds) __builtin_trap();
}

bool Same(const Pictures& a, const Pictures& b) {
  if (a.size() != b.size()) return false;
  for (size_t i = 0; i < a.size(); ++i) {
    if (a[i].number != b[i].number || a[i].triplets != b[i].triplets) return false;
  }
  return true;
}

// A rate and labels, then pictures: how many go without captions in front of it and how many triplets it has,
// and these.
CaptionPictureList TakePictures(qln::fuzz::Input& input) {
  const uint32_t head = input.Number(1);
  const RateInfo& info = InfoOf(static_cast<Rate>(head % kRateCount));
  CaptionPictureList list{
      {info.numerator, info.denominator}, head / kRateCount % 2 != 0 && info.dropFrameAllowed, {}};
  int64_t number = -1;
  while (input.left() != 0 && list.pictures.size() < 200) {
    const uint32_t picture = input.Number(1);
    number += 1 + picture % 4;
    std::vector<Triplet> triplets(1 + picture / 4 % kMostTriplets);
    for (Triplet& triplet : triplets) {
      const uint32_t kind = input.Number(1);
      triplet = {(kind & 4) != 0, static_cast<CcType>(kind & 3), static_cast<uint8_t>(input.Number(1)),
                 static_cast<uint8_t>(input.Number(1))};
    }
    list.pictures.push_back({number, std::move(triplets)});
  }
  return list;
}

void HoldUserData(const Pictures& pictures) {
  for (const CaptionPicture& picture : pictures) {
    Expect(ReadUserData(MakeUserData(picture.triplets)) == picture.triplets);
    Expect(ReadRegisteredUserData(MakeRegisteredUserData(picture.triplets)) == picture.triplets);
  }
}

// Both forms of ancillary data, each read back into what stands in the other.
void HoldAncillaryData(const Pictures& pictures, Rate rate) {
  AncTrackWriter writer(rate);
  for (const CaptionPicture& picture : pictures) {
    std::vector<std::string> damage;
    size_t used = 0;
    const Bytes element = writer.Element(picture.triplets);
    const std::vector<AncPacket> packets = ReadAncElement(element, AncElementKind::kPackets, &damage, &used);
    Expect(packets.size() == 1 && damage.empty() && used == element.size());
    std::vector<AncPacket> carried = ReadSt2038(WriteSt2038(packets.front()), &damage);
    Expect(carried.size() == 1 && damage.empty() && carried.front().words == packets.front().words);
    for (const AncPacket& packet : {packets.front(), carried.front()}) {
      std::optional<Rate> told;
      std::string reason;
      Expect(CaptionsOfAnc(packet, &told, &reason) == picture.triplets && told == rate);
    }
  }
}

// The pairs of line 21's first field that say something, a picture each.
Pictures PairsOfFieldOne(const Pictures& pictures) {
  Pictures pairs;
  for (const CaptionPicture& picture : pictures) {
    for (const Triplet& triplet : picture.triplets) {
      if (!triplet.valid || triplet.type != CcType::kField1) continue;
      if ((triplet.first & 0x7F) == 0 && (triplet.second & 0x7F) == 0) continue;
      pairs.push_back({picture.number, {triplet}});
      break;
    }
  }
  return pairs;
}

void HoldScenarist(const CaptionPictureList& list) {
  CaptionPictureList pairs{{30000, 1001}, list.dropFrame, PairsOfFieldOne(list.pictures)};
  if (pairs.pictures.empty()) return;
  const CaptionPictureList read = ParseCaptionFile(CaptionFileText(pairs, CaptionFileKind::kScc));
  Expect(read.dropFrame == pairs.dropFrame);
  Expect(Same(PairsOfFieldOne(read.pictures), pairs.pictures));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  qln::fuzz::Input input(data, size);
  const CaptionPictureList list = TakePictures(input);
  if (list.pictures.empty()) return 0;
  HoldUserData(list.pictures);
  HoldAncillaryData(list.pictures, *RateOf(list.rate.numerator, list.rate.denominator));
  const CaptionPictureList read = ParseCaptionFile(CaptionFileText(list, CaptionFileKind::kMcc));
  Expect(read.rate == list.rate && read.dropFrame == list.dropFrame && Same(read.pictures, list.pictures));
  HoldScenarist(list);
  return 0;
}
