// Corrects the interlace signalling of HEVC streams (ITU-T H.265 clauses 7.4.4, D.3.3 and E.3.1).

#include "edit/interlace_edit.h"

#include <fmt/format.h>

#include <new>

#include "base/error.h"
#include "container/coded_stream.h"
#include "units/access_unit.h"

namespace qlnmedia {

namespace {

constexpr int kVps = 32;
constexpr int kBufferingPeriod = 0;
constexpr int kActiveParameterSets = 129;
constexpr uint32_t kInterlacedScan = 0;
constexpr uint32_t kProgressiveScan = 1;
constexpr size_t kConstraintFlags = 6;  // byte of an hvcC with general_progressive_source_flag at its top

}  // namespace

InterlaceEdit::InterlaceEdit(const std::string& path, unsigned index, Codec codec, bool interlaced,
                             const ProgressCallback& progress)
    : path_(path), index_(index), interlaced_(interlaced), tracker_(Codec::kHevc) {
  if (codec != Codec::kHevc)
    Fail(fmt::format("is H.264, whose slices say themselves whether they are fields: --{} is for HEVC",
                     interlaced ? "interlaced" : "progressive"));
  LookAhead(progress);
}

void InterlaceEdit::Fail(const std::string& what, const std::string& advice) const {
  throw Error(path_, fmt::format("stream {}: {}", index_, what), advice);
}

void InterlaceEdit::LookAhead(const ProgressCallback& progress) {
  MediaFile file(path_);
  const AVStream& stream = *file.context()->streams[index_];
  const ConfigRecord config = ConfigOf(stream);
  const int order = file.containerColour(index_).fieldOrder;
  bottomFirst_ = order == AV_FIELD_BB || order == AV_FIELD_TB;  // the one that is displayed first
  ScanSigns signs(file, index_);
  for (const Bytes& unit : config.units()) {
    if (!IsSps(Codec::kHevc, UnitType(Codec::kHevc, unit))) continue;
    if (const std::optional<SpsFacts> sps = ReadSpsFacts(Codec::kHevc, unit)) {
      signs.TakeSps(*sps);
      TakeSps(*sps);
    }
  }
  std::optional<OrderSurvey> places;
  if (interlaced_) places.emplace(DescribeStream(file, index_));
  const PacketHandle packet(av_packet_alloc());
  if (packet == nullptr) throw std::bad_alloc();
  Progress meter(progress, "reading", file.sizeBytes());
  while (file.Read(packet.get())) {
    meter.At(packet->pos);
    if (packet->stream_index != static_cast<int>(index_)) continue;
    const ByteSpan data(packet->data, static_cast<size_t>(packet->size));
    signs.TakePacket(TakeApart(data, config.framing).units);
    if (places) places->Add(ViewOf(*packet));
  }
  meter.Done();
  RequireSigns(signs);
  if (places && !signs.everyPictureTold()) places_ = places->Finish().places;
}

void InterlaceEdit::RequireSigns(const ScanSigns& signs) const {
  if (!interlaced_) {
    if (!signs.fields().empty()) Fail("its coded pictures are single fields: " + signs.fields());
    return;
  }
  if (!signs.frames().empty()) Fail("its coded pictures are frames: " + signs.frames());
  if (signs.fields().empty() && signs.likelyFields().empty())
    Fail("nothing says that its coded pictures are single fields",
         "--interlaced is for streams that code each field as a picture");
}

void InterlaceEdit::AddTo(SpsEdit& edit) const {
  edit.interlace = {!interlaced_, interlaced_, interlaced_};
  edit.frameOnly = !interlaced_;
  // Fields need their parity told; frames may go on saying what they are.
  if (interlaced_) edit.frameFieldInfo = true;
  edit.subLayers = true;
}

bool InterlaceEdit::PatchVps(Bytes& unit) {
  if (UnitType(Codec::kHevc, unit) != kVps) return false;
  SpsEdit edit;
  AddTo(edit);
  std::optional<Bytes> edited = EditVps(unit, edit);
  if (!edited) Fail("a video parameter set breaks off and cannot be changed");
  if (*edited == unit) return false;
  unit = std::move(*edited);
  ++setsChanged_;
  return true;
}

void InterlaceEdit::PatchHead(ConfigRecord& record) const {
  if (!record.box || record.head.size() <= kConstraintFlags) return;
  uint8_t& flags = record.head[kConstraintFlags];
  // progressive, interlaced, non-packed, frame-only
  flags = static_cast<uint8_t>((flags & 0x2F) | (interlaced_ ? 0x40 : 0x90));
}

AVFieldOrder InterlaceEdit::fieldOrder() const {
  if (!interlaced_) return AV_FIELD_PROGRESSIVE;
  return bottomFirst_ ? AV_FIELD_BB : AV_FIELD_TT;
}

void InterlaceEdit::TakeSps(const SpsFacts& sps) {
  if (sps_ && sps_->id != sps.id &&
      (sps_->hevc.frameFieldInfo != sps.hevc.frameFieldInfo || !(sps_->hevc.delays == sps.hevc.delays)))
    Fail("has sequence parameter sets that lay out picture timing in different ways",
         "split the stream where they change");
  sps_ = sps;
}

uint32_t InterlaceEdit::PicStructOf(size_t number, size_t count, uint32_t place) const {
  const bool second = count == 2 ? number == 1 : place % 2 == 1;
  if (bottomFirst_) return second ? kTopBehindBottom : kBottomBeforeTop;
  return second ? kBottomBehindTop : kTopBeforeBottom;
}

bool InterlaceEdit::PatchPacket(std::vector<Unit>& units) {
  for (const Unit& unit : units) {
    if (!IsSps(Codec::kHevc, UnitType(Codec::kHevc, unit.bytes))) continue;
    if (const std::optional<SpsFacts> sps = ReadSpsFacts(Codec::kHevc, unit.bytes)) TakeSps(*sps);
  }
  bool changed = false;
  for (Unit& unit : units) changed = PatchVps(unit.bytes) || changed;
  const size_t packet = packets_++;
  const std::vector<CodedPicture> pictures = tracker_.Take(units);
  if (pictures.size() > 2) Fail("a packet holds more than two pictures");
  if (!pictures.empty() && !sps_) Fail("a picture comes before its sequence parameter set");
  const uint32_t place = packet < places_.size() ? places_[packet] : 0;
  for (size_t n = pictures.size(); n-- > 0;)
    changed = PatchPicture(units, pictures[n], PicStructOf(n, pictures.size(), place)) || changed;
  return changed;
}

bool InterlaceEdit::PatchPicture(std::vector<Unit>& units, const CodedPicture& picture, uint32_t picStruct) {
  const std::optional<PictureTimingPlace> timing = FindPictureTiming(units, picture);
  if (!interlaced_ && !(timing && sps_->hevc.frameFieldInfo)) return false;
  if (!timing) {
    if (sps_->hevc.delays.present)
      Fail("has HRD parameters but a picture without picture timing, whose delays nobody knows");
    InsertSei(
        units,
        SeiPlace(Codec::kHevc, units, picture.begin, picture.slice, {kActiveParameterSets, kBufferingPeriod}),
        MakeFieldTimingUnit(picStruct, TemporalPlus1(units[picture.slice].bytes)));
    ++timingsAdded_;
    return true;
  }
  FrameFieldInfo info{picStruct, 0, false};
  if (sps_->hevc.frameFieldInfo) {
    const std::optional<FrameFieldInfo> was = ReadFrameFieldInfo(timing->content.payload);
    if (!was) Fail("a picture timing message breaks off");
    info = *was;
  }
  info.sourceScanType = interlaced_ ? kInterlacedScan : kProgressiveScan;
  std::optional<Bytes> payload =
      WithFrameFieldInfo(timing->content.payload, sps_->hevc.frameFieldInfo, sps_->hevc.delays, info);
  if (!payload)
    Fail(
        "a picture timing message breaks off, or is laid out in a way that the sequence parameter set does "
        "not tell");
  if (*payload == timing->content.payload) return false;
  bool whole = false;
  Bytes& unit = units[timing->unit].bytes;
  std::vector<SeiMessage> messages = ReadSeiMessages(Codec::kHevc, unit, &whole);
  if (!whole) Fail("an SEI unit with picture timing breaks off");
  messages[timing->message].payload = std::move(*payload);
  unit = MakeSeiUnit(ByteSpan(unit).first(2), messages);
  ++timingsChanged_;
  return true;
}

std::vector<std::string> InterlaceEdit::Summary() const {
  std::vector<std::string> pieces;
  if (setsChanged_ != 0) pieces.push_back(fmt::format("{} video parameter sets changed", setsChanged_));
  if (timingsChanged_ != 0)
    pieces.push_back(fmt::format("{} picture timing messages changed", timingsChanged_));
  if (timingsAdded_ != 0) pieces.push_back(fmt::format("{} picture timing messages put in", timingsAdded_));
  return pieces;
}

}  // namespace qlnmedia
