// Finds the streams that a patch edits, and makes their editors.

#include "patch/edited_streams.h"

#include <fmt/format.h>

#include <set>
#include <utility>

#include "base/error.h"
#include "captions/reader.h"
#include "edit/survey_facts.h"
#include "hdr/base_layer.h"
#include "units/coded_stream.h"

namespace qlnmedia {

namespace {

bool EditsUnits(VideoCodec codec) { return UnitCodecOf(codec).has_value(); }

}  // namespace

EditedStreams::EditedStreams(const PatchInput& in, const EditOptions& options) : in_(in), options_(options) {
  FindStreams();
  // What can be refused without reading the file is refused first.
  for (auto& [index, edited] : streams_) {
    if (!NeedsSigns(edited.stream)) MakeEditor(index, edited, {});
  }
  if (options_.captionsIntoPictures()) captionFile_ = std::make_unique<CaptionFile>(*options_.captions);
  Survey();
  for (auto& [index, edited] : streams_) {
    if (NeedsSigns(edited.stream)) MakeEditor(index, edited, {});
  }
  if (!captioned_) return;
  EditedStream& edited = streams_.at(*captioned_);
  captionFile_->SpreadOver(edited.survey->facts().captions, in_.path(), *captioned_, options_.rate);
  MakeEditor(*captioned_, edited, captionFile_->provider());
}

// Whether a look at all its pictures must tell fields from frames.
bool EditedStreams::NeedsSigns(const StreamDescription& stream) const {
  return options_.interlaced && stream.codec == VideoCodec::kHevc;
}

void EditedStreams::Fail(unsigned index, const std::string& what, const std::string& advice) const {
  throw Error(in_.path(), fmt::format("stream {}: {}", index, what), advice);
}

bool EditedStreams::ChangesPictures(unsigned index) const {
  return index == captioned_ || (EditsUnits(streams_.at(index).stream.codec) && options_.beyondCaptions());
}

void EditedStreams::RequireTrueOfDolbyVision(unsigned index) const {
  const std::optional<DolbyVisionConfiguration>& record = in_.streams()[index].dolbyVision;
  if (!record) return;
  if (!in_.carried())
    Fail(index, "is a Dolby Vision track, whose metadata would no longer fit", "patch the base layer alone");
  const bool looks = options_.colour || options_.fullRange || options_.mastering || options_.lightLevel;
  if (looks && record->dv_bl_signal_compatibility_id == 0)
    Fail(index,
         fmt::format(
             "is a Dolby Vision track of profile {}, whose base layer means nothing by itself: colour, "
             "range and HDR values would not be true of it",
             record->dv_profile),
         {});
  for (const BaseLayer& layer : kBaseLayers) {
    if (options_.colour && record->dv_bl_signal_compatibility_id == layer.compatibility &&
        !layer.Has(options_.colour->transfer))
      Fail(index,
           fmt::format("is a Dolby Vision track of profile {}, whose base layer is {}: another colour would "
                       "not be true of it",
                       record->dv_profile, layer.name),
           {});
  }
}

// Where samples cannot be read, only what stands outside of them is changed.
void EditedStreams::RequireClear(unsigned index) const {
  if (!in_.streams()[index].encrypted) return;
  const bool messages = options_.mastering || options_.lightLevel || !options_.timecode.empty() ||
                        options_.interlaced || options_.delimiters || options_.recoveryPoints;
  if (index == captioned_ || (messages && EditsUnits(streams_.at(index).stream.codec)))
    Fail(index, "is encrypted, and what is asked for changes its pictures", "decrypt it first");
}

void EditedStreams::FindStreams() {
  const std::vector<MediaStream>& all = in_.streams();
  for (const MediaStream& stream : all) {
    if (!stream.movingPictures || !EditsUnits(stream.coded.codec)) continue;
    RequireTrueOfDolbyVision(stream.index);
    streams_[stream.index].stream = in_.Describe(stream.index);
  }
  if (streams_.empty() && (options_.beyondCaptions() || !options_.captions))
    throw Error(in_.path(), "has no H.264 or HEVC stream");
  if (options_.captionsIntoPictures()) {
    for (const MediaStream& stream : all) {
      if (!captioned_ && MayHaveCaptions(stream.coded.codec)) captioned_ = stream.index;
    }
    if (!captioned_) throw Error(in_.path(), "has no H.264, HEVC or MPEG-2 stream");
    streams_[*captioned_].stream = in_.Describe(*captioned_);
  }
  for (const auto& [index, edited] : streams_) RequireClear(index);
}

void EditedStreams::Survey() {
  std::set<unsigned> wanted;
  for (auto& [index, edited] : streams_) {
    if (index != captioned_ && !NeedsSigns(edited.stream)) continue;
    edited.survey = std::make_unique<StreamSurvey>(edited.stream);
    wanted.insert(index);
  }
  if (wanted.empty()) return;
  in_.Read(wanted, options_.progress,
           [this](unsigned index, const PacketView& packet) { streams_.at(index).survey->Add(packet); });
  for (const unsigned index : wanted) streams_.at(index).survey->Finish();
}

void EditedStreams::MakeEditor(unsigned index, EditedStream& edited, CaptionProvider captions) {
  const std::string where = fmt::format("{}: stream {}", in_.path(), index);
  // MPEG-2 takes captions and nothing else.
  StreamChanges changes;
  if (EditsUnits(edited.stream.codec)) changes = options_;
  edited.others.clear();
  if (EditsUnits(edited.stream.codec) && options_.beyondCaptions()) {
    StreamDescription other = edited.stream;
    for (Bytes& data : in_.OtherPrivateData(index)) {
      other.privateData = std::move(data);
      edited.others.push_back(std::make_unique<StreamEditor>(other, changes, edited.survey.get(), where));
    }
  }
  changes.replaceCaptions = captions && options_.captions->replace;
  changes.captionProvider = std::move(captions);
  edited.editor = std::make_unique<StreamEditor>(edited.stream, changes, edited.survey.get(), where);
}

std::string TextOfCounts(const EditCounts& counts, const std::string& record,
                         const std::vector<std::string>& container) {
  std::string text;
  const auto add = [&text](const std::string& piece) { text += (text.empty() ? "" : ", ") + piece; };
  const auto count = [&add](int64_t number, const char* what) {
    if (number != 0) add(fmt::format("{} {}", number, what));
  };
  count(counts.sequenceSets, "sequence parameter sets in the stream changed");
  if (counts.privateSequenceSets != 0)
    add(fmt::format("{} sequence parameter sets in the {} changed", counts.privateSequenceSets, record));
  for (const std::string& piece : container) add(piece);
  count(counts.unitsRemoved, "units taken out");
  count(counts.messagesRemoved, "messages taken out");
  count(counts.hdrMessagesRemoved, "SEI messages taken out");
  count(counts.hdrUnits, "SEI units put in");
  count(counts.videoSets, "video parameter sets changed");
  count(counts.timingsChanged, "picture timing messages changed");
  count(counts.timingsAdded, "picture timing messages put in");
  count(counts.delimiters, "delimiters put in");
  count(counts.recoveryPoints, "recovery points put in");
  count(counts.intraWithoutRecovery,
        "intra pictures left alone, since nothing says that decoding can start there");
  count(counts.timecodes, "pictures got their timecode");
  return text.empty() ? "nothing to change" : text;
}

std::string EditedStreams::LineOf(unsigned index, const EditedStream& edited) const {
  EditCounts counts = edited.editor->counts();
  for (const auto& other : edited.others) {
    counts.privateSequenceSets += other->counts().privateSequenceSets;
    counts.videoSets += other->counts().videoSets;
  }
  counts.sequenceSets -= edited.borrowedSequenceSets;
  counts.videoSets -= edited.borrowedVideoSets;
  std::vector<std::string> container;
  if ((options_.colour || options_.fullRange) && in_.describesPictures())
    container.emplace_back("container colour set");
  if (options_.cropping && in_.describesPictures() && counts.sequenceSets + counts.privateSequenceSets != 0)
    container.emplace_back("container size set");
  const char* const boxName = edited.stream.codec == VideoCodec::kH264 ? "avcC" : "hvcC";
  const std::string record = ConfigOf(edited.stream).box ? boxName : "private data";
  return fmt::format("stream {}: {}", index, TextOfCounts(counts, record, container));
}

std::vector<std::string> EditedStreams::Summary() const {
  std::vector<std::string> lines;
  for (const auto& [index, edited] : streams_) {
    if (options_.beyondCaptions() && EditsUnits(edited.stream.codec)) lines.push_back(LineOf(index, edited));
  }
  if (captionFile_ == nullptr) return lines;
  for (std::string& line : captionFile_->Summary(streams_.at(*captioned_).editor->counts()))
    lines.push_back(std::move(line));
  return lines;
}

}  // namespace qlnmedia
