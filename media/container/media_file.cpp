// Opens media with libavformat and words its failures.

#include "container/media_file.h"

#include <fmt/format.h>
#include <sys/stat.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <new>
#include <set>

#include "base/error.h"
#include "base/read_error.h"
#include "base/text.h"
#include "container/coded_stream.h"
#include "container/describe_stream.h"
#include "container/libav_handles.h"
#include "container/mp4/top_level.h"
#include "container/mxf/pictures.h"
#include "container/open_failures.h"

namespace qlnmedia {

namespace {

// What is stored may be more than what is shown: SMPTE ST 377-1 has 1088 lines of it, or 544 in each of two
// fields, where the picture has 1080, and so have most writers. That is whole macroblocks, and no other size.
void TakeStoredSize(MediaStream& stream) {
  const auto take = [](int& stored, int shown, int step) {
    if (stored == (shown + step - 1) / step * step) stored = shown;
  };
  constexpr int kMacroblock = 16;
  take(stream.container.width, stream.width, kMacroblock);
  take(stream.container.height, stream.height, kMacroblock);
  if (stream.fieldOrder != FieldOrder::kProgressive)
    take(stream.container.height, stream.height, 2 * kMacroblock);
}

bool IsOneOf(std::string_view name, std::initializer_list<std::string_view> names) {
  return std::find(names.begin(), names.end(), name) != names.end();
}

AVIOContext* OpenPipe(int (*read)(void*, uint8_t*, int), void* reader) {
  constexpr int kBuffer = 1 << 16;
  auto* const buffer = static_cast<uint8_t*>(av_malloc(kBuffer));
  if (buffer == nullptr) throw std::bad_alloc();
  AVIOContext* const pipe = avio_alloc_context(buffer, kBuffer, 0, reader, read, nullptr, nullptr);
  if (pipe != nullptr) return pipe;
  av_free(buffer);
  throw std::bad_alloc();
}

// Demuxers that take any text or a single picture for media.
bool IsNoMedia(std::string_view format) {
  return IsOneOf(format, {"tty", "image2", "concat", "ffmetadata", "hls"}) ||
         (format.size() > 5 && format.substr(format.size() - 5) == "_pipe");
}

// The parsers put what they find in a picture in the place of the container's mark, which gets lost where the
// picture itself does not say that decoding can start there. The index still has it.
void RestoreKeyMark(const AVFormatContext& context, AVPacket* packet) {
  const std::string_view format = context.iformat->name;
  const bool mov = format.substr(0, 4) == "mov,";
  if (!mov && format.substr(0, 8) != "matroska") return;
  const int64_t time = mov ? packet->dts : packet->pts;
  if ((packet->flags & AV_PKT_FLAG_KEY) != 0 || time == AV_NOPTS_VALUE) return;
  AVStream* const stream = context.streams[packet->stream_index];
  const int found = av_index_search_timestamp(stream, time, AVSEEK_FLAG_ANY);
  const AVIndexEntry* const entry = found < 0 ? nullptr : avformat_index_get_entry(stream, found);
  if (entry == nullptr || entry->timestamp != time || (mov && entry->pos != packet->pos)) return;
  if ((entry->flags & AVINDEX_KEYFRAME) != 0) packet->flags |= AV_PKT_FLAG_KEY;
}

// Whether it is the system that did not do it, whatever the file is.
bool IsRefusal(int result) {
  constexpr std::array kRefusals = {AVERROR(EIO), AVERROR(EMFILE), AVERROR(ENFILE), AVERROR(EINTR),
                                    AVERROR(ENOSPC)};
  return std::find(kRefusals.begin(), kRefusals.end(), result) != kRefusals.end();
}

// A path that leads to a file.
MediaInput FileAt(const std::string& path) {
  MediaInput input(path);
  input.RequireFile("this");
  return input;
}

}  // namespace

std::string LibavErrorText(int error) {
  std::array<char, AV_ERROR_MAX_STRING_SIZE> text{};
  av_strerror(error, text.data(), text.size());
  return text.data();
}

MediaFile::MediaFile(const MediaInput& input) : MediaFile(input, {}) {}

MediaFile::MediaFile(const MediaInput& input, std::string_view format) : input_(input) {
  LibavMemory::Forget();
  const std::string& file = path();
  if (!isPipe()) {
    struct stat status {};
    if (stat(file.c_str(), &status) != 0) throw Error(file, std::strerror(errno), "check the path");
    if (S_ISDIR(status.st_mode)) throw Error(file, "is a directory", "name a media file");
    sizeBytes_ = status.st_size;
    if (S_ISREG(status.st_mode) && sizeBytes_ == 0) throw NotApplicable(file, "is empty");
  }
  Open(format);
  if (IsNoMedia(formatName())) FailNoMedia(file);

  std::vector<ContainerColour> colours;
  for (unsigned i = 0; i < context_->nb_streams; ++i)
    colours.push_back(DescribeContainerColour(*context_->streams[i]));
  const int found = avformat_find_stream_info(context_.get(), nullptr);
  RequireRead(found);
  if (found == AVERROR_INVALIDDATA) FailNoMedia(file);
  if (found < 0) throw Error(file, "its streams cannot be read: " + LibavErrorText(found));
  if (context_->nb_streams == 0) FailNoMedia(file);
  LookAtBoxes();
  Describe(colours);
}

MediaFile::MediaFile(const std::string& path, std::string_view format) : MediaFile(FileAt(path), format) {}

void MediaFile::Open(std::string_view format) {
  AVDictionary* options = nullptr;
  av_dict_set(&options, "protocol_whitelist", "file", 0);
  AVFormatContext* opened = nullptr;
  // With the protocol named, a colon in a file name is a colon.
  std::string name = "file:" + path();
  if (isPipe()) {
    RequireIndexInFront(input_);
    pipe_.reset(OpenPipe(ReadPipe, this));
    opened = avformat_alloc_context();
    if (opened == nullptr) throw std::bad_alloc();
    opened->pb = pipe_.get();
    name = path();
  }
  const AVInputFormat* const known =
      format.empty() ? nullptr : av_find_input_format(std::string(format).c_str());
  const int result = avformat_open_input(&opened, name.c_str(), known, &options);
  av_dict_free(&options);
  if (result == AVERROR(ENOMEM)) throw std::bad_alloc();
  if (IsRefusal(result)) throw ReadError(path(), "cannot be read: " + LibavErrorText(result));
  if (result < 0) {
    if (isPipe() && input_.tape().size() == 0) FailWithoutBytes(input_);
    if (!isPipe() && BeginsWithBox(path())) FailBoxes(path());
    if (result == AVERROR_INVALIDDATA || result == AVERROR_EOF) FailNoMedia(path());
    throw Error(path(), "cannot be opened: " + LibavErrorText(result));
  }
  context_.reset(opened);
  RequireRead(result);
  KnowHevcOfMxf();
}

// libavformat knows no label of HEVC in MXF; it takes the codec that it is told.
void MediaFile::KnowHevcOfMxf() {
  if (!isMxf() || isPipe()) return;
  std::vector<AVCodecParameters*> unknown;
  for (unsigned i = 0; i < context_->nb_streams; ++i) {
    AVCodecParameters* const parameters = context_->streams[i]->codecpar;
    if (parameters->codec_type == AVMEDIA_TYPE_VIDEO && parameters->codec_id == AV_CODEC_ID_NONE)
      unknown.push_back(parameters);
  }
  try {
    if (unknown.empty() || !mxf::BeginsWithHevc(mp4::FileSource(path()))) return;
  } catch (const ReadError&) {
    throw;
  } catch (const Error&) {
    return;  // what libavformat makes of it stands
  }
  for (AVCodecParameters* const parameters : unknown) parameters->codec_id = AV_CODEC_ID_HEVC;
}

int MediaFile::ReadPipe(void* file, uint8_t* to, int size) {
  auto* const self = static_cast<MediaFile*>(file);
  // Nothing may be thrown through libavformat.
  try {
    const size_t got =
        self->input_.tape().Read(self->pipeAt_, std::span(to, static_cast<size_t>(std::max(size, 0))));
    self->pipeAt_ += got;
    return got == 0 ? AVERROR_EOF : static_cast<int>(got);
  } catch (const std::bad_alloc&) {
    return AVERROR(ENOMEM);
  } catch (const Error&) {
    return AVERROR(EIO);
  }
}

// Where reading fails, libavformat goes on with what it has: what it then makes of a file is not what the
// file says.
void MediaFile::RequireRead(int result) const {
  const int failed = context_->pb == nullptr || context_->pb->error == AVERROR_EOF ? 0 : context_->pb->error;
  if (result == AVERROR(ENOMEM) || failed == AVERROR(ENOMEM) || LibavMemory::RanOut()) throw std::bad_alloc();
  if (failed < 0) throw ReadError(path(), "cannot be read: " + LibavErrorText(failed));
}

void MediaFile::LookAtBoxes() {
  if (!isIso() || (!isPipe() && sizeBytes_ == 0)) return;
  fragmented_ = mp4::IsFragmented(*input_.Boxes());
}

void MediaFile::PipeCloser::operator()(AVIOContext* pipe) const {
  av_freep(&pipe->buffer);
  avio_context_free(&pipe);
}

void MediaFile::ContextCloser::operator()(AVFormatContext* context) const { avformat_close_input(&context); }

void MediaFile::PacketFreer::operator()(AVPacket* packet) const { av_packet_free(&packet); }

void MediaFile::Describe(const std::vector<ContainerColour>& colours) {
  const bool described = !isRawStream() && !isTransportStream();
  for (size_t i = streams_.size(); i < context_->nb_streams; ++i) {
    streams_.push_back(DescribeMediaStream(*context_->streams[i],
                                           i < colours.size() ? colours[i] : ContainerColour{}, isRawStream(),
                                           described));
    if (isMxf()) TakeStoredSize(streams_.back());
  }
  if (!isIso() || (!isPipe() && sizeBytes_ == 0)) return;
  // The demuxer puts the codec in the place of the fourcc of encrypted pictures; their protection scheme
  // (ISO/IEC 14496-12 clause 8.12) shows in the boxes.
  const std::set<uint32_t> encrypted = mp4::EncryptedTracks(*input_.Boxes());
  for (MediaStream& stream : streams_)
    stream.encrypted = stream.encrypted || encrypted.count(static_cast<uint32_t>(stream.id)) != 0;
}

std::string_view MediaFile::formatName() const { return context_->iformat->name; }

std::string_view MediaFile::formatLongName() const { return context_->iformat->long_name; }

double MediaFile::seconds() const {
  return context_->duration > 0 ? static_cast<double>(context_->duration) / AV_TIME_BASE : 0;
}

int64_t MediaFile::bitRate() const { return std::max<int64_t>(context_->bit_rate, 0); }

std::vector<Tag> MediaFile::tags() const { return DescribeTags(context_->metadata); }

std::vector<Chapter> MediaFile::chapters() const {
  std::vector<Chapter> chapters;
  for (unsigned i = 0; i < context_->nb_chapters; ++i) {
    const AVChapter& chapter = *context_->chapters[i];
    const Rational unit = FromLibav(chapter.time_base);
    chapters.push_back(
        {SecondsOf(chapter.start, unit), SecondsOf(chapter.end, unit), DescribeTags(chapter.metadata)});
  }
  return chapters;
}

std::vector<Program> MediaFile::programs() const {
  std::vector<Program> programs;
  for (unsigned i = 0; i < context_->nb_programs; ++i) {
    const AVProgram& program = *context_->programs[i];
    const AVDictionaryEntry* const name = av_dict_get(program.metadata, "service_name", nullptr, 0);
    programs.push_back(
        {program.id, name == nullptr ? "" : name->value,
         std::vector<unsigned>(program.stream_index, program.stream_index + program.nb_stream_indexes)});
  }
  return programs;
}

SamplePace MediaFile::IndexedPace(unsigned stream) const {
  SamplePace pace;
  if (!isIso()) return pace;
  AVStream* const of = context_->streams[stream];
  const int entries = avformat_index_get_entries_count(of);
  int64_t shortest = INT64_MAX;
  int64_t longest = 0;
  int64_t before = 0;
  for (int n = 0; n < entries; ++n) {
    const AVIndexEntry* const entry = avformat_index_get_entry(of, n);
    if (entry == nullptr) continue;
    if (n > 0) {
      shortest = std::min(shortest, entry->timestamp - before);
      longest = std::max(longest, entry->timestamp - before);
    }
    before = entry->timestamp;
    ++pace.samples;
  }
  // Times that are rounded to the track's clock differ by one tick.
  pace.steady = longest - shortest <= 1;
  return pace;
}

std::optional<IndexedPacket> MediaFile::PacketOfIndex(unsigned stream, int number) const {
  const AVIndexEntry* const entry = avformat_index_get_entry(context_->streams[stream], number);
  if (entry == nullptr) return {};
  return IndexedPacket{entry->pos, entry->size, entry->timestamp};
}

bool MediaFile::isRawStream() const { return IsOneOf(formatName(), {"h264", "hevc", "mpegvideo", "m4v"}); }

bool MediaFile::IsVideo(const AVStream& stream) {
  return stream.codecpar->codec_type == AVMEDIA_TYPE_VIDEO &&
         (stream.disposition & AV_DISPOSITION_ATTACHED_PIC) == 0;
}

void MediaFile::RequireVideo() const {
  for (const MediaStream& stream : streams_) {
    if (stream.movingPictures) return;
  }
  throw NotApplicable(path(), "has no video stream");
}

bool MediaFile::Next(MediaPacket& packet) {
  if (packet_ == nullptr) packet_.reset(av_packet_alloc());
  if (packet_ == nullptr) throw std::bad_alloc();
  if (!Read(packet_.get())) return false;
  if (context_->nb_streams > streams_.size()) Describe({});
  const bool damaged = (packet_->flags & AV_PKT_FLAG_CORRUPT) != 0;
  packet = {static_cast<unsigned>(packet_->stream_index), ViewOf(*packet_), damaged};
  return true;
}

bool MediaFile::Read(AVPacket* packet) {
  av_packet_unref(packet);
  const int result = av_read_frame(context_.get(), packet);
  if (result >= 0) {
    if ((packet->flags & AV_PKT_FLAG_CORRUPT) != 0)
      endNote_ = DamagedPacketNote(static_cast<unsigned>(packet->stream_index));
    if (IsVideo(*context_->streams[packet->stream_index])) RestoreKeyMark(*context_, packet);
    return true;
  }
  RequireRead(result);
  stoppedEarly_ = result != AVERROR_EOF;
  if (stoppedEarly_) endNote_ = "reading stopped early: " + LibavErrorText(result);
  return false;
}

std::string MediaFile::DamagedPacketNote(unsigned stream) {
  return fmt::format("a packet of stream {} is cut off or damaged", stream);
}

std::string MediaFile::TruncationNote() const {
  int64_t indexEnd = 0;
  for (unsigned i = 0; i < context_->nb_streams; ++i) {
    AVStream* const stream = context_->streams[i];
    const int entries = avformat_index_get_entries_count(stream);
    for (int n = 0; n < entries; ++n) {
      const AVIndexEntry* const entry = avformat_index_get_entry(stream, n);
      if (entry != nullptr && entry->size > 0) indexEnd = std::max(indexEnd, entry->pos + entry->size);
    }
  }
  if (isIso() && sizeBytes_ > 0 && indexEnd > sizeBytes_)
    return fmt::format("the file ends early: its index names data up to byte {}, the file has {} bytes",
                       indexEnd, sizeBytes_);
  if (isIso() && sizeBytes_ > 0) {
    const std::optional<mp4::WrongBox> wrong = mp4::FindWrongBox(mp4::FileSource(path()));
    if (wrong && wrong->type == mp4::FourCc("mdat") && wrong->said > wrong->left)
      return fmt::format("the file ends early: its media data (mdat) has {} bytes, of which {} are there",
                         wrong->said, wrong->left);
  }
  if (isTransportStream() && sizeBytes_ > 0 && sizeBytes_ % 188 != 0 && sizeBytes_ % 192 != 0 &&
      sizeBytes_ % 204 != 0)
    return "the file ends early: its last transport packet is cut off";
  return endNote_;
}

}  // namespace qlnmedia
