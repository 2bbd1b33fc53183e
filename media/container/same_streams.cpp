// Compares the streams of two files by what libavformat reads of them.

#include "container/same_streams.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "base/error.h"
#include "container/describe_stream.h"

namespace qlnmedia {

namespace {

std::string TagOf(const AVDictionary* metadata, const char* key) {
  const AVDictionaryEntry* const entry = av_dict_get(metadata, key, nullptr, 0);
  return entry == nullptr ? "" : entry->value;
}

bool SameSideData(const AVStream& a, const AVStream& b, AVPacketSideDataType type) {
  size_t sizeA = 0;
  size_t sizeB = 0;
  const uint8_t* const dataA = av_stream_get_side_data(&a, type, &sizeA);
  const uint8_t* const dataB = av_stream_get_side_data(&b, type, &sizeB);
  if (dataA == nullptr || dataB == nullptr) return dataA == dataB;
  return sizeA == sizeB && std::memcmp(dataA, dataB, sizeA) == 0;
}

bool SameShape(AVRational a, AVRational b) {
  if (a.num == 0 || b.num == 0) return (a.num == 0 || a.num == a.den) && (b.num == 0 || b.num == b.den);
  return av_cmp_q(a, b) == 0;
}

// What differs between two streams, as people call it; empty if nothing does. `wanted` is what the writer was
// told, since a patch may ask for another shape.
std::string Difference(const AVStream& was, const AVStream& is, const AVStream& wanted) {
  const AVCodecParameters& before = *was.codecpar;
  const AVCodecParameters& after = *is.codecpar;
  if (before.codec_type != after.codec_type || before.codec_id != after.codec_id) return "codec";
  if (before.codec_tag != after.codec_tag) return "codec tag or stream type";
  if (was.id != is.id) return "id";
  if (was.disposition != is.disposition) return "disposition";
  for (const char* tag : {"language", "timecode", "title", "filename", "mimetype"}) {
    if (TagOf(was.metadata, tag) != TagOf(is.metadata, tag)) return tag;
  }
  if (!SameShape(wanted.sample_aspect_ratio, is.sample_aspect_ratio)) return "pixel shape";
  struct SideData {
    AVPacketSideDataType type;
    const char* name;
  };
  for (const SideData& side : {SideData{AV_PKT_DATA_DISPLAYMATRIX, "orientation"},
                               SideData{AV_PKT_DATA_STEREO3D, "stereo arrangement"},
                               SideData{AV_PKT_DATA_SPHERICAL, "spherical mapping"},
                               SideData{AV_PKT_DATA_ENCRYPTION_INIT_INFO, "encryption"}}) {
    if (!SameSideData(was, is, side.type)) return side.name;
  }
  return {};
}

bool SameProgram(const AVProgram& a, const AVProgram& b) {
  return a.id == b.id && a.program_num == b.program_num && a.pmt_pid == b.pmt_pid &&
         std::equal(a.stream_index, a.stream_index + a.nb_stream_indexes, b.stream_index,
                    b.stream_index + b.nb_stream_indexes);
}

// Times to a millisecond, which is what some containers count.
bool SameChapter(const AVChapter& a, const AVChapter& b) {
  const auto same = [&](int64_t one, int64_t other) {
    const AVRational milliseconds{1, 1000};
    return std::abs(av_rescale_q(one, a.time_base, milliseconds) -
                    av_rescale_q(other, b.time_base, milliseconds)) <= 1;
  };
  return same(a.start, b.start) && same(a.end, b.end) &&
         TagOf(a.metadata, "title") == TagOf(b.metadata, "title");
}

}  // namespace

void RequireSameStreams(const MediaFile& in, const AVFormatContext& wanted, const std::string& written) {
  const MediaFile out(written);
  const AVFormatContext& was = *in.context();
  const AVFormatContext& is = *out.context();
  const auto fail = [&in](const std::string& what) {
    throw Error(in.path(), what + " cannot be carried over unchanged");
  };
  if (was.nb_streams != is.nb_streams)
    fail(fmt::format("its streams ({}; the output would have {})", was.nb_streams, is.nb_streams));
  for (unsigned i = 0; i < was.nb_streams; ++i) {
    const std::string difference = Difference(*was.streams[i], *is.streams[i], *wanted.streams[i]);
    if (!difference.empty()) fail(fmt::format("{}: its {}", StreamText(*was.streams[i]), difference));
  }
  if (was.nb_programs != is.nb_programs) fail("its programs");
  for (unsigned i = 0; i < was.nb_programs; ++i) {
    if (!SameProgram(*was.programs[i], *is.programs[i])) fail(fmt::format("program {}", was.programs[i]->id));
  }
  if (was.nb_chapters != is.nb_chapters) fail("its chapters");
  for (unsigned i = 0; i < was.nb_chapters; ++i) {
    if (!SameChapter(*was.chapters[i], *is.chapters[i])) fail(fmt::format("chapter {}", i));
  }
}

}  // namespace qlnmedia
