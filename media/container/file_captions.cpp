// Reads a file twice for its captions: for their order, and for themselves.

#include "container/file_captions.h"

#include <algorithm>
#include <iterator>
#include <new>
#include <utility>

#include "base/error.h"
#include "base/read_error.h"
#include "captions/decoder.h"
#include "container/coded_stream.h"
#include "container/mxf/order_told.h"
#include "container/picture_heads.h"

namespace qlnmedia {

namespace {

// Captions of some hours: longer ones are read from the file a second time.
constexpr size_t kKeptBytes = size_t{12} << 20;

// The packets of the first stream that may have captions.
class CaptionPackets {
 public:
  explicit CaptionPackets(const MediaInput& input) : file_(input), packet_(av_packet_alloc()) {
    if (packet_ == nullptr) throw std::bad_alloc();
    file_.RequireVideo();
    while (index_ < file_.context()->nb_streams && !MayHaveCaptions(*file_.context()->streams[index_]))
      ++index_;
    if (index_ == file_.context()->nb_streams)
      throw NotApplicable(input.path(), "has no H.264, HEVC or MPEG-2 stream", LineOfRaster(file_));
  }

  const MediaFile& file() const { return file_; }
  int64_t sizeBytes() const { return file_.sizeBytes(); }
  unsigned index() const { return index_; }
  StreamDescription stream() const { return DescribeStream(file_, index_); }
  PacketView packet() const { return ViewOf(*packet_); }

  // Goes on to the next packet of that stream; false at the end.
  bool Next() {
    do {
      if (!file_.Read(packet_.get())) return false;
    } while (packet_->stream_index != static_cast<int>(index_));
    return true;
  }

 private:
  MediaFile file_;
  unsigned index_ = 0;
  PacketHandle packet_;
};

// In how many bytes of a file so many packets lie, by the first ones, with room for sound.
uint64_t LikelyBytes(const std::vector<KnownPacket>& first, size_t packets) {
  constexpr uint64_t kRoom = uint64_t{4} << 20;
  uint64_t bytes = 0;
  for (const KnownPacket& packet : first) bytes += packet.size;
  return kRoom + (first.empty() ? 0 : bytes / first.size() * packets / 4 * 5);
}

// Whether a packet that the tables place is the one that was read; `shift` is by how much its times differ.
bool IsKnown(const PacketPlace& place, const KnownPacket& known, std::optional<int64_t>& shift) {
  if (known.pts == kNoTime || place.size != known.size) return false;
  if (!shift) shift = known.pts - place.pts;
  return known.pts - place.pts == *shift &&
         (place.dts == kNoTime || known.dts == kNoTime || known.dts - place.dts == *shift);
}

}  // namespace

std::string LineOfRaster(const MediaFile& file) {
  // With and without the lines above the picture.
  constexpr int kHeights[] = {480, 486, 512, 576, 608}, kMostWidth = 720;
  for (const MediaStream& stream : file.streams()) {
    if (!stream.movingPictures) continue;
    const bool sd = stream.width <= kMostWidth &&
                    std::find(std::begin(kHeights), std::end(kHeights), stream.height) != std::end(kHeights);
    return sd ? "line 21 in the raster of SD pictures is out of reach: it is pixels" : "";
  }
  return "";
}

bool MayHaveCaptions(const AVStream& stream) { return MayHaveCaptions(DescribeStream(stream, false).codec); }

OwnOrder::OwnOrder(const MediaFile& file, const StreamDescription& stream) {
  if (!file.isMxf() || (!file.isPipe() && mxf::TellsOrder(mp4::FileSource(file.path())))) return;
  StreamDescription untimed = stream;
  untimed.raw = true;
  order_.emplace(untimed);
}

void OwnOrder::Add(const PacketView& packet) {
  if (order_) order_->Add(packet);
}

void OwnOrder::Apply(CaptionSurvey& survey) {
  if (!order_) return;
  PicturePlaces own = order_->Finish();
  std::vector<uint32_t>& places = survey.order.places;
  const auto isPlaced = [](uint32_t place) { return place != kNoPlace; };
  if (own.pictures != survey.order.pictures ||
      !std::equal(places.begin(), places.end(), own.places.begin(), own.places.end(),
                  [&](uint32_t a, uint32_t b) { return isPlaced(a) == isPlaced(b); }))
    return;
  for (std::vector<uint8_t>* const facts : {&survey.counts, &survey.fields}) {
    const std::vector<uint8_t> before = *facts;
    for (size_t i = 0; i < places.size() && !before.empty(); ++i) {
      if (isPlaced(places[i])) (*facts)[own.places[i]] = before[places[i]];
    }
  }
  places = std::move(own.places);
}

CaptionSurvey SurveyCaptions(const MediaInput& input, size_t packets, const ProgressCallback& progress) {
  CaptionPackets in(input);
  CaptionCounter counter(in.stream(), input.isPipe() ? SIZE_MAX : kKeptBytes);
  OwnOrder own(in.file(), in.stream());
  Progress meter(progress, "reading", in.sizeBytes());
  while (counter.packets() < packets && in.Next()) {
    const PacketView packet = in.packet();
    meter.At(packet.position);
    counter.Add(packet);
    own.Add(packet);
  }
  meter.Done();
  CaptionSurvey survey = counter.Finish();
  own.Apply(survey);
  survey.elsewhere = LineOfRaster(in.file());
  survey.path = input.path();
  survey.stream = in.index();
  return survey;
}

std::optional<CaptionSurvey> SurveyHeads(const MediaFile& file, unsigned stream, size_t packets,
                                         const std::vector<KnownPacket>& first) {
  const StreamDescription described = DescribeStream(file, stream);
  const std::optional<Codec> codec = UnitCodecOf(described.codec);
  const Framing framing = ConfigOf(described).framing;
  if (!codec || framing.startCodes()) return {};
  try {
    const PacketPlaces places = PlacesOfStream(file, stream, LikelyBytes(first, packets));
    if (!places) return {};
    const mp4::FileSource source(file.path());
    HeadReader heads(source, *codec, framing);
    CaptionCounter counter(described, kKeptBytes);
    std::optional<int64_t> shift;
    while (counter.packets() < packets) {
      const std::optional<PacketPlace> place = places();
      if (!place && counter.packets() < first.size()) return {};
      if (!place) break;
      if (counter.packets() < first.size() && !IsKnown(*place, first[counter.packets()], shift)) return {};
      counter.Add({heads.Read(place->at, place->size), place->pts, place->dts});
    }
    CaptionSurvey survey = counter.Finish();
    survey.elsewhere = LineOfRaster(file);
    survey.path = file.path();
    survey.stream = stream;
    return survey;
  } catch (const ReadError&) {
    throw;
  } catch (const Error&) {  // whoever reads the packets themselves gets as far as they are there
    return {};
  }
}

void ReadCaptions(const CaptionSurvey& survey, const std::function<void(const CaptionedPicture&)>& take,
                  const ProgressCallback& progress) {
  if (!survey.kept.empty()) {
    CaptionSorter sorter(survey, take);
    for (const Triplets& triplets : survey.kept) sorter.Add(triplets);
    return sorter.Finish();
  }
  CaptionPackets in(survey.path);
  CaptionSorter sorter(survey, in.stream(), take);
  Progress meter(progress, "reading", in.sizeBytes());
  while (sorter.missing()) {
    if (!in.Next()) throw Error(survey.path, "has changed while it was read");
    const PacketView packet = in.packet();
    meter.At(packet.position);
    sorter.Add(packet);
  }
  sorter.Finish();
  meter.Done();
}

std::vector<CaptionService> DecodeCaptions(const CaptionSurvey& survey, const ProgressCallback& progress) {
  CaptionDecoder decoder;
  PictureClock clock(survey.order, survey.pace);
  ReadCaptions(
      survey,
      [&](const CaptionedPicture& picture) {
        decoder.Add(picture.triplets, picture.seconds);
        clock.Next();
      },
      progress);
  decoder.Finish(clock.seconds());  // where a picture behind the last one would begin
  return decoder.services();
}

}  // namespace qlnmedia
