// Pictures go from their elements through their editors and back; what the descriptors say follows.

#include "patch/mxf_file.h"

#include <fmt/format.h>

#include <algorithm>
#include <deque>
#include <map>
#include <optional>
#include <utility>

#include "base/error.h"
#include "base/progress.h"
#include "container/container_kind.h"
#include "container/mp4/output_file.h"
#include "container/mxf/carrier.h"
#include "container/mxf/layout_check.h"
#include "patch/container_facts.h"
#include "patch/cut_picture.h"
#include "patch/edited_streams.h"
#include "patch/mxf_input.h"
#include "patch/verify.h"
#include "sets/sps_facts.h"
#include "units/coded_stream.h"

namespace qlnmedia {

namespace {

bool HasStartCode(const Bytes& bytes) {
  const size_t zeros = static_cast<size_t>(
      std::find_if(bytes.begin(), bytes.end(), [](uint8_t byte) { return byte != 0; }) - bytes.begin());
  return zeros >= 2 && zeros < bytes.size() && bytes[zeros] == 1;
}

// Pictures between the file, their editors and the carrier.
class MxfPictures {
 public:
  MxfPictures(const MxfInput& input, EditedStreams& streams, const PatchOptions& options,
              mxf::Carrier& carrier)
      : input_(input), options_(options), carrier_(carrier) {
    for (auto& [index, edited] : streams.streams()) {
      Track& track = tracks_[input.TrackOf(index)];
      track.stream = index;
      track.edited = &edited;
      track.codec = UnitCodecOf(edited.stream.codec);
      track.facts = FactsOf(track);
    }
  }

  // May take the picture's bytes over.
  void Take(mxf::Picture& picture) {
    const auto found = tracks_.find(picture.track);
    if (found == tracks_.end()) return;
    Track& track = found->second;
    if (!HasStartCode(picture.bytes))
      throw carrier_.source().Fault(picture.klv.at,
                                    fmt::format("stream {}: its units have no start codes", track.stream));
    const PacketView view = input_.ViewOf(picture);
    Waiting waiting{{picture.klv, picture.track, picture.number, {}}, {}};
    if (track.codec && !carrier_.isConstant(picture.track)) {
      waiting.cut = CutPicture(*track.codec, picture.bytes);
      track.edited->editor->Push({waiting.cut->given(), view.pts, view.dts, view.key});
    } else {
      track.edited->editor->Push({picture.bytes, view.pts, view.dts, view.key});
      waiting.picture.bytes = std::move(picture.bytes);
    }
    track.waiting.push_back(std::move(waiting));
    Send(track);
  }

  // What the descriptors have to say.
  mxf::FactsByTrack Finish() {
    mxf::FactsByTrack facts;
    for (auto& [place, track] : tracks_) {
      track.edited->editor->Finish();
      Send(track);
      const mxf::PictureTrack& of = carrier_.tracks()[place];
      facts[{of.bodySid, of.number}] = track.facts;
    }
    return facts;
  }

 private:
  struct Waiting {
    mxf::Picture picture;           // without its bytes where its slices are cut
    std::optional<CutPicture> cut;  // nothing where the picture was given whole
  };
  struct Track {
    unsigned stream = 0;
    EditedStream* edited = nullptr;
    std::optional<Codec> codec;
    mxf::DescriptorFacts facts;
    bool seen = false;  // a sequence parameter set
    std::deque<Waiting> waiting;
  };

  mxf::DescriptorFacts FactsOf(const Track& track) const {
    mxf::DescriptorFacts facts;
    if (!track.codec) return facts;
    facts.colour = options_.colour;
    facts.fullRange = options_.fullRange;
    if (options_.sampleAspect && options_.sampleAspect->width != 0)
      facts.sampleAspect = options_.sampleAspect;
    facts.mastering = options_.mastering;
    facts.fields = options_.interlaced;
    return facts;
  }

  // The last one of H.264.
  static std::optional<SpsFacts> SpsOf(const std::vector<Bytes>& units) {
    std::optional<SpsFacts> found;
    for (const Bytes& unit : units) {
      if (UnitType(Codec::kH264, unit) != h264::kSps) continue;
      if (std::optional<SpsFacts> facts = ReadSpsFacts(Codec::kH264, unit)) found = std::move(facts);
    }
    return found;
  }

  // Level and size are what the stream's sets say once they are changed.
  void FollowSets(Track& track, const Bytes& was, const Bytes& is) {
    if (track.seen || !track.codec || (!options_.cropping && !options_.level)) return;
    const auto units = [](const Bytes& data) {
      std::vector<Bytes> list;
      for (Unit& unit : TakeApart(data, Framing{}).units) list.push_back(std::move(unit.bytes));
      return list;
    };
    const std::vector<Bytes> before = units(was), after = units(is);
    const std::optional<mp4::PictureSize> size = PictureSizeOf(*track.codec, before, after);
    if (!size) return;
    track.seen = true;
    if (options_.cropping)
      track.facts.size = mxf::SizeChange{size->wasWidth, size->wasHeight, size->width, size->height};
    if (!options_.level || track.codec != Codec::kH264) return;
    const std::optional<SpsFacts> had = SpsOf(before), has = SpsOf(after);
    if (!has) return;
    track.facts.avcLevel = static_cast<uint8_t>(has->level);
    if (had && had->h264.constraintSet3 != has->h264.constraintSet3)
      track.facts.avcSet3 = has->h264.constraintSet3;
  }

  void Send(Track& track) {
    while (!track.waiting.empty()) {
      const std::optional<EditedUnit> unit = track.edited->editor->Pull();
      if (!unit) return;
      const Waiting& waiting = track.waiting.front();
      if (unit->changed && waiting.cut) {
        FollowSets(track, waiting.cut->given(), unit->unit.data);
        ReplaceParts(waiting, unit->unit.data);
      } else if (unit->changed) {
        FollowSets(track, waiting.picture.bytes, unit->unit.data);
        carrier_.Replace(waiting.picture, unit->unit.data, track.codec);
      }
      track.waiting.pop_front();
    }
  }

  void ReplaceParts(const Waiting& waiting, const Bytes& edited) {
    const std::vector<CutPicture::Part> parts = waiting.cut->PartsOf(edited, options_.in);
    std::vector<mxf::PicturePart> changes;
    for (const CutPicture::Part& part : parts) changes.push_back({part.at, part.was, part.is});
    // Behind a cut slice the last byte of that one stands for an empty part.
    Bytes last;
    if (mxf::PicturePart& end = changes.back(); end.was.empty() && parts.size() > 1) {
      last.assign(1, parts[parts.size() - 2].last);
      last.insert(last.end(), end.is.begin(), end.is.end());
      end = {end.at - 1, ByteSpan(last).first(1), last};
    }
    carrier_.ReplaceParts(waiting.picture.klv, changes);
  }

  const MxfInput& input_;
  const PatchOptions& options_;
  mxf::Carrier& carrier_;
  std::map<size_t, Track> tracks_;
};

// Pictures without times are ordered by what they say; the rate at which they follow each other is the
// file's, all the same.
PatchOptions WithRate(const PatchOptions& options, const MxfInput& input, const mxf::Carrier& carrier) {
  PatchOptions with = options;
  for (size_t i = 0; i < carrier.tracks().size(); ++i) {
    const Rational& rate = carrier.tracks()[i].editRate;
    if (with.rate.empty() && !input.isTimed(i) && rate.numerator > 0)
      with.rate = fmt::format("{}/{}", rate.numerator, rate.denominator);
  }
  return with;
}

// Streams of HEVC whose sub-descriptors may tell a level and a tier that are no longer true.
std::vector<unsigned> LevelsLeft(const PatchOptions& options, const MxfInput& input,
                                 const EditedStreams& streams, const mxf::Carrier& carrier) {
  std::vector<unsigned> left;
  if (!options.level && !options.highTier) return left;
  for (const auto& [index, edited] : streams.streams()) {
    if (edited.stream.codec == VideoCodec::kHevc && carrier.tracks()[input.TrackOf(index)].hasDetails)
      left.push_back(index);
  }
  return left;
}

}  // namespace

PatchResult PatchMxf(const PatchOptions& options, MediaFile& in) {
  if (!options.dryRun) RequireOutput(in, options.out);
  const mp4::FileSource source(options.in);
  mxf::Carrier carrier(source, options.dryRun ? "/tmp" : mp4::FolderOf(options.out));
  const MxfInput input(in, carrier);
  const PatchOptions rated = WithRate(options, input, carrier);
  EditedStreams streams(input, rated);
  MxfPictures pictures(input, streams, rated, carrier);
  std::optional<mp4::OutputFile> out;
  if (!options.dryRun) out.emplace(options.out, mp4::Disk::System(), options.unfinished);
  const auto bytes = static_cast<int64_t>(source.size());
  Progress meter(options.progress, options.dryRun ? "reading" : "patching", 2 * bytes);
  mxf::PictureReader reader(source, carrier.layout(), carrier.tracks());
  for (mxf::Picture picture; reader.Next(picture);) {
    meter.At(static_cast<int64_t>(picture.klv.at));
    pictures.Take(picture);
  }
  carrier.Prepare(pictures.Finish());
  PatchResult result;
  MuxedVerified verified;
  if (out) {
    carrier.Write(*out, [&](uint64_t done) { meter.At(bytes + static_cast<int64_t>(done)); });
    const mp4::FileSource written(out->Readable());
    mxf::CheckLayout(source, carrier.layout(), written, options.out);
    if (options.verify) verified = VerifyMuxed(options.in, out->Readable(), options, options.out);
    out->Finish();
  }
  meter.Done();
  result.lines = streams.Summary();
  const auto warn = [&result](const std::string& text) { result.lines.push_back("warning: " + text); };
  if (carrier.layout().cutAt)
    warn(fmt::format("the file ends early, within what begins at byte {}: that was carried as it stands",
                     *carrier.layout().cutAt));
  for (const unsigned stream : LevelsLeft(options, input, streams, carrier))
    warn(fmt::format("stream {}: what a sub-descriptor says of its level and tier stays as it was", stream));
  for (const std::string& text : verified.otherwise) warn(text);
  if (!verified.text.empty()) result.lines.push_back(verified.text);
  return result;
}

}  // namespace qlnmedia
