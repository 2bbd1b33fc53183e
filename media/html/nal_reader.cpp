// Takes packets apart, and hands their units to those who know them.

#include "html/nal_reader.h"

#include <algorithm>

#include "hdr/values.h"
#include "html/clocks.h"
#include "html/sei_text.h"
#include "inspect/frames.h"
#include "timing/hevc_timing.h"

namespace qlnmedia::html {

NalReader::NalReader(Codec codec, const StreamDescription& stream, bool encrypted)
    : codec_(codec),
      encrypted_(encrypted),
      config_(ConfigOf(stream)),
      tracker_(codec),
      slices_(codec),
      sets_(codec) {
  for (const Bytes& unit : config_.units()) {
    tracker_.TakeSet(unit);
    TakeSet(unit, -1);
  }
}

void NalReader::TakeSet(ByteSpan unit, int64_t packet) {
  if (!IsParameterSet(codec_, UnitType(codec_, unit)) && !HasSetSyntax(codec_, UnitType(codec_, unit)))
    return;
  if (IsBaseLayer(codec_, unit)) slices_.TakeSet(unit);
  sets_.Take(unit, packet);
  if (!IsSps(codec_, UnitType(codec_, unit)) || !IsBaseLayer(codec_, unit)) return;
  const std::optional<SpsFacts> facts = ReadSpsFacts(codec_, unit);
  if (facts) spsBytes_[facts->id].assign(unit.begin(), unit.end());
}

unsigned NalReader::KindOf(const CodedPicture& picture) const {
  if (codec_ == Codec::kH264) return tracker_.SlicesOf(run_.units, picture);
  // Of several slice segments the first one tells.
  const ByteSpan slice = run_.units[picture.slice].bytes;
  static constexpr unsigned kKinds[] = {kSliceB, kSliceP, kSliceI};
  const std::optional<uint32_t> type = slices_.ReadType(slice);
  return type && *type < 3 ? kKinds[*type] : tracker_.SlicesOf(run_.units, picture);
}

Entry NalReader::EntryOf() const {
  bool recovery = false;
  for (size_t i = 0; i < run_.units.size(); ++i) {
    const int type = UnitType(codec_, run_.units[i].bytes);
    if (codec_ == Codec::kH264 && type == h264::kIdrSlice) return Entry::kIdr;
    if (codec_ == Codec::kHevc && type >= hevc::kFirstIrap && type <= hevc::kCra)
      return type == hevc::kCra ? Entry::kCra : type >= hevc::kIdrWRadl ? Entry::kIdr : Entry::kBla;
    for (const SeiMessage& message : messages_[i]) recovery = recovery || message.type == sei::kRecoveryPoint;
  }
  return recovery ? Entry::kRecoveryPoint : Entry::kNone;
}

void NalReader::TakeSlices(const std::vector<CodedPicture>& pictures) {
  if (pictures.empty()) {
    picture_.flags |= kNoPicture;
    return;
  }
  picture_.entry = EntryOf();
  if (encrypted_) return;
  picture_.slices = static_cast<uint8_t>(KindOf(pictures[0]));
  if (pictures.size() > 1) picture_.slices = static_cast<uint8_t>(picture_.slices | KindOf(pictures[1]) << 4);
  const CodedPicture* const first = FirstPlaced(pictures);
  if (first == nullptr) return;
  const SliceHead& head = *first->head;
  sps_ = head.sps;
  const bool top = !head.bottom;
  picture_.structure = !head.field            ? Structure::kFrame
                       : pictures.size() == 1 ? (top ? Structure::kTopField : Structure::kBottomField)
                       : top                  ? Structure::kTopThenBottom
                                              : Structure::kBottomThenTop;
  if (first->secondField) picture_.flags |= kSecondField;
  const int spsType = codec_ == Codec::kH264 ? h264::kSps : hevc::kSps;
  const int ppsType = codec_ == Codec::kH264 ? h264::kPps : hevc::kPps;
  spsPlace_ = sets_.InForce(spsType, head.sps->id);
  inForce_ = {codec_ == Codec::kHevc ? sets_.InForce(hevc::kVps, 0) : -1, spsPlace_,
              sets_.InForce(ppsType, head.ppsId)};
  const auto [known, added] = hrds_.try_emplace(spsPlace_);
  const auto bytes = spsBytes_.find(head.sps->id);
  if (added && bytes != spsBytes_.end()) known->second = HrdOf(codec_, bytes->second);
  inForceHrd_ = known->second ? &*known->second : nullptr;
  if (inForceHrd_ != nullptr && !firstHrd_) firstHrd_ = *inForceHrd_;
}

void NalReader::TakeMessages() {
  if (sps_ == nullptr) return;
  const std::optional<ClockTime> clock = ReadClock(codec_, run_.units, *sps_);
  if (clock) picture_.clock = PackedClock(*clock);
  for (const std::vector<SeiMessage>& ofUnit : messages_) {
    for (const SeiMessage& message : ofUnit) {
      if (message.type != sei::kPictureTiming) continue;
      if (codec_ == Codec::kH264 && sps_->h264.picStruct) {
        const std::optional<PictureTiming> timing = ReadPictureTiming(message.payload, *sps_);
        if (timing && picture_.picStruct == 0)
          picture_.picStruct = static_cast<uint8_t>(timing->picStruct + 1);
      } else if (codec_ == Codec::kHevc && sps_->hevc.frameFieldInfo) {
        const std::optional<FrameFieldInfo> info = ReadFrameFieldInfo(message.payload);
        if (info) picture_.picStruct = static_cast<uint8_t>(info->picStruct + 1);
      }
    }
  }
  // Fields that are pictures of their own in HEVC.
  if (codec_ == Codec::kHevc && sps_->hevc.interlace[2] && picture_.picStruct != 0) {
    const uint32_t picStruct = picture_.picStruct - 1u;
    const bool bottom = picStruct == 2 || picStruct == kBottomBehindTop || picStruct == kBottomBeforeTop;
    if (picStruct == 1 || bottom || IsFieldPicStruct(picStruct))
      picture_.structure = bottom ? Structure::kBottomField : Structure::kTopField;
  }
}

// The bytes of some units as a byte stream has them, whose start codes are as long as most lengths; VCL
// parameters leave aside what is neither slices nor filler.
uint64_t NalReader::BitsOf(size_t begin, size_t end, const Hrd& hrd) const {
  constexpr uint64_t kStartCode = 4;
  uint64_t bytes = 0;
  for (size_t i = begin; i < end; ++i) {
    const Unit& unit = run_.units[i];
    const int type = UnitType(codec_, unit.bytes);
    const bool filler = type == (codec_ == Codec::kH264 ? h264::kFiller : hevc::kFiller);
    if (!hrd.nal && !IsSlice(codec_, type) && !filler) continue;
    bytes += unit.bytes.size();
    if (!hrd.nal) continue;
    bytes += static_cast<uint64_t>(unit.trailingZeros);
    bytes += config_.framing.startCodes() ? static_cast<uint64_t>(unit.startCodeBytes) : kStartCode;
  }
  return bytes * 8;
}

// The two fields of a frame are access units of their own, each with its delay.
void NalReader::TakeBuffer(const std::vector<CodedPicture>& pictures) {
  if (inForceHrd_ == nullptr || pictures.empty()) {
    buffer_.Take({}, {});
    accessUnits_.push_back(1);
    return;
  }
  const Hrd& hrd = *inForceHrd_;
  for (size_t n = 0; n < pictures.size(); ++n) {
    const size_t begin = n == 0 ? 0 : pictures[n].begin;
    const size_t end = n + 1 == pictures.size() ? run_.units.size() : pictures[n].end;
    CpbPicture taken;
    taken.bits = BitsOf(begin, end, hrd);
    std::optional<uint32_t> delay;
    for (size_t i = begin; i < end; ++i) {
      for (const SeiMessage& message : messages_[i]) {
        if (message.type == sei::kBufferingPeriod && !taken.period)
          taken.period = ReadBufferingPeriod(codec_, message.payload, hrd);
        if (message.type == sei::kPictureTiming && !delay)
          delay = ReadRemovalDelay(codec_, message.payload, hrd);
      }
    }
    taken.removalDelay = codec_ == Codec::kH264 ? delay.value_or(0)
                                                : delays_.Next(delay.value_or(0), hrd.removalDelayLength,
                                                               taken.period.has_value());
    buffer_.Take(hrd.schedule, taken);
  }
  accessUnits_.push_back(static_cast<uint8_t>(std::min<size_t>(pictures.size(), 255)));
}

void NalReader::TakeLook() {
  bool said = false;
  for (const std::vector<SeiMessage>& ofUnit : messages_)
    said = said || std::any_of(ofUnit.begin(), ofUnit.end(), [](const SeiMessage& message) {
             return message.type == sei::kMasteringDisplay || message.type == sei::kContentLightLevel;
           });
  if (!said && lookOf_ == sps_) return;
  if (said) {
    const StreamHdr hdr = HdrOf(codec_, run_.units);
    if (hdr.mastering) hdr_.mastering = hdr.mastering;
    if (hdr.lightLevel) hdr_.lightLevel = hdr.lightLevel;
  }
  lookOf_ = sps_;
  look_.clear();
  if (sps_ == nullptr) return;
  look_ = sps_->colour ? ColourText(*sps_->colour) : "colour not said";
  look_ += sps_->fullRange ? ", full range" : ", limited range";
  if (hdr_.mastering) look_ += ", " + MasteringDisplayText(*hdr_.mastering);
  if (hdr_.lightLevel)
    look_ += ", MaxCLL " + std::to_string(hdr_.lightLevel->maxContent) + ", MaxFALL " +
             std::to_string(hdr_.lightLevel->maxAverage);
}

void NalReader::ShowUnits() {
  UnitOffsets offsets(config_.framing, run_);
  const SeiContext context{sps_.get(), inForceHrd_};
  for (size_t i = 0; i < run_.units.size(); ++i) {
    const ByteSpan bytes = run_.units[i].bytes;
    ShownUnit unit;
    unit.type = UnitType(codec_, bytes);
    unit.offset = offsets.Next(run_.units[i]);
    unit.size = bytes.size();
    const size_t shown = IsSlice(codec_, unit.type) ? UnitBlocks::kSliceBytes : UnitBlocks::kOtherBytes;
    unit.first = bytes.first(std::min(bytes.size(), shown));
    for (const SeiMessage& message : messages_[i])
      unit.text += (unit.text.empty() ? "" : "\n") + SeiText(codec_, message, context);
    picture_.units.push_back(std::move(unit));
  }
}

const ShownPicture& NalReader::Take(const PacketView& packet) {
  picture_ = {};
  run_ = TakeApart(packet.data, config_.framing);
  if (run_.damaged()) picture_.flags |= kDamagedUnits;
  messages_.assign(run_.units.size(), {});
  for (size_t i = 0; i < run_.units.size(); ++i) {
    const ByteSpan bytes = run_.units[i].bytes;
    TakeSet(bytes, packets_);
    if (IsSei(codec_, UnitType(codec_, bytes)) && !encrypted_) messages_[i] = ReadSeiMessages(codec_, bytes);
  }
  const std::vector<CodedPicture> pictures = tracker_.Take(run_.units);
  TakeSlices(pictures);
  TakeMessages();
  TakeBuffer(pictures);
  TakeLook();
  ShowUnits();
  ++packets_;
  return picture_;
}

std::vector<std::optional<CpbState>> NalReader::Buffer(bool end) {
  if (end) buffer_.Finish();
  for (const std::optional<CpbState>& state : buffer_.Settled()) states_.push_back(state);
  std::vector<std::optional<CpbState>> ofPackets;
  while (!accessUnits_.empty() && states_.size() >= accessUnits_.front()) {
    // What goes wrong with the second field goes wrong with the frame.
    std::optional<CpbState> state = states_.front();
    for (size_t i = 1; i < accessUnits_.front() && state; ++i) {
      if (!states_[i]) continue;
      state->underflow = state->underflow || states_[i]->underflow;
      state->overflow = state->overflow || states_[i]->overflow;
    }
    ofPackets.push_back(state);
    states_.erase(states_.begin(), states_.begin() + accessUnits_.front());
    accessUnits_.pop_front();
  }
  return ofPackets;
}

}  // namespace qlnmedia::html
