// What a container says of one of its streams, in plain types.
#ifndef MEDIA_CONTAINER_MEDIA_STREAM_H
#define MEDIA_CONTAINER_MEDIA_STREAM_H

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "base/rational.h"
#include "qlnmedia/stream_values.h"
#include "units/coded_stream.h"

namespace qlnmedia {

enum class StreamKind { kUnknown, kVideo, kAudio, kData, kSubtitle, kAttachment };

// "video", "audio" and so on.
const char* StreamKindName(StreamKind kind);

// How the fields of a frame follow each other: which one is coded first, and which one is shown first.
enum FieldOrder : int {
  kFieldOrderUnknown,
  kProgressive,
  kTopFirst,
  kBottomFirst,
  kTopCodedBottomShownFirst,
  kBottomCodedTopShownFirst,
};

enum ColourRange : int { kRangeUnknown, kLimitedRange, kFullRange };

// What a container itself says about a stream's pictures; 2 is an unspecified colour, as in ITU-T H.273.
// Sizes are 0 where it says nothing.
struct ContainerColour {
  int primaries = 2;
  int transfer = 2;
  int matrix = 2;
  int range = kRangeUnknown;
  int width = 0;
  int height = 0;
  int fieldOrder = kFieldOrderUnknown;
  Rational sampleAspect{0, 1};  // width to height of a sample
};

// The fields of a Dolby Vision configuration by their published names.
struct DolbyVisionConfiguration {
  uint8_t dv_version_major = 0;
  uint8_t dv_version_minor = 0;
  uint8_t dv_profile = 0;
  uint8_t dv_level = 0;
  uint8_t rpu_present_flag = 0;
  uint8_t el_present_flag = 0;
  uint8_t bl_present_flag = 0;
  uint8_t dv_bl_signal_compatibility_id = 0;
};

// A name with its text, whose bytes need be none.
struct Tag {
  std::string name;
  std::string text;
};

// A chapter of a file, in seconds.
struct Chapter {
  double start = 0;
  double end = 0;
  std::vector<Tag> tags;
};

// A program of a transport stream, with the streams that it names.
struct Program {
  int number = 0;
  std::string name;  // of its service; empty where nothing tells it
  std::vector<unsigned> streams;
};

// How samples follow each other in decoding order.
struct SamplePace {
  int64_t samples = 0;  // that were looked at
  bool steady = true;   // each stands as long as the one before it
};

// A packet as the file's index places it.
struct IndexedPacket {
  int64_t position = 0;  // in the file, in bytes
  int64_t size = 0;      // bytes
  int64_t time = 0;      // of decoding, in units of the stream's time base
};

// Pictures of any codec as a decoder would have them; empty and 0 where nothing is known.
struct PictureForm {
  std::string chroma;  // "4:2:0", "RGB", "monochrome"
  int depth = 0;       // bits of a sample
};

struct MediaStream {
  unsigned index = 0;
  int id = 0;  // of the container: track id, PID
  StreamKind kind = StreamKind::kUnknown;
  bool movingPictures = false;  // video, and no cover art
  std::string codecName;        // as "h264", "aac"
  uint32_t tag = 0;             // the container's codec tag, first character in the lowest byte; 0 for none
  std::string language;         // empty where the container does not tell
  std::vector<std::string> dispositions;  // "default", "forced" and so on
  std::vector<Tag> tags;                  // as the container names them
  StreamDescription coded;
  bool encrypted = false;             // samples cannot be read without a key
  bool hasColourDescription = false;  // the container has places for colour, range and size
  ContainerColour container;          // what those say

  // What container and headers say together.
  int width = 0;
  int height = 0;
  FieldOrder fieldOrder = kFieldOrderUnknown;
  Rational sampleAspect{0, 1};     // width to height of a sample as the container tells; 0 where it does not
  std::string stereo;              // how two views share a picture; empty where the container tells none
  std::optional<double> rotation;  // degrees, counter-clockwise, by which pictures are to be turned
  // The matrix that rotation is read from, as ISO/IEC 14496-12 clause 8.3.2 has it; 0 where there is none.
  std::optional<std::array<int32_t, 9>> displayMatrix;
  int64_t duration = 0;  // in units of coded.timeBase; 0 where it is not known
  int64_t bitRate = 0;   // bits a second; 0 where it is not known
  std::string profile;   // of the codec, as libavcodec calls it; empty where it is not known
  PictureForm pictures;
  Rational codedAspect{0, 1};  // width to height of a sample as the stream's headers say
  ColourCodes colour;          // as container and headers say
  int range = kRangeUnknown;   // ColourRange, of the same
  int sampleRate = 0;          // audio, Hz
  int channels = 0;            // audio
  std::string channelLayout;   // audio, as "5.1(side)"; empty where it is not known
  int sampleBits = 0;          // audio of a fixed width, in bits

  std::optional<MasteringDisplay> mastering;
  std::optional<LightLevel> lightLevel;
  std::optional<DolbyVisionConfiguration> dolbyVision;
};

// One packet of a file: whose it is, and what is in it.
struct MediaPacket {
  unsigned stream = 0;
  PacketView view;
  bool damaged = false;  // cut off, or parts of it did not come, as the container shows it
};

}  // namespace qlnmedia

#endif
