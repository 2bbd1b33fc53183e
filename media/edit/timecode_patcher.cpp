// Orders pictures and gives each the message that holds its timecode.

#include "edit/timecode_patcher.h"

#include <fmt/format.h>

#include <algorithm>
#include <iterator>

#include "base/error.h"
#include "container/coded_stream.h"
#include "timing/timecode_rate.h"
#include "units/access_unit.h"

namespace qlnmedia {

namespace {

constexpr int kPictureTiming = 1;
constexpr int kTimeCode = 136;

// pic_struct of a picture by table D-1 of ITU-T H.264.
uint32_t PicStructOf(const CodedPicture& picture) {
  if (picture.head->field) return picture.head->bottom ? 2 : 1;
  const OrderCount& order = picture.order;
  return order.top == order.bottom ? 0 : order.top < order.bottom ? 3 : 4;
}

// pic_struct of an HEVC picture; nothing where no picture timing says it.
std::optional<int> HevcPicStruct(const std::vector<Unit>& units, const SpsFacts& sps) {
  if (!sps.hevc.frameFieldInfo) return {};
  for (const Unit& unit : units) {
    if (UnitType(Codec::kHevc, unit.bytes) != 39) continue;
    for (const SeiMessage& message : ReadSeiMessages(Codec::kHevc, unit.bytes)) {
      if (message.type == kPictureTiming && !message.payload.empty()) return message.payload[0] >> 4;
    }
  }
  return {};
}

}  // namespace

TimecodePatcher::TimecodePatcher(const MediaFile& in, unsigned index, Codec codec, const ConfigRecord& config,
                                 const EditOptions& options)
    : path_(in.path()),
      index_(index),
      codec_(codec),
      framing_(config.framing),
      raw_(in.isRawStream()),
      tracker_(codec) {
  std::optional<SpsFacts> first;
  for (const Bytes& unit : config.units()) {
    tracker_.TakeSet(unit);
    if (!first && IsSps(codec, UnitType(codec, unit))) first = ReadSpsFacts(codec, unit);
  }
  Rational rate;
  if (options.timecodeType.empty() || !options.rate.empty())
    rate = TimecodeRate(RatesOf(DescribeStream(in, index), codec, first), options.rate);
  start_ = ParseTimecode(options.timecode, options.timecodeType, rate);
}

void TimecodePatcher::Fail(const std::string& what, const std::string& advice) const {
  throw Error(path_, fmt::format("stream {}: {}", index_, what), advice);
}

void TimecodePatcher::Announce(const AVPacket& packet) {
  const ByteSpan data(packet.data, static_cast<size_t>(packet.size));
  announced_.push_back(tracker_.Take(TakeApart(data, framing_).units));
  std::erase_if(announced_.back(), [](const CodedPicture& picture) { return !picture.head; });
  int frames = 0;
  for (const CodedPicture& picture : announced_.back()) {
    if (picture.secondField) continue;
    if (++frames > 1) Fail("has two frames in one packet, which would share one time");
    if (!raw_ && packet.pts == AV_NOPTS_VALUE)
      Fail("has a picture without a presentation time", "remux it with times first");
    order_.Add(raw_ ? KeyOfHeader(picture) : PresentationKey{0, packet.pts});
  }
}

bool TimecodePatcher::Ready() const {
  if (order_.ready()) return true;
  const auto waits = [](const CodedPicture& picture) { return !picture.secondField; };
  return !announced_.empty() && std::none_of(announced_.front().begin(), announced_.front().end(), waits);
}

bool TimecodePatcher::Patch(std::vector<Unit>& units) {
  const std::vector<CodedPicture> pictures = std::move(announced_.front());
  announced_.pop_front();
  if (pictures.empty()) {
    if (FirstPictureUnit(codec_, units) < units.size())
      Fail("a picture comes before its parameter sets, or its slices break off");
    return false;
  }
  std::vector<Unit> patched;
  for (size_t i = 0; i < pictures.size(); ++i) {
    const size_t begin = i == 0 ? 0 : pictures[i].begin;
    const size_t end = i + 1 < pictures.size() ? pictures[i + 1].begin : units.size();
    std::vector<Unit> own(std::make_move_iterator(units.begin() + static_cast<std::ptrdiff_t>(begin)),
                          std::make_move_iterator(units.begin() + static_cast<std::ptrdiff_t>(end)));
    PutTimecode(own, pictures[i], FrameOf(pictures[i], own));
    patched.insert(patched.end(), std::make_move_iterator(own.begin()), std::make_move_iterator(own.end()));
  }
  units = std::move(patched);
  return true;
}

uint32_t TimecodePatcher::FrameOf(const CodedPicture& picture, const std::vector<Unit>& units) {
  if (picture.secondField) return frame_;
  frame_ = order_.Take();
  if (codec_ == Codec::kH264) return frame_;
  const bool field = picture.head->sps->hevc.interlace[2];
  if (field != fields_.value_or(field))
    Fail("changes between frames and single fields", "leave --timecode out");
  fields_ = field;
  if (field) {
    CheckParity(frame_, picture, units);
    frame_ /= 2;
  }
  return frame_;
}

// Two fields make a frame of an HEVC stream when they follow each other in output order, top and bottom
// (ITU-T H.265 clause D.3.3). A field without its other half would put all that follow into wrong frames.
void TimecodePatcher::CheckParity(uint32_t place, const CodedPicture& picture,
                                  const std::vector<Unit>& units) {
  const std::optional<int> picStruct = HevcPicStruct(units, *picture.head->sps);
  const bool top = picStruct == 1 || picStruct == 9 || picStruct == 11;
  const bool bottom = picStruct == 2 || picStruct == 10 || picStruct == 12;
  if (!top && !bottom)
    Fail("codes fields, and one does not say whether it is a top or a bottom field", "leave --timecode out");
  const bool evenIsBottom = bottom == (place % 2 == 0);
  if (!evenIsBottom_) evenIsBottom_ = evenIsBottom;
  if (*evenIsBottom_ != evenIsBottom)
    Fail("has a field without its other half, so that fields cannot be counted as frames",
         "leave --timecode out");
}

void TimecodePatcher::PutTimecode(std::vector<Unit>& units, const CodedPicture& picture, uint32_t frame) {
  ++count_;
  if (codec_ == Codec::kH264) {
    PutH264Timecode(units, picture, start_.count + frame);
    return;
  }
  RemoveSei(codec_, units, [](const SeiMessage& message) { return message.type == kTimeCode; });
  InsertSei(codec_, units,
            MakeHevcTimecodeUnit(start_.count + frame, start_.type, picture.head->sps->hevc.interlace[2],
                                 picture.head->temporalId));
}

void TimecodePatcher::PutH264Timecode(std::vector<Unit>& units, const CodedPicture& picture, uint32_t count) {
  const SpsFacts& sps = *picture.head->sps;
  const uint32_t picStruct = PicStructOf(picture);
  bool found = false;
  for (Unit& unit : units) {
    if (!IsSei(codec_, UnitType(codec_, unit.bytes))) continue;
    bool whole = false;
    std::vector<SeiMessage> messages = ReadSeiMessages(codec_, unit.bytes, &whole);
    bool here = false;
    for (SeiMessage& message : messages) {
      if (message.type != kPictureTiming) continue;
      std::optional<PictureTiming> timing = ReadPictureTiming(message.payload, sps);
      if (!timing || !whole) Fail("a picture timing message breaks off");
      if (!sps.h264.picStruct) timing->picStruct = picStruct;
      message.payload = MakePictureTiming(*timing, sps, count, start_.type);
      here = true;
    }
    if (here) unit.bytes = MakeSeiUnit(ByteSpan(unit.bytes).first(1), messages);
    found = found || here;
  }
  if (found) return;
  if (sps.h264.hrd)
    Fail("has HRD parameters but a picture without picture timing, whose delays nobody knows");
  PictureTiming timing;
  timing.picStruct = picStruct;
  const Bytes header{6};
  InsertSei(codec_, units,
            MakeSeiUnit(header, {{kPictureTiming, MakePictureTiming(timing, sps, count, start_.type)}}));
}

}  // namespace qlnmedia
