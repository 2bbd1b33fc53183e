// Remuxes with libavformat: same kind of container, all streams, times as they were.

#include "container/media_writer.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <new>
#include <utility>

#include "base/error.h"
#include "container/container_kind.h"
#include "container/container_rates.h"
#include "container/describe_stream.h"
#include "container/same_streams.h"

namespace qlnmedia {

namespace {

// A name in the directory of `path` that nothing else has; a long one is cut so that it stays a name.
std::string NameBeside(const std::string& path) {
  const size_t slash = path.rfind('/');
  const std::string directory = slash == std::string::npos ? "" : path.substr(0, slash + 1);
  const std::string name = slash == std::string::npos ? path : path.substr(slash + 1);
  return fmt::format("{}.{}.{}.part", directory, name.substr(0, 200), getpid());
}

// Whether a muxer takes a stream where it is the only one.
bool TakesAlone(const AVFormatContext& muxer, const AVStream& stream) {
  AVFormatContext* context = nullptr;
  if (avformat_alloc_output_context2(&context, muxer.oformat, nullptr, nullptr) < 0) throw std::bad_alloc();
  AVStream* const alone = avformat_new_stream(context, nullptr);
  bool taken = false;
  if (alone != nullptr && avcodec_parameters_copy(alone->codecpar, stream.codecpar) >= 0 &&
      avio_open_dyn_buf(&context->pb) >= 0) {
    alone->id = stream.id;
    alone->time_base = stream.time_base;
    av_dict_copy(&alone->metadata, stream.metadata, 0);
    taken = avformat_write_header(context, nullptr) >= 0;
    uint8_t* written = nullptr;
    avio_close_dyn_buf(context->pb, &written);
    av_freep(&written);
    context->pb = nullptr;
  }
  avformat_free_context(context);
  return taken;
}

// The duration that a tag of MKV tells, as "00:01:02.345000000", where it is one of whole milliseconds.
int64_t TaggedMilliseconds(const AVStream& stream) {
  const AVDictionaryEntry* const tag = av_dict_get(stream.metadata, "DURATION", nullptr, 0);
  int hours = 0;
  int minutes = 0;
  int seconds = 0;
  int nanoseconds = 0;
  if (tag == nullptr ||
      std::sscanf(tag->value, "%d:%2d:%2d.%9d", &hours, &minutes, &seconds, &nanoseconds) != 4 ||
      nanoseconds % 1000000 != 0)
    return AV_NOPTS_VALUE;
  return ((hours * int64_t{60} + minutes) * 60 + seconds) * 1000 + nanoseconds / 1000000;
}

}  // namespace

MediaWriter::MediaWriter(const MediaFile& in, const std::string& path, UnfinishedCallback unfinished,
                         bool dryRun)
    : in_(in),
      path_(path.empty() ? in.path() : path),
      beside_(NameBeside(path_)),
      callback_(std::move(unfinished)),
      dryRun_(dryRun) {
  const std::string format = RequireOutput(in, path);
  try {
    Open(format);
  } catch (...) {
    avformat_free_context(context_);
    context_ = nullptr;
    throw;
  }
}

MediaWriter::~MediaWriter() {
  if (context_ != nullptr) {
    if (context_->pb != nullptr && !scratch_) avio_closep(&context_->pb);
    context_->pb = nullptr;
    avformat_free_context(context_);
  }
  if (!inPlace_ && unfinished_) unlink(beside_.c_str());
}

void MediaWriter::Fail(const std::string& what, int error) const {
  throw Error(path_, fmt::format("{}: {}", what, LibavErrorText(error)));
}

void MediaWriter::Open(const std::string& format) {
  int result = avformat_alloc_output_context2(&context_, nullptr, format.c_str(), beside_.c_str());
  if (result < 0) Fail("cannot be written", result);
  // Nothing is to be shifted, filtered or added on the way.
  context_->avoid_negative_ts = AVFMT_AVOID_NEG_TS_DISABLED;
  context_->flags &= ~AVFMT_FLAG_AUTO_BSF;
  context_->flags |= AVFMT_FLAG_BITEXACT;
  av_dict_copy(&context_->metadata, in_.context()->metadata, 0);
  CopyStreams();
  CopyPrograms();
  CopyChapters();
}

void MediaWriter::CopyStreams() {
  const AVFormatContext& in = *in_.context();
  const bool matroska = std::string_view(context_->oformat->name) == "matroska";
  lastDts_.resize(in.nb_streams, AV_NOPTS_VALUE);
  rates_ = ContainerRates(in_);
  for (unsigned i = 0; i < in.nb_streams; ++i) {
    attachments_.push_back(matroska && (in.streams[i]->disposition & AV_DISPOSITION_ATTACHED_PIC) != 0);
    // Durations of subtitles are written, those of other packets only count for the tag.
    const bool written = in.streams[i]->codecpar->codec_type == AVMEDIA_TYPE_SUBTITLE;
    ends_.push_back(matroska && !written ? TaggedMilliseconds(*in.streams[i]) : AV_NOPTS_VALUE);
    CopyStream(i);
  }
}

void MediaWriter::CopyStream(unsigned index) {
  const AVStream& from = *in_.context()->streams[index];
  if (from.codecpar->codec_type != AVMEDIA_TYPE_ATTACHMENT && from.codecpar->codec_tag == 0 &&
      avformat_query_codec(context_->oformat, from.codecpar->codec_id, FF_COMPLIANCE_EXPERIMENTAL) == 0)
    throw Error(in_.path(), StreamText(from) + " cannot be carried over unchanged");
  AVStream* const to = avformat_new_stream(context_, nullptr);
  if (to == nullptr) throw std::bad_alloc();
  const int result = avcodec_parameters_copy(to->codecpar, from.codecpar);
  if (result < 0) Fail("cannot be prepared", result);
  to->id = from.id;
  to->time_base = from.time_base;
  to->disposition = from.disposition;
  to->sample_aspect_ratio = from.sample_aspect_ratio;
  // No muxer takes one that its stream contradicts, as two views in a picture do.
  if (from.sample_aspect_ratio.num > 0) to->codecpar->sample_aspect_ratio = from.sample_aspect_ratio;
  to->avg_frame_rate = from.avg_frame_rate;
  to->r_frame_rate = from.r_frame_rate;
  if (in_.streams()[index].hasColourDescription) to->avg_frame_rate = to->r_frame_rate = rates_[index];
  to->discard = from.discard;
  av_dict_copy(&to->metadata, from.metadata, 0);
  for (int n = 0; n < from.nb_side_data; ++n) {
    const AVPacketSideData& side = from.side_data[n];
    uint8_t* const copy = av_stream_new_side_data(to, side.type, side.size);
    if (copy == nullptr) throw std::bad_alloc();
    std::memcpy(copy, side.data, side.size);
  }
  CopyContainerFacts(index, *to->codecpar);
  if (!attachments_[index]) return;
  // The picture's one packet is the attached file.
  const AVPacket& picture = from.attached_pic;
  auto* const file =
      static_cast<uint8_t*>(av_mallocz(static_cast<size_t>(picture.size) + AV_INPUT_BUFFER_PADDING_SIZE));
  if (file == nullptr) throw std::bad_alloc();
  if (picture.size > 0) std::memcpy(file, picture.data, static_cast<size_t>(picture.size));
  av_freep(&to->codecpar->extradata);
  to->codecpar->extradata = file;
  to->codecpar->extradata_size = picture.size;
  to->codecpar->codec_type = AVMEDIA_TYPE_ATTACHMENT;
}

// What the container itself said of the pictures, not what the search found in the stream.
void MediaWriter::CopyContainerFacts(unsigned index, AVCodecParameters& to) const {
  const ContainerColour& said = in_.containerColour(index);
  to.color_primaries = static_cast<AVColorPrimaries>(said.primaries);
  to.color_trc = static_cast<AVColorTransferCharacteristic>(said.transfer);
  to.color_space = static_cast<AVColorSpace>(said.matrix);
  to.color_range = static_cast<AVColorRange>(said.range);
  const MediaStream& stream = in_.streams()[index];
  if (!stream.hasColourDescription || !stream.movingPictures) return;
  to.field_order = static_cast<AVFieldOrder>(said.fieldOrder);
  if (said.width <= 0 || said.height <= 0) return;
  to.width = said.width;
  to.height = said.height;
}

void MediaWriter::CopyPrograms() {
  for (unsigned i = 0; i < in_.context()->nb_programs; ++i) {
    const AVProgram& from = *in_.context()->programs[i];
    AVProgram* const to = av_new_program(context_, from.id);
    if (to == nullptr) throw std::bad_alloc();
    av_dict_copy(&to->metadata, from.metadata, 0);
    to->program_num = from.program_num;
    to->pmt_pid = from.pmt_pid;
    for (unsigned n = 0; n < from.nb_stream_indexes; ++n)
      av_program_add_stream_index(context_, from.id, from.stream_index[n]);
  }
}

void MediaWriter::CopyChapters() {
  const AVFormatContext& from = *in_.context();
  if (from.nb_chapters == 0) return;
  context_->chapters = static_cast<AVChapter**>(av_calloc(from.nb_chapters, sizeof(AVChapter*)));
  if (context_->chapters == nullptr) throw std::bad_alloc();
  for (unsigned i = 0; i < from.nb_chapters; ++i) {
    auto* const chapter = static_cast<AVChapter*>(av_mallocz(sizeof(AVChapter)));
    if (chapter == nullptr) throw std::bad_alloc();
    chapter->id = from.chapters[i]->id;
    chapter->time_base = from.chapters[i]->time_base;
    chapter->start = from.chapters[i]->start;
    chapter->end = from.chapters[i]->end;
    av_dict_copy(&chapter->metadata, from.chapters[i]->metadata, 0);
    context_->chapters[context_->nb_chapters++] = chapter;
  }
}

void MediaWriter::Begin() {
  if (dryRun_) {
    context_->pb = scratch_.emplace().context();
  } else {
    CreateFile();
  }
  WriteHeader();
}

void MediaWriter::CreateFile() {
  // Made new, with the rights that a file made by the user has.
  unfinished_.emplace(callback_, beside_);
  const int file = open(beside_.c_str(), O_WRONLY | O_CREAT | O_EXCL, 0666);
  if (file < 0) {
    const int reason = errno;
    unfinished_.reset();
    throw Error(path_, fmt::format("cannot be written: {}", std::strerror(reason)));
  }
  close(file);
  const int result = avio_open(&context_->pb, ("file:" + beside_).c_str(), AVIO_FLAG_WRITE);
  if (result < 0) Fail("cannot be written", result);
}

void MediaWriter::WriteHeader() {
  int result = avformat_init_output(context_, nullptr);
  if (result >= 0) {
    // The preparation takes the input's tag away, so that it can put its own there.
    const AVDictionaryEntry* const encoder = av_dict_get(in_.context()->metadata, "encoder", nullptr, 0);
    if (encoder != nullptr) av_dict_set(&context_->metadata, encoder->key, encoder->value, 0);
    result = avformat_write_header(context_, nullptr);
  }
  if (result >= 0) return;
  for (unsigned i = 0; i < context_->nb_streams; ++i) {
    if (!TakesAlone(*context_, *context_->streams[i]))
      throw Error(in_.path(),
                  StreamText(*in_.context()->streams[i]) + " is not taken by the container's muxer",
                  "such files cannot be patched");
  }
  Fail("the container cannot take these streams together", result);
}

void MediaWriter::Write(AVPacket* packet) {
  const auto index = static_cast<unsigned>(packet->stream_index);
  if (index >= attachments_.size()) {  // a stream that came up behind the start of the file
    av_packet_unref(packet);
    throw Error(in_.path(), fmt::format("stream {} begins in the middle of the file", index),
                "such files cannot be patched");
  }
  if (attachments_[index]) return av_packet_unref(packet);
  av_packet_rescale_ts(packet, in_.context()->streams[index]->time_base, context_->streams[index]->time_base);
  packet->pos = -1;
  if (std::string_view(context_->oformat->name) == "matroska") {
    PutDelayBack(packet);
    KeepTaggedEnd(packet);
  }
  const int64_t dts = packet->dts;
  // The order of the input is kept.
  const int result = av_write_frame(context_, packet);
  av_packet_unref(packet);
  if (result == AVERROR(EINVAL) && lastDts_[index] != AV_NOPTS_VALUE && dts <= lastDts_[index])
    throw Error(in_.path(), fmt::format("stream {}: its times go back, which cannot be written", index),
                "cut the file there");
  lastDts_[index] = dts;
  if (context_->pb->error < 0) Fail("writing failed", context_->pb->error);
  if (result < 0) Fail(StreamText(*in_.context()->streams[index]) + ": writing failed", result);
}

// MKV counts from the first sample that a decoder gives, the reader from the first that is heard.
void MediaWriter::PutDelayBack(AVPacket* packet) const {
  const AVStream& to = *context_->streams[packet->stream_index];
  const AVCodecParameters& sound = *to.codecpar;
  const int rate = sound.codec_id == AV_CODEC_ID_OPUS ? 48000 : sound.sample_rate;
  if (sound.codec_type != AVMEDIA_TYPE_AUDIO || sound.initial_padding <= 0 || rate <= 0) return;
  const int64_t delay = av_rescale_q(sound.initial_padding, AVRational{1, rate}, to.time_base);
  if (packet->pts != AV_NOPTS_VALUE) packet->pts += delay;
  if (packet->dts != AV_NOPTS_VALUE) packet->dts += delay;
}

// The muxer's duration tag is the latest end of a stream's packets, and how long they are goes nowhere else.
void MediaWriter::KeepTaggedEnd(AVPacket* packet) const {
  const int64_t end = ends_[static_cast<size_t>(packet->stream_index)];
  if (end != AV_NOPTS_VALUE && packet->pts != AV_NOPTS_VALUE && end > packet->pts)
    packet->duration = end - packet->pts;
}

void MediaWriter::Close() {
  if (scratch_) {
    context_->pb = nullptr;
    return;
  }
  const int closed = avio_closep(&context_->pb);
  if (closed < 0) Fail("writing failed", closed);
}

std::vector<std::string> MediaWriter::Finish(const std::function<void(const std::string&)>& check) {
  int result = av_write_trailer(context_);
  if (result >= 0 && context_->pb->error < 0) result = context_->pb->error;
  if (result < 0) Fail("writing failed", result);
  Close();
  std::vector<std::string> otherwise;
  const std::string written = scratch_ ? scratch_->path() : beside_;
  if (!in_.isRawStream() && !written.empty()) otherwise = RequireSameStreams(in_, *context_, written);
  if (!written.empty() && (!scratch_ || scratch_->whole())) check(written);
  if (scratch_) return otherwise;
  if (std::rename(beside_.c_str(), path_.c_str()) != 0)
    throw Error(path_, fmt::format("cannot be put in place: {}", std::strerror(errno)));
  inPlace_ = true;
  return otherwise;
}

}  // namespace qlnmedia
