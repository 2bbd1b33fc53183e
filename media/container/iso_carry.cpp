// Options of the MP4 and MOV muxer, and the limits of what it carries.

#include "container/iso_carry.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstring>

#include "base/error.h"

namespace qlnmedia {

namespace {

constexpr uint32_t kTimecodeTag = MKTAG('t', 'm', 'c', 'd');

// Boxes of a video sample description that the muxer writes too, or that say nothing.
bool IsCarried(const std::string& box) {
  for (const char* known : {"avcC", "hvcC", "colr", "pasp", "fiel", "btrt", "mdcv", "clli", "free", "skip",
                            "esds", "glbl", "chrm"}) {
    if (box == known) return true;
  }
  return false;
}

// Where the index has said it all: the muxer makes an edit list out of the first time alone.
void RequireTrackCarriable(const MediaFile& in, const AVStream& stream, const IsoTrack& track,
                           bool fragmented) {
  const auto fail = [&](const std::string& what, const std::string& advice) {
    throw Error(in.path(), fmt::format("stream {}: {}", stream.index, what), advice);
  };
  if (track.sampleDescriptions > 1)
    fail("has several sample descriptions", "split the file where they change");
  if (track.edits > 1) fail("has an edit list of several parts", "remux it without edits first");
  if (track.editsAtOtherRates)
    fail("has an edit list that changes its speed", "remux it without edits first");
  const int indexed = avformat_index_get_entries_count(&stream);
  if (track.video && !fragmented && static_cast<uint32_t>(indexed) < track.samples)
    fail(fmt::format("has an edit list that leaves out {} coded pictures",
                     track.samples - static_cast<uint32_t>(indexed)),
         "remux it without edits first");
  for (const std::string& box : track.descriptionBoxes) {
    if (!IsCarried(box))
      fail(fmt::format("has a {} box in its sample description, which cannot be carried over", box), {});
  }
  for (const std::string& reference : track.references) {
    if (reference != "chap" && reference != "tmcd")
      fail(fmt::format("refers to another track ({}), which cannot be carried over", reference), {});
  }
}

}  // namespace

void RequireIsoCarriable(const MediaFile& in, const IsoLayout& layout) {
  for (unsigned i = 0; i < in.context()->nb_streams; ++i) {
    const AVStream& stream = *in.context()->streams[i];
    const IsoTrack* const track = layout.Track(static_cast<uint32_t>(stream.id));
    if (track != nullptr) RequireTrackCarriable(in, stream, *track, layout.fragmented);
  }
}

bool IsMadeByIsoMuxer(const AVStream& stream, bool mp4) {
  const AVCodecParameters& parameters = *stream.codecpar;
  if (parameters.codec_type != AVMEDIA_TYPE_DATA) return false;
  const bool chapters = parameters.codec_id == AV_CODEC_ID_BIN_DATA && stream.discard == AVDISCARD_ALL;
  return chapters || (mp4 && parameters.codec_tag == kTimecodeTag);
}

void AddIsoOptions(const MediaFile& in, const IsoLayout& layout, const AVFormatContext& out,
                   AVDictionary** options) {
  std::string flags;
  if (layout.fragmented) {
    flags = "+frag_custom";
    if (!layout.indexHasSamples()) flags += layout.hasEdits() ? "+delay_moov" : "+empty_moov";
    if (layout.baseIsMoof) flags += "+default_base_moof";
    if (layout.indexesFragments()) {
      flags += "+dash";
    } else if (!layout.segmentIndexes.empty()) {
      flags += "+global_sidx";
    }
    av_dict_set_int(options, "use_editlist", layout.hasEdits() ? 1 : 0, 0);
  } else if (layout.indexInFront) {
    flags = "+faststart";
  }
  if (in.context()->nb_chapters != 0 && !layout.chapterList) flags += "+disable_chpl";
  // Tags with keys of their own, as "com.apple.quicktime.make", need the box that holds such keys.
  for (const AVDictionaryEntry* tag = nullptr;
       (tag = av_dict_get(out.metadata, "", tag, AV_DICT_IGNORE_SUFFIX)) != nullptr;) {
    if (std::strchr(tag->key, '.') != nullptr && flags.find("use_metadata_tags") == std::string::npos)
      flags += "+use_metadata_tags";
  }
  if (!flags.empty()) av_dict_set(options, "movflags", flags.c_str(), 0);
  if (layout.brand.size() == 4) av_dict_set(options, "brand", layout.brand.c_str(), 0);
  av_dict_set(options, "use_stream_ids_as_track_ids", "1", 0);
}

void CleanTextDescription(AVCodecParameters& parameters) {
  constexpr int kBtrtBytes = 20;
  if (parameters.codec_id != AV_CODEC_ID_MOV_TEXT) return;
  while (parameters.extradata_size >= kBtrtBytes &&
         std::memcmp(parameters.extradata + parameters.extradata_size - kBtrtBytes,
                     "\0\0\0\x14"
                     "btrt",
                     8) == 0)
    parameters.extradata_size -= kBtrtBytes;
}

int FragmentCutter::FlushesBefore(int64_t position) {
  if (!layout_.fragmented || position < 0) return 0;
  bool crossed = false;
  for (; next_ < layout_.fragments.size() && layout_.fragments[next_] < static_cast<uint64_t>(position);
       ++next_)
    crossed = true;
  const bool cut = crossed && any_;
  any_ = true;
  if (!cut) return 0;
  // An index that waits for the first times is all that the first flush writes.
  const bool twice = !flushed_ && !layout_.indexHasSamples() && layout_.hasEdits();
  flushed_ = true;
  return twice ? 2 : 1;
}

}  // namespace qlnmedia
