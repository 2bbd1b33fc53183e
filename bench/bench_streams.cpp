// The commands of the encodes, and their units out of byte streams and MP4 files.

#include "bench_streams.h"

extern "C" {
#include <libavformat/avformat.h>
}

#include <algorithm>
#include <map>

namespace qln::bench {
namespace {

constexpr Stream kH264[] = {
    {"slices_1080p", "slices_1080p.h264", "1920x1080", "25", 6,
     "-c:v libx264 -pix_fmt yuv420p -preset veryfast -b:v 20M",
     "-x264-params slices=4:nal-hrd=vbr:vbv-maxrate=40000:vbv-bufsize=40000:colorprim=bt709:transfer=bt709:"
     "colormatrix=bt709:keyint=3",
     false, 1920, 1088},
    {"interlaced_1080i", "interlaced_1080i.h264", "1920x1080", "25", 6,
     "-c:v libx264 -pix_fmt yuv420p -preset veryfast -b:v 20M",
     "-x264-params tff=1:bframes=2:weightp=2:ref=3:keyint=6:colorprim=bt709", false, 1920, 1088},
    {"intra_422_10bit", "intra_422_10bit.h264", "1920x1080", "25", 3,
     "-c:v libx264 -pix_fmt yuv422p10le -profile:v high422 -preset veryfast -b:v 50M",
     "-x264-params cqm=jvt:keyint=1:slices=8", false, 1920, 1088},
    {"mp4_1080p", "mp4_1080p.mp4", "1920x1080", "25", 6,
     "-c:v libx264 -pix_fmt yuv420p -preset veryfast -b:v 20M",
     "-x264-params keyint=3:slices=1:sliced-threads=0:repeat-headers=1", true, 1920, 1088},
};

constexpr Stream kHevc[] = {
    {"hdr10_1080p", "hdr10_1080p.hevc", "1920x1080", "50", 3,
     "-c:v libx265 -pix_fmt yuv420p10le -preset ultrafast",
     "-x265-params 'log-level=none:colorprim=bt2020:transfer=smpte2084:colormatrix=bt2020nc:repeat-headers=1:"
     "hdr10=1:max-cll=1000,400:"
     "master-display=G(13250,34500)B(7500,3000)R(34000,16000)WP(15635,16450)L(10000000,50)'",
     false, 1920, 1088},
    {"fields_1080i", "fields_1080i.hevc", "1920x540", "50", 4,
     "-c:v libx265 -pix_fmt yuv420p -preset ultrafast",
     "-x265-params log-level=none:interlace=tff:repeat-headers=1", false, 1920, 544},
    // Without HRD parameters: the library reads them in a short form of its own and reports what follows.
    {"slices_1080p", "slices_1080p.hevc", "1920x1080", "25", 3,
     "-c:v libx265 -pix_fmt yuv422p10le -preset ultrafast",
     "-x265-params log-level=none:slices=4:aud=1:repeat-headers=1:bitrate=20000", false, 1920, 1088},
};

struct Content {
  std::vector<Bytes> samples;
  Bytes configuration;
  std::vector<Bytes> units;
  Bytes byteStream;
};

void AddUnitsOfSample(const Bytes& sample, std::vector<Bytes>& units) {
  for (size_t at = 0; at + 4 <= sample.size();) {
    size_t size = 0;
    for (int i = 0; i < 4; ++i) size = size << 8 | sample[at++];
    Require(size != 0 && size <= sample.size() - at, "units that fill their sample");
    const auto begin = sample.begin() + static_cast<std::ptrdiff_t>(at);
    units.emplace_back(begin, begin + static_cast<std::ptrdiff_t>(size));
    at += size;
  }
}

// Picture by picture; of a byte stream with the start codes that stand in it.
void ReadSamples(const std::string& path, bool isMp4, Content& content) {
  AVFormatContext* format = nullptr;
  Require(avformat_open_input(&format, path.c_str(), nullptr, nullptr) == 0, "a file of an encoder");
  const AVCodecParameters& codec = *format->streams[0]->codecpar;
  content.configuration.assign(codec.extradata, codec.extradata + codec.extradata_size);
  AVPacket* packet = av_packet_alloc();
  while (av_read_frame(format, packet) == 0) {
    content.samples.emplace_back(packet->data, packet->data + packet->size);
    if (isMp4) AddUnitsOfSample(content.samples.back(), content.units);
    av_packet_unref(packet);
  }
  av_packet_free(&packet);
  avformat_close_input(&format);
}

const Content& ContentOf(const Stream& stream) {
  static std::map<const Stream*, Content> contents;
  const auto [entry, isNew] = contents.try_emplace(&stream);
  Content& content = entry->second;
  if (!isNew) return content;
  const std::string source = std::string("testsrc2=s=") + stream.size + ":r=" + stream.rate;
  const std::string path = EncodedFile(stream.file, "ffmpeg -y -f lavfi -i " + source + " -frames:v " +
                                                        std::to_string(stream.pictures) + " -threads 1 " +
                                                        stream.encoder + " " + stream.parameters + " {out}");
  ReadSamples(path, stream.isMp4, content);
  if (!stream.isMp4) content.units = UnitsOf(ReadFile(path));
  Require(content.units.size() > 6, stream.name);
  content.byteStream = WithStartCodes(content.units);
  return content;
}

// What people watch: pictures of 5 to 100 kB.
constexpr Stream kOrdinary[] = {
    {"x264_8M", "x264_8M.h264", "1920x1080", "25", 12,
     "-c:v libx264 -pix_fmt yuv420p -preset veryfast -b:v 8M", "-x264-params keyint=6:bframes=2:slices=1",
     false, 1920, 1088},
    {"x264_slices_8M", "x264_slices_8M.h264", "1920x1080", "25", 12,
     "-c:v libx264 -pix_fmt yuv420p -preset veryfast -b:v 8M", "-x264-params keyint=6:bframes=2:slices=4",
     false, 1920, 1088},
    {"x265_8M", "x265_8M.hevc", "1920x1080", "25", 12,
     "-c:v libx265 -pix_fmt yuv420p -preset ultrafast -b:v 8M",
     "-x265-params log-level=none:keyint=6:aud=1:repeat-headers=1", false, 1920, 1088},
};

constexpr Stream kHevcWithHrd = {
    "hrd_1080p",
    "hrd_1080p.hevc",
    "1920x1080",
    "25",
    3,
    "-c:v libx265 -pix_fmt yuv420p -preset ultrafast",
    "-x265-params log-level=none:hrd=1:vbv-maxrate=20000:vbv-bufsize=20000:bitrate=20000:repeat-headers=1",
    false,
    1920,
    1088};

}  // namespace

std::span<const Stream> OrdinaryStreams() { return kOrdinary; }
const Stream& HevcStreamWithHrd() { return kHevcWithHrd; }
std::span<const Stream> H264Streams() { return kH264; }
std::span<const Stream> HevcStreams() { return kHevc; }

const std::vector<Bytes>& UnitsOf(const Stream& stream) { return ContentOf(stream).units; }
const Bytes& ByteStreamOf(const Stream& stream) { return ContentOf(stream).byteStream; }
const std::vector<Bytes>& SamplesOf(const Stream& stream) { return ContentOf(stream).samples; }
const Bytes& ConfigurationOf(const Stream& stream) { return ContentOf(stream).configuration; }

Bytes WithStartCodes(std::span<const Bytes> units) {
  Bytes bytes;
  for (const Bytes& unit : units) {
    bytes.insert(bytes.end(), {0, 0, 0, 1});
    bytes.insert(bytes.end(), unit.begin(), unit.end());
  }
  return bytes;
}

Bytes WithLengths(std::span<const Bytes> units) {
  Bytes bytes;
  for (const Bytes& unit : units) {
    const uint32_t size = static_cast<uint32_t>(unit.size());
    for (int shift = 24; shift >= 0; shift -= 8) bytes.push_back(static_cast<uint8_t>(size >> shift));
    bytes.insert(bytes.end(), unit.begin(), unit.end());
  }
  return bytes;
}

}  // namespace qln::bench
