// Presentation order out of times, picture order counts, or temporal references.

#include "qlnmedia/picture_places.h"

#include <algorithm>
#include <tuple>

#include "qlnmedia/mpeg2_units.h"

namespace qlnmedia {

namespace {

constexpr int64_t kTemporalReferences = 1024;

}  // namespace

PictureOrder::PictureOrder(const AVStream& stream, bool raw)
    : timeBase_(stream.time_base), raw_(raw), codec_(stream.codecpar->codec_id) {
  if (codec_ == AV_CODEC_ID_MPEG2VIDEO) return;  // a packet holds both fields, and its own order
  parser_.reset(av_parser_init(codec_));
  context_.reset(avcodec_alloc_context3(nullptr));
  if (parser_ == nullptr || context_ == nullptr ||
      avcodec_parameters_to_context(context_.get(), stream.codecpar) < 0)
    throw std::bad_alloc();
  parser_->flags |= PARSER_FLAG_COMPLETE_FRAMES;
}

bool PictureOrder::IsSecondField() {
  const int structure = parser_->picture_structure;
  const bool field =
      structure == AV_PICTURE_STRUCTURE_TOP_FIELD || structure == AV_PICTURE_STRUCTURE_BOTTOM_FIELD;
  // In HEVC each field is a picture of its own.
  if (!field || codec_ != AV_CODEC_ID_H264) {
    waitingField_ = 0;
    return false;
  }
  const bool second = waitingField_ == structure;
  waitingField_ = second ? 0 : AV_PICTURE_STRUCTURE_TOP_FIELD + AV_PICTURE_STRUCTURE_BOTTOM_FIELD - structure;
  return second;
}

PictureOrder::Key PictureOrder::KeyOfUnits(const AVPacket& packet) {
  uint8_t* out = nullptr;
  int outSize = 0;
  av_parser_parse2(parser_.get(), context_.get(), &out, &outSize, packet.data, packet.size, packet.pts,
                   packet.dts, packet.pos);
  const size_t number = packets_++;
  if (IsSecondField()) return {0, 0, SIZE_MAX};
  if (!raw_) return {0, packet.pts != AV_NOPTS_VALUE ? packet.pts : packet.dts, number};
  // Counts begin anew with a picture that starts a sequence.
  const Codec codec = codec_ == AV_CODEC_ID_H264 ? Codec::kH264 : Codec::kHevc;
  for (const Unit& unit : TakeApart(ByteSpan(packet.data, static_cast<size_t>(packet.size)), {}).units) {
    const int type = UnitType(codec, unit.bytes);
    if (!IsSlice(codec, type)) continue;
    if (codec == Codec::kH264 ? type == 5 : type >= 16 && type <= 20) ++group_;
    break;
  }
  return {group_, parser_->output_picture_number, number};
}

PictureOrder::Key PictureOrder::KeyOfMpeg2(ByteSpan data) {
  const size_t number = packets_++;
  const Mpeg2Picture picture = ReadMpeg2Picture(data);
  if (!picture.found) return {0, 0, SIZE_MAX};
  // References begin anew with a group of pictures, and wrap in streams that have none.
  if (picture.beginsGroup || picture.temporalReference + kTemporalReferences / 2 < lastOrder_) ++group_;
  lastOrder_ = picture.temporalReference;
  return {group_, picture.temporalReference, number};
}

void PictureOrder::Add(const AVPacket& packet) {
  const ByteSpan data(packet.data, static_cast<size_t>(packet.size));
  Key key{};
  if (codec_ != AV_CODEC_ID_MPEG2VIDEO)
    key = KeyOfUnits(packet);
  else if (raw_ || packet.pts == AV_NOPTS_VALUE)
    key = KeyOfMpeg2(data);
  else
    key = {0, packet.pts, packets_++};
  if (key.packet != SIZE_MAX) keys_.push_back(key);
}

PicturePlaces PictureOrder::Finish() const {
  std::vector<Key> sorted = keys_;
  std::sort(sorted.begin(), sorted.end(), [](const Key& a, const Key& b) {
    return std::tie(a.group, a.order, a.packet) < std::tie(b.group, b.order, b.packet);
  });
  PicturePlaces result;
  result.places.assign(packets_, kNoPlace);
  for (const Key& key : sorted) result.places[key.packet] = result.pictures++;
  if (!raw_ && sorted.size() > 1 && sorted.back().order > sorted.front().order)
    result.picturesPerSecond =
        static_cast<double>(sorted.size() - 1) /
        (static_cast<double>(sorted.back().order - sorted.front().order) * av_q2d(timeBase_));
  return result;
}

}  // namespace qlnmedia
