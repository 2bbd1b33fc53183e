// Drives the editors of a file's streams.

#include "patch/edited_streams.h"

#include <fmt/format.h>

#include <new>
#include <utility>

#include "base/error.h"
#include "container/coded_stream.h"
#include "container/edited_stream.h"
#include "container/file_captions.h"
#include "container/packet_joiner.h"
#include "edit/survey_facts.h"

namespace qlnmedia {

EditedStreams::EditedStreams(const MediaFile& in, const EditOptions& options) : in_(in), options_(options) {
  FindStreams();
  // What can be refused without reading the file is refused first.
  for (auto& [index, edited] : streams_) {
    if (!NeedsSigns(edited.stream)) MakeEditor(index, edited, {});
  }
  if (options_.captions) captionFile_ = std::make_unique<CaptionFile>(*options_.captions);
  Survey();
  for (auto& [index, edited] : streams_) {
    if (NeedsSigns(edited.stream)) MakeEditor(index, edited, {});
  }
  if (!captioned_) return;
  Edited& edited = streams_.at(*captioned_);
  captionFile_->SpreadOver(edited.survey->facts().captions, in_.path(), *captioned_);
  MakeEditor(*captioned_, edited, captionFile_->provider());
}

// Whether a look at all its pictures must tell fields from frames.
bool EditedStreams::NeedsSigns(const StreamDescription& stream) const {
  return options_.interlaced && stream.codec == VideoCodec::kHevc;
}

void EditedStreams::Fail(unsigned index, const std::string& what, const std::string& advice) const {
  throw Error(in_.path(), fmt::format("stream {}: {}", index, what), advice);
}

void EditedStreams::FindStreams() {
  for (unsigned i = 0; i < in_.context()->nb_streams; ++i) {
    const AVStream& stream = *in_.context()->streams[i];
    if (!CodecOf(stream)) continue;
    if (av_stream_get_side_data(&stream, AV_PKT_DATA_DOVI_CONF, nullptr) != nullptr)
      Fail(i, "is a Dolby Vision track, whose metadata would no longer fit", "patch the base layer alone");
    streams_[i].stream = DescribeStream(in_, i);
  }
  if (streams_.empty() && (options_.beyondCaptions() || !options_.captions))
    throw Error(in_.path(), "has no H.264 or HEVC stream");
  if (!options_.captions) return;
  for (unsigned i = 0; i < in_.context()->nb_streams && !captioned_; ++i) {
    if (MayHaveCaptions(*in_.context()->streams[i])) captioned_ = i;
  }
  if (!captioned_) throw Error(in_.path(), "has no H.264, HEVC or MPEG-2 stream");
  streams_[*captioned_].stream = DescribeStream(in_, *captioned_);
}

void EditedStreams::Survey() {
  bool any = false;
  for (auto& [index, edited] : streams_) {
    const bool wanted = index == captioned_ || NeedsSigns(edited.stream);
    if (wanted) edited.survey = std::make_unique<StreamSurvey>(edited.stream);
    any = any || wanted;
  }
  if (!any) return;
  MediaFile file(in_.path());
  PacketJoiner joiner(file);
  const auto take = [this](PacketHandle packet) {
    const auto found = streams_.find(static_cast<unsigned>(packet->stream_index));
    if (found != streams_.end() && found->second.survey != nullptr)
      found->second.survey->Add(ViewOf(*packet));
  };
  const PacketHandle packet(av_packet_alloc());
  if (packet == nullptr) throw std::bad_alloc();
  Progress meter(options_.progress, "reading", file.sizeBytes());
  while (file.Read(packet.get())) {
    meter.At(packet->pos);
    if (PacketHandle whole = joiner.Take(packet.get())) take(std::move(whole));
  }
  while (PacketHandle whole = joiner.Finish()) take(std::move(whole));
  meter.Done();
  for (auto& [index, edited] : streams_) {
    if (edited.survey != nullptr) edited.survey->Finish();
  }
}

void EditedStreams::MakeEditor(unsigned index, Edited& edited, CaptionProvider captions) {
  // MPEG-2 takes captions and nothing else.
  StreamChanges changes;
  if (edited.stream.codec != VideoCodec::kMpeg2) changes = options_;
  changes.replaceCaptions = captions && options_.captions->replace;
  changes.captionProvider = std::move(captions);
  edited.editor = std::make_unique<StreamEditor>(edited.stream, changes, edited.survey.get(),
                                                 fmt::format("{}: stream {}", in_.path(), index));
}

void EditedStreams::SetParametersOf(const MediaWriter& out) const {
  for (const auto& [index, edited] : streams_) {
    if (edited.stream.codec == VideoCodec::kMpeg2) continue;
    OutputParameters parameters;
    parameters.privateData = edited.editor->privateData();
    parameters.colour = options_.colour;
    parameters.fullRange = options_.fullRange;
    parameters.mastering = options_.mastering;
    parameters.lightLevel = options_.lightLevel;
    parameters.interlaced = options_.interlaced;
    parameters.bottomFirst = edited.stream.bottomFirst;
    SetParameters(out.stream(index), parameters);
  }
}

void EditedStreams::Push(const AVPacket& packet) {
  const auto index = static_cast<unsigned>(packet.stream_index);
  const auto found = streams_.find(index);
  if (found == streams_.end()) return;
  if (found->second.stream.codec != VideoCodec::kMpeg2 &&
      av_packet_get_side_data(&packet, AV_PKT_DATA_NEW_EXTRADATA, nullptr) != nullptr)
    Fail(index, "has several sample descriptions", "split the file where they change");
  found->second.editor->Push({Bytes(packet.data, packet.data + packet.size), packet.pts, packet.dts,
                              (packet.flags & AV_PKT_FLAG_KEY) != 0});
}

bool EditedStreams::Pull(AVPacket* packet) {
  const auto found = streams_.find(static_cast<unsigned>(packet->stream_index));
  if (found == streams_.end()) return true;
  const std::optional<EditedUnit> edited = found->second.editor->Pull();
  if (!edited) return false;
  if (edited->unit.key) packet->flags |= AV_PKT_FLAG_KEY;
  if (edited->changed) ReplacePacketData(packet, edited->unit.data);
  return true;
}

void EditedStreams::Finish() {
  for (auto& [index, edited] : streams_) edited.editor->Finish();
}

std::string EditedStreams::LineOf(unsigned index, const Edited& edited) const {
  const EditCounts& counts = edited.editor->counts();
  std::string text;
  const auto add = [&text](const std::string& piece) { text += (text.empty() ? "" : ", ") + piece; };
  const auto count = [&add](int64_t number, const char* what) {
    if (number != 0) add(fmt::format("{} {}", number, what));
  };
  count(counts.sequenceSets, "sequence parameter sets in the stream changed");
  const char* const boxName = edited.stream.codec == VideoCodec::kH264 ? "avcC" : "hvcC";
  if (counts.privateSequenceSets != 0)
    add(fmt::format("{} sequence parameter sets in the {} changed", counts.privateSequenceSets,
                    ConfigOf(edited.stream).box ? boxName : "private data"));
  if (options_.colour || options_.fullRange) add("container colour set");
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
  return fmt::format("stream {}: {}", index, text.empty() ? "nothing to change" : text);
}

std::vector<std::string> EditedStreams::Summary() const {
  std::vector<std::string> lines;
  for (const auto& [index, edited] : streams_) {
    if (options_.beyondCaptions() && edited.stream.codec != VideoCodec::kMpeg2)
      lines.push_back(LineOf(index, edited));
  }
  if (captionFile_ == nullptr) return lines;
  for (std::string& line : captionFile_->Summary(streams_.at(*captioned_).editor->counts()))
    lines.push_back(std::move(line));
  return lines;
}

}  // namespace qlnmedia
