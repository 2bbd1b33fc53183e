// Counts the kinds of pictures, and asks picture timing and output order for their fields.

#include "inspect/scan_facts.h"

#include <optional>

#include "pictures/picture_tracker.h"
#include "sets/set_elements.h"
#include "timing/hevc_timing.h"
#include "timing/timecode.h"

namespace qlnmedia {

namespace {

constexpr char kTop[] = "top field first";
constexpr char kBottom[] = "bottom field first";
constexpr char kProgressiveType[] = "progressive";
constexpr char kInterlacedType[] = "interlaced";

// What the pictures of a stream were.
struct ScanSeen {
  size_t frames = 0;
  size_t fields = 0;
  size_t adaptive = 0;                // frames whose macroblock pairs may be fields
  size_t toldFrames = 0;              // picture timing says that they are progressive frames
  size_t toldFields = 0;              // or that they are two fields
  size_t toldSources = 0;             // HEVC: source_scan_type says progressive
  size_t interlaced = 0;              // HEVC: source_scan_type says interlaced
  std::string order;                  // of the first picture that tells one
  std::optional<CodedPicture> field;  // the last first field: its other half may come in a packet of its own
};

// pic_struct of a frame of H.264 (table D-1) and of HEVC (table D.2), which agree for frames.
void TakePicStruct(uint32_t picStruct, ScanSeen& seen) {
  const bool top = picStruct == 3 || picStruct == 5;
  const bool bottom = picStruct == 4 || picStruct == 6;
  if (picStruct == 0 || picStruct == 7 || picStruct == 8) ++seen.toldFrames;
  if (top || bottom) ++seen.toldFields;
  if (seen.order.empty() && (top || bottom)) seen.order = top ? kTop : kBottom;
}

std::optional<Bytes> PictureTimingIn(Codec codec, const std::vector<Unit>& units) {
  constexpr int kPictureTiming = 1;
  for (const Unit& unit : units) {
    if (!IsSei(codec, UnitType(codec, unit.bytes))) continue;
    for (SeiMessage& message : ReadSeiMessages(codec, unit.bytes)) {
      if (message.type == kPictureTiming) return std::move(message.payload);
    }
  }
  return {};
}

bool IsAdaptive(const Bytes& sps) {
  const SetElements set = ListSetElements(Codec::kH264, sps);
  const SetElement* const flag = set.Find("mb_adaptive_frame_field_flag");
  return flag != nullptr && flag->value != 0;
}

// The fields of one frame in coding order.
void TakeFieldPair(const CodedPicture& first, const CodedPicture& second, ScanSeen& seen) {
  if (!seen.order.empty() || !first.head || !second.head) return;
  const bool firstIsShownFirst = first.order.top <= second.order.top;
  const bool topIsFirst = first.head->bottom != firstIsShownFirst;
  seen.order = topIsFirst ? kTop : kBottom;
}

void TakeH264(const std::vector<Unit>& units, const std::vector<CodedPicture>& pictures, bool adaptive,
              ScanSeen& seen) {
  const CodedPicture* const first = FirstPlaced(pictures);
  if (first == nullptr) return;
  const SpsFacts& sps = *first->head->sps;
  for (const CodedPicture& picture : pictures) {
    if (!picture.head) continue;
    ++(picture.head->field ? seen.fields : seen.frames);
    if (!picture.head->field && adaptive) ++seen.adaptive;
    if (picture.head->field && picture.secondField && seen.field) TakeFieldPair(*seen.field, picture, seen);
    if (picture.head->field && !picture.secondField) seen.field = picture;
  }
  if (first->head->field) return;
  const std::optional<Bytes> payload = PictureTimingIn(Codec::kH264, units);
  if (payload && sps.h264.picStruct) {
    if (const auto timing = ReadPictureTiming(*payload, sps)) return TakePicStruct(timing->picStruct, seen);
  }
  if (seen.order.empty() && !sps.h264.frameMbsOnly && first->order.top != first->order.bottom)
    seen.order = first->order.top < first->order.bottom ? kTop : kBottom;
}

void TakeHevc(const std::vector<Unit>& units, const SpsFacts& sps, ScanSeen& seen) {
  ++(sps.hevc.interlace[2] ? seen.fields : seen.frames);
  if (!sps.hevc.frameFieldInfo) return;
  const std::optional<Bytes> payload = PictureTimingIn(Codec::kHevc, units);
  const std::optional<FrameFieldInfo> info =
      payload ? ReadFrameFieldInfo(*payload) : std::optional<FrameFieldInfo>();
  if (!info) return;
  if (info->sourceScanType == 0) ++seen.interlaced;
  if (info->sourceScanType == 1) ++seen.toldSources;
  if (!sps.hevc.interlace[2]) return TakePicStruct(info->picStruct, seen);
  if (!seen.order.empty()) return;
  if (info->picStruct == kTopBeforeBottom || info->picStruct == kBottomBehindTop) seen.order = kTop;
  if (info->picStruct == kBottomBeforeTop || info->picStruct == kTopBehindBottom) seen.order = kBottom;
  // The stream's first picture is an entry: nothing is shown in front of it.
  constexpr uint32_t kTopField = 1;
  constexpr uint32_t kBottomField = 2;
  if (info->picStruct == kTopField) seen.order = kTop;
  if (info->picStruct == kBottomField) seen.order = kBottom;
}

ScanFacts H264Scan(const ScanSeen& seen, bool frameMbsOnly) {
  ScanFacts scan;
  scan.fieldOrder = seen.order;
  if (seen.fields != 0) {
    scan.coding = seen.frames == 0     ? "fields"
                  : seen.adaptive != 0 ? "fields and adaptive frames"
                                       : "fields and frames";
  } else {
    scan.coding = seen.adaptive != 0 ? "macroblock-adaptive frames" : "frames";
  }
  const bool allFrames = seen.fields == 0 && seen.toldFields == 0 && seen.toldFrames != 0;
  scan.type = frameMbsOnly || allFrames ? kProgressiveType : kInterlacedType;
  return scan;
}

ScanFacts HevcScan(const ScanSeen& seen, const HevcSpsFacts& sps) {
  const auto [progressive, interlaced, fields] = sps.interlace;
  ScanFacts scan;
  scan.fieldOrder = seen.order;
  scan.coding = fields ? "fields" : "frames";
  const bool isInterlaced = fields || (interlaced && !progressive) || seen.toldFields != 0 ||
                            (seen.interlaced != 0 && seen.toldSources == 0);
  const bool isProgressive = (progressive && !interlaced) || seen.toldSources != 0 || seen.toldFrames != 0;
  scan.type = isInterlaced ? kInterlacedType : isProgressive ? kProgressiveType : "";
  return scan;
}

}  // namespace

ScanFacts ScanOf(const CodedStream& stream) {
  PictureTracker tracker(stream.codec);
  bool adaptive = false;
  const auto look = [&](const Bytes& unit) {
    if (stream.codec == Codec::kH264 && UnitType(stream.codec, unit) == h264::kSps)
      adaptive = IsAdaptive(unit);
  };
  for (const Bytes& unit : stream.config.units()) {
    tracker.TakeSet(unit);
    look(unit);
  }
  ScanSeen seen;
  std::optional<SpsFacts> sps;
  for (const std::vector<CodedPacket>* packets : {&stream.packets, &stream.more}) {
    for (const CodedPacket& packet : *packets) {
      const UnitRun run = TakeApart(packet.data, stream.config.framing);
      for (const Unit& unit : run.units) look(unit.bytes);
      const std::vector<CodedPicture> pictures = tracker.Take(run.units);
      const CodedPicture* const first = FirstPlaced(pictures);
      if (first == nullptr) continue;
      if (!sps) sps = *first->head->sps;
      if (stream.codec == Codec::kH264) {
        TakeH264(run.units, pictures, adaptive, seen);
      } else {
        TakeHevc(run.units, *sps, seen);
      }
    }
  }
  if (!sps) return {};
  return stream.codec == Codec::kH264 ? H264Scan(seen, sps->h264.frameMbsOnly) : HevcScan(seen, sps->hevc);
}

ScanFacts ScanOf(FieldOrder order) {
  switch (order) {
    case kProgressive:
      return {kProgressiveType, "", ""};
    case kTopFirst:
    case kBottomCodedTopShownFirst:
      return {kInterlacedType, "", kTop};
    case kBottomFirst:
    case kTopCodedBottomShownFirst:
      return {kInterlacedType, "", kBottom};
    default:
      return {};
  }
}

std::string ScanText(const ScanFacts& scan) {
  std::string text = scan.type;
  const auto add = [&text](const std::string& piece) {
    if (!piece.empty()) text += (text.empty() ? "" : ", ") + piece;
  };
  add(scan.fieldOrder);
  const bool plain = scan.type == kProgressiveType && scan.coding == "frames";
  if (!scan.coding.empty() && !plain) add("coded as " + scan.coding);
  return text;
}

}  // namespace qlnmedia
