// Compares the streams of two files by what libavformat reads of them.

#include "container/same_streams.h"

#include <fmt/format.h>

#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <cstring>

#include "base/error.h"
#include "base/text.h"
#include "container/container_rates.h"
#include "container/describe_stream.h"
#include "container/hdr_side_data.h"
#include "container/mkv_head.h"

namespace qlnmedia {

namespace {

// As some muxers spell names of tags.
std::string Spelled(std::string name) {
  std::transform(name.begin(), name.end(), name.begin(),
                 [](unsigned char c) { return c == ' ' ? '_' : static_cast<char>(std::toupper(c)); });
  return name;
}

// Tags of a file, a stream, a chapter or a program.
class TagComparison {
 public:
  TagComparison(const AVDictionary* was, const AVDictionary* is)
      : was_(DescribeTags(was)), is_(DescribeTags(is)) {}

  // The first tag that is not there, or says something else; empty where none is so. Fills `otherwise`.
  std::string Lost(const std::string& where, std::vector<std::string>& otherwise) {
    std::string lost;
    for (const Tag& tag : was_) {
      auto found = Find([&](const Tag& other) { return other.name == tag.name; });
      if (found == is_.end()) {
        found = Find([&](const Tag& other) { return Spelled(other.name) == Spelled(tag.name); });
        // The name of the program that wrote a file is a field there and may come back as a tag.
        if (found != is_.end() && Spelled(tag.name) != "ENCODER")
          otherwise.push_back(fmt::format("{}: the tag {} is now called {}", where, Printable(tag.name),
                                          Printable(found->name)));
      }
      if (found == is_.end() || (found->text != tag.text && tag.name != kDuration)) {
        if (lost.empty()) lost = tag.name;
      } else if (found->text != tag.text) {
        otherwise.push_back(fmt::format("{}: the tag {} says {}, and said {}", where, tag.name,
                                        Printable(found->text), Printable(tag.text)));
      }
      if (found != is_.end()) is_.erase(found);
    }
    for (const Tag& tag : is_)
      otherwise.push_back(
          fmt::format("{}: a tag {} came in: {}", where, Printable(tag.name), Printable(tag.text)));
    return lost;
  }

 private:
  // What muxers of MKV work out themselves.
  static constexpr const char* kDuration = "DURATION";

  template <class Matches>
  std::vector<Tag>::iterator Find(const Matches& matches) {
    return std::find_if(is_.begin(), is_.end(), matches);
  }

  std::vector<Tag> was_;
  std::vector<Tag> is_;
};

struct SideDataName {
  AVPacketSideDataType type;
  const char* name;
};
constexpr SideDataName kSideDataNames[] = {{AV_PKT_DATA_DISPLAYMATRIX, "orientation"},
                                           {AV_PKT_DATA_STEREO3D, "stereo arrangement"},
                                           {AV_PKT_DATA_SPHERICAL, "spherical mapping"},
                                           {AV_PKT_DATA_REPLAYGAIN, "replay gain"},
                                           {AV_PKT_DATA_DOVI_CONF, "Dolby Vision configuration"},
                                           {AV_PKT_DATA_ENCRYPTION_INIT_INFO, "encryption"}};

bool SameSideData(const AVStream& a, const AVStream& b, AVPacketSideDataType type) {
  size_t sizeA = 0;
  size_t sizeB = 0;
  const uint8_t* const dataA = av_stream_get_side_data(&a, type, &sizeA);
  const uint8_t* const dataB = av_stream_get_side_data(&b, type, &sizeB);
  if (dataA == nullptr || dataB == nullptr) return dataA == dataB;
  return sizeA == sizeB && std::memcmp(dataA, dataB, sizeA) == 0;
}

// What stands in either stream; empty if nothing differs. Buffer sizes are worked out anew, and HDR values
// are compared as such.
std::string SideDataDifference(const AVStream& was, const AVStream& is) {
  for (const AVStream* stream : {&was, &is}) {
    for (int n = 0; n < stream->nb_side_data; ++n) {
      const AVPacketSideDataType type = stream->side_data[n].type;
      if (type == AV_PKT_DATA_CPB_PROPERTIES || type == AV_PKT_DATA_MASTERING_DISPLAY_METADATA ||
          type == AV_PKT_DATA_CONTENT_LIGHT_LEVEL || SameSideData(was, is, type))
        continue;
      for (const SideDataName& known : kSideDataNames) {
        if (known.type == type) return known.name;
      }
      return fmt::format("side data of type {}", static_cast<int>(type));
    }
  }
  return {};
}

bool SameShape(AVRational a, AVRational b) {
  if (a.num == 0 || b.num == 0) return (a.num == 0 || a.num == a.den) && (b.num == 0 || b.num == b.den);
  return av_cmp_q(a, b) == 0;
}

bool SameBytes(const AVCodecParameters& a, const AVCodecParameters& b) {
  return a.extradata_size == b.extradata_size &&
         (a.extradata_size == 0 ||
          std::memcmp(a.extradata, b.extradata, static_cast<size_t>(a.extradata_size)) == 0);
}

// What the container itself says of pictures: `is` against what the muxer was told.
std::string PictureDifference(const AVStream& wanted, const ContainerColour& is) {
  const AVCodecParameters& told = *wanted.codecpar;
  const auto number = [](auto value) { return static_cast<int>(value); };
  if (number(told.color_primaries) != is.primaries || number(told.color_trc) != is.transfer ||
      number(told.color_space) != is.matrix)
    return "colour";
  if (number(told.color_range) != is.range) return "range";
  if (told.width != is.width || told.height != is.height) return "size";
  if (number(told.field_order) != is.fieldOrder) return "field order";
  return {};
}

std::string SoundDifference(const AVCodecParameters& was, const AVCodecParameters& is) {
  if (was.sample_rate != is.sample_rate) return "sample rate";
  if (was.ch_layout.nb_channels != is.ch_layout.nb_channels) return "channels";
  if (was.initial_padding != is.initial_padding || was.seek_preroll != is.seek_preroll) return "delay";
  return was.bits_per_raw_sample != is.bits_per_raw_sample ? "depth" : "";
}

// Two files, the second of which a muxer wrote.
class FileComparison {
 public:
  FileComparison(const MediaFile& in, const AVFormatContext& wanted, const std::string& written)
      : in_(in), out_(written), was_(*in.context()), is_(*out_.context()), wanted_(wanted) {}

  std::vector<std::string> Run() {
    if (was_.nb_streams != is_.nb_streams)
      Fail(fmt::format("its streams ({}; the output would have {})", was_.nb_streams, is_.nb_streams));
    CompareTags("the file", was_.metadata, is_.metadata);
    for (unsigned i = 0; i < was_.nb_streams; ++i) {
      const std::string difference = StreamDifference(i);
      if (!difference.empty()) Fail(fmt::format("{}: its {}", StreamText(*was_.streams[i]), difference));
      CompareTags(StreamText(*was_.streams[i]), was_.streams[i]->metadata, is_.streams[i]->metadata);
    }
    ComparePrograms();
    CompareChapters();
    if (in_.formatName().substr(0, 8) == "matroska") {
      for (const std::string& lost : LostMkvElements(in_.path(), out_.path()))
        otherwise_.push_back(lost + ": the container's muxer does not write that");
    }
    return std::move(otherwise_);
  }

 private:
  [[noreturn]] void Fail(const std::string& what) const {
    throw Error(in_.path(), what + " cannot be carried over unchanged");
  }

  void CompareTags(const std::string& where, const AVDictionary* was, const AVDictionary* is) {
    const std::string lost = TagComparison(was, is).Lost(where, otherwise_);
    if (!lost.empty()) Fail(fmt::format("{}: its {}", where, Printable(lost)));
  }

  // What differs between two streams, as people call it; empty if nothing does. What was wanted counts where
  // a patch may ask for something else.
  std::string StreamDifference(unsigned index) const {
    const AVStream& was = *was_.streams[index];
    const AVStream& is = *is_.streams[index];
    const AVStream& wanted = *wanted_.streams[index];
    const AVCodecParameters& before = *was.codecpar;
    const AVCodecParameters& after = *is.codecpar;
    if (before.codec_type != after.codec_type || before.codec_id != after.codec_id) return "codec";
    if (before.codec_tag != after.codec_tag) return "codec tag or stream type";
    if (was.id != is.id) return "id";
    if (was.disposition != is.disposition) return "disposition";
    const bool coded = before.codec_id == AV_CODEC_ID_H264 || before.codec_id == AV_CODEC_ID_HEVC;
    if (!coded && !SameBytes(before, after)) return "private data";
    const MediaStream& described = in_.streams()[index];
    if (described.hasColourDescription && coded && !SameBytes(*wanted.codecpar, after))
      return "configuration record";
    if (!SameShape(wanted.sample_aspect_ratio, is.sample_aspect_ratio)) return "pixel shape";
    if (described.hasColourDescription && described.movingPictures) {
      const std::string pictures = PictureDifference(wanted, out_.containerColour(index));
      if (!pictures.empty()) return pictures;
      if (av_cmp_q(rates_[index], ratesIs_[index]) != 0) return "duration of frames";
      const StreamHdr told = ContainerHdr(wanted);
      const StreamHdr hdr = ContainerHdr(is);
      if (told.mastering != hdr.mastering) return "mastering display";
      if (told.lightLevel != hdr.lightLevel) return "light level";
    }
    if (before.codec_type == AVMEDIA_TYPE_AUDIO) {
      const std::string sound = SoundDifference(before, after);
      if (!sound.empty()) return sound;
    }
    return SideDataDifference(was, is);
  }

  void ComparePrograms() {
    if (was_.nb_programs != is_.nb_programs) Fail("its programs");
    for (unsigned i = 0; i < was_.nb_programs; ++i) {
      const AVProgram& a = *was_.programs[i];
      const AVProgram& b = *is_.programs[i];
      const std::string where = fmt::format("program {}", a.id);
      if (a.id != b.id || a.program_num != b.program_num || a.pmt_pid != b.pmt_pid ||
          !std::equal(a.stream_index, a.stream_index + a.nb_stream_indexes, b.stream_index,
                      b.stream_index + b.nb_stream_indexes))
        Fail(where);
      CompareTags(where, a.metadata, b.metadata);
    }
  }

  // Times to a millisecond, which is what some containers count.
  void CompareChapters() {
    if (was_.nb_chapters != is_.nb_chapters) Fail("its chapters");
    for (unsigned i = 0; i < was_.nb_chapters; ++i) {
      const AVChapter& a = *was_.chapters[i];
      const AVChapter& b = *is_.chapters[i];
      const auto same = [&](int64_t one, int64_t other) {
        const AVRational milliseconds{1, 1000};
        return std::abs(av_rescale_q(one, a.time_base, milliseconds) -
                        av_rescale_q(other, b.time_base, milliseconds)) <= 1;
      };
      const std::string where = fmt::format("chapter {}", i);
      if (a.id != b.id || !same(a.start, b.start) || !same(a.end, b.end)) Fail(where);
      CompareTags(where, a.metadata, b.metadata);
    }
  }

  const MediaFile& in_;
  MediaFile out_;
  const AVFormatContext& was_;
  const AVFormatContext& is_;
  const AVFormatContext& wanted_;
  std::vector<AVRational> rates_ = ContainerRates(in_);
  std::vector<AVRational> ratesIs_ = ContainerRates(out_);
  std::vector<std::string> otherwise_;
};

}  // namespace

std::vector<std::string> RequireSameStreams(const MediaFile& in, const AVFormatContext& wanted,
                                            const std::string& written) {
  return FileComparison(in, wanted, written).Run();
}

}  // namespace qlnmedia
