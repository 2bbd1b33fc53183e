// Elements of EBML (RFC 8794): heads, variable-size numbers, and the identifiers of Matroska (RFC 9559) that
// matter to whoever carries a file.
#ifndef MEDIA_CONTAINER_MKV_ELEMENT_H
#define MEDIA_CONTAINER_MKV_ELEMENT_H

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

#include "container/mp4/source.h"

namespace qlnmedia::mkv {

using Bytes = mp4::Bytes;
using ByteSpan = mp4::ByteSpan;
using mp4::Reader;
using mp4::Source;

// Of the value of a CRC-32 element.
inline constexpr size_t kCrcBytes = 4;
// A reader of heads alone takes so many bytes at a time.
inline constexpr size_t kHeadWindow = 64;

namespace id {
inline constexpr uint64_t kEbml = 0x1A45DFA3, kEbmlMaxIdLength = 0x42F2, kEbmlMaxSizeLength = 0x42F3;
inline constexpr uint64_t kSegment = 0x18538067, kVoid = 0xEC, kCrc = 0xBF;
inline constexpr uint64_t kSeekHead = 0x114D9B74, kSeek = 0x4DBB, kSeekId = 0x53AB, kSeekPosition = 0x53AC;
inline constexpr uint64_t kInfo = 0x1549A966, kTimestampScale = 0x2AD7B1;
inline constexpr uint64_t kTags = 0x1254C367, kAttachments = 0x1941A469, kChapters = 0x1043A770;
inline constexpr uint64_t kCues = 0x1C53BB6B, kCuePoint = 0xBB, kCueTrackPositions = 0xB7;
inline constexpr uint64_t kCueClusterPosition = 0xF1, kCueRelativePosition = 0xF0, kCueCodecState = 0xEA;
inline constexpr uint64_t kCueReference = 0xDB, kCueRefCluster = 0x97, kCueRefCodecState = 0xEB;
inline constexpr uint64_t kCluster = 0x1F43B675, kTimestamp = 0xE7, kPosition = 0xA7, kPrevSize = 0xAB;
inline constexpr uint64_t kSimpleBlock = 0xA3, kBlockGroup = 0xA0, kBlock = 0xA1, kBlockDuration = 0x9B;
inline constexpr uint64_t kReferenceBlock = 0xFB;
inline constexpr uint64_t kTracks = 0x1654AE6B, kTrackEntry = 0xAE, kTrackNumber = 0xD7, kTrackType = 0x83;
inline constexpr uint64_t kCodecId = 0x86, kCodecPrivate = 0x63A2, kDefaultDuration = 0x23E383;
inline constexpr uint64_t kTrackTimestampScale = 0x23314F;
inline constexpr uint64_t kContentEncodings = 0x6D80, kContentEncoding = 0x6240, kEncodingOrder = 0x5031;
inline constexpr uint64_t kEncodingScope = 0x5032, kEncodingType = 0x5033, kCompression = 0x5034;
inline constexpr uint64_t kCompAlgo = 0x4254, kCompSettings = 0x4255;
inline constexpr uint64_t kVideo = 0xE0, kFlagInterlaced = 0x9A, kFieldOrder = 0x9D;
inline constexpr uint64_t kPixelWidth = 0xB0, kPixelHeight = 0xBA, kDisplayWidth = 0x54B0;
inline constexpr uint64_t kDisplayHeight = 0x54BA, kDisplayUnit = 0x54B2;
inline constexpr uint64_t kCropBottom = 0x54AA, kCropTop = 0x54BB, kCropLeft = 0x54CC, kCropRight = 0x54DD;
inline constexpr uint64_t kColour = 0x55B0, kMatrix = 0x55B1, kRange = 0x55B9, kTransfer = 0x55BA;
inline constexpr uint64_t kPrimaries = 0x55BB, kMaxCll = 0x55BC, kMaxFall = 0x55BD, kMastering = 0x55D0;
inline constexpr uint64_t kChromaticity = 0x55D1;  // of red in x; y, green, blue and white follow, one by one
inline constexpr uint64_t kLuminanceMax = 0x55D9, kLuminanceMin = 0x55DA;
}  // namespace id

// How long identifiers and sizes of a document may be, as its EBML head says.
struct Limits {
  size_t idBytes = 4;
  size_t sizeBytes = 8;
  // Where the elements of a file end that was cut off, though its last segment and cluster go on by what they
  // say; 0 where they do not.
  uint64_t cutEnd = 0;
};

struct Element {
  uint64_t id = 0;
  uint64_t at = 0;
  uint64_t body = 0;
  uint64_t end = 0;  // of what holds it, while a size that is not told was not looked for
  uint8_t idBytes = 0;
  uint8_t sizeBytes = 0;
  bool open = false;     // its size is not told
  uint64_t missing = 0;  // bytes that its size counts and that a file which was cut off lacks

  uint64_t size() const { return end - body; }
  uint64_t sizeAt() const { return at + idBytes; }
};

// "0x1F43B675".
std::string IdName(uint64_t id);

// Reads a variable-size number with its marker taken off: its value, and how many bytes it has. Nothing for a
// first byte of 0, and where `end` comes first.
struct Number {
  uint64_t value = 0;
  size_t bytes = 0;
  bool allOnes = false;
};
std::optional<Number> ReadNumber(Reader& reader, uint64_t at, uint64_t end);
// How many bytes a size needs; all ones are no size.
size_t SizeBytesFor(uint64_t size);
// The number with its marker in as many bytes.
Bytes NumberOf(uint64_t value, size_t bytes);

// The element at a place, nothing where there is none. Throws Error, with the place, for one that is longer
// than what holds it.
std::optional<Element> FindElement(Reader& reader, uint64_t at, uint64_t end, const Limits& limits);
// The same where there must be one.
Element ReadElement(Reader& reader, uint64_t at, uint64_t end, const Limits& limits);

// The same where it must say its size.
Element ReadSizedElement(Reader& reader, uint64_t at, uint64_t end, const Limits& limits);

// Calls `take` with each element between two places. Throws Error for bytes that are none, and for elements
// without a size.
template <typename Take>
void ForEachElement(Reader& reader, uint64_t at, uint64_t end, const Limits& limits, Take take) {
  while (at < end) {
    const Element element = ReadSizedElement(reader, at, end, limits);
    take(element);
    at = element.end;
  }
}

// An element's body as an unsigned number. Throws Error for more than 8 bytes.
uint64_t ReadUnsigned(Reader& reader, const Element& element);
// How many bytes a number needs.
size_t UnsignedBytesFor(uint64_t value);

}  // namespace qlnmedia::mkv

#endif
