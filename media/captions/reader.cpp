// Reads caption messages out of packets and puts them in presentation order.

#include "captions/reader.h"

#include <algorithm>
#include <map>
#include <new>

#include "base/error.h"
#include "captions/units.h"
#include "container/coded_stream.h"
#include "units/access_unit.h"
#include "units/mpeg2.h"

namespace qlnmedia {

namespace captions = qlnmedia::captions;

namespace {

void Append(std::optional<Triplets>& all, const std::optional<Triplets>& more) {
  if (!more) return;
  if (!all) all.emplace();
  all->insert(all->end(), more->begin(), more->end());
}

// The packets of the first stream that may have captions.
class CaptionPackets {
 public:
  explicit CaptionPackets(const std::string& path) : file_(path), packet_(av_packet_alloc()) {
    if (packet_ == nullptr) throw std::bad_alloc();
    file_.RequireVideo();
    while (index_ < file_.context()->nb_streams && !MayHaveCaptions(stream())) ++index_;
    if (index_ == file_.context()->nb_streams) throw Error(path, "has no H.264, HEVC or MPEG-2 stream");
    config_ = ConfigOf(stream());
  }

  const MediaFile& file() const { return file_; }
  unsigned index() const { return index_; }
  const AVStream& stream() const { return *file_.context()->streams[index_]; }
  const AVPacket& packet() const { return *packet_; }

  // Goes on to the next packet of that stream; false at the end.
  bool Next() {
    do {
      if (!file_.Read(packet_.get())) return false;
    } while (packet_->stream_index != static_cast<int>(index_));
    return true;
  }
  std::optional<Triplets> captions() const {
    return CaptionsOf(stream().codecpar->codec_id,
                      ByteSpan(packet_->data, static_cast<size_t>(packet_->size)), config_);
  }

 private:
  MediaFile file_;
  unsigned index_ = 0;
  ConfigRecord config_;
  PacketHandle packet_;
};

// Counts of both fields of a frame.
uint8_t Sum(uint8_t a, uint8_t b) {
  if (a == CaptionSurvey::kNone) return b;
  if (b == CaptionSurvey::kNone) return a;
  return static_cast<uint8_t>(std::min(a + b, CaptionSurvey::kNone - 1));
}

}  // namespace

bool MayHaveCaptions(const AVStream& stream) {
  return CodecOf(stream).has_value() ||
         (MediaFile::IsVideo(stream) && stream.codecpar->codec_id == AV_CODEC_ID_MPEG2VIDEO);
}

std::optional<Triplets> CaptionsOf(AVCodecID codecId, ByteSpan data, const ConfigRecord& config) {
  std::optional<Triplets> all;
  if (codecId == AV_CODEC_ID_MPEG2VIDEO) {
    for (const Mpeg2Unit& unit : Mpeg2Units(data)) {
      if (unit.code == kMpeg2UserData)
        Append(all, captions::ReadUserData(data.subspan(unit.at + 4, unit.size - 4)));
    }
    return all;
  }
  const Codec codec = codecId == AV_CODEC_ID_H264 ? Codec::kH264 : Codec::kHevc;
  for (const Unit& unit : TakeApart(data, config.framing).units) {
    if (IsSei(codec, UnitType(codec, unit.bytes))) Append(all, ReadCaptionUnit(codec, unit.bytes));
  }
  return all;
}

size_t CaptionSurvey::captioned() const {
  return counts.size() - static_cast<size_t>(std::count(counts.begin(), counts.end(), kNone));
}

CaptionSurvey SurveyCaptions(const std::string& path, size_t packets, const ProgressCallback& progress) {
  CaptionPackets in(path);
  CaptionSurvey survey;
  survey.path = path;
  survey.stream = in.index();
  PictureOrder order(in.stream(), in.file().isRawStream());
  std::vector<uint8_t> coded;
  Progress meter(progress, "reading", in.file().sizeBytes());
  while (coded.size() < packets && in.Next()) {
    meter.At(in.packet().pos);
    order.Add(in.packet());
    const std::optional<Triplets> triplets = in.captions();
    const size_t count =
        triplets ? std::min<size_t>(triplets->size(), CaptionSurvey::kNone - 1) : CaptionSurvey::kNone;
    coded.push_back(static_cast<uint8_t>(count));
  }
  meter.Done();
  survey.order = order.Finish();
  survey.pace = PaceOf(in.stream(), survey.order);
  survey.counts.assign(survey.order.pictures, CaptionSurvey::kNone);
  uint32_t place = kNoPlace;
  for (size_t i = 0; i < coded.size(); ++i) {
    // Captions of a second field belong to its frame.
    if (survey.order.places[i] != kNoPlace) place = survey.order.places[i];
    if (place != kNoPlace) survey.counts[place] = Sum(survey.counts[place], coded[i]);
  }
  return survey;
}

void ReadCaptions(const CaptionSurvey& survey, const std::function<void(const CaptionedPicture&)>& take,
                  const ProgressCallback& progress) {
  CaptionPackets in(survey.path);
  PictureClock clock(survey.order, survey.pace);
  std::map<uint32_t, Triplets> waiting;  // pictures that come earlier in coding order
  uint32_t next = 0;
  // Pictures are handed over when the one after them in coding order begins: they are whole then.
  const auto send = [&](uint32_t unfinished) {
    for (auto front = waiting.begin();
         front != waiting.end() && front->first == next && front->first != unfinished;
         front = waiting.erase(front), ++next, clock.Next())
      take({clock.seconds(), clock.number(), std::move(front->second)});
  };
  uint32_t place = kNoPlace;
  const std::vector<uint32_t>& places = survey.order.places;
  Progress meter(progress, "reading", in.file().sizeBytes());
  for (size_t i = 0; i < places.size(); ++i) {
    if (!in.Next()) throw Error(survey.path, "has changed while it was read");
    meter.At(in.packet().pos);
    if (places[i] != kNoPlace) place = places[i];
    if (place == kNoPlace) continue;
    Triplets& triplets = waiting[place];
    const Triplets more = in.captions().value_or(Triplets());
    triplets.insert(triplets.end(), more.begin(), more.end());
    send(place);
  }
  send(kNoPlace);
  meter.Done();
}

}  // namespace qlnmedia
