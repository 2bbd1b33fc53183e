// What a caller wants changed in an MP4 or MOV file. All that is not named here stays byte for byte.
#ifndef MEDIA_CONTAINER_MP4_CHANGE_H
#define MEDIA_CONTAINER_MP4_CHANGE_H

#include <array>
#include <cstdint>
#include <functional>
#include <optional>
#include <span>
#include <vector>

#include "container/mp4/bytes.h"
#include "container/mp4/sample_table.h"

namespace qlnmedia::mp4 {

// A stretch of a sample, as it was and as it shall be. It is never empty before: bytes that come in take one
// of their neighbours along.
struct SamplePart {
  uint64_t at = 0;  // bytes from the sample's begin
  Bytes was;
  Bytes is;
};

// Takes back the samples that an editor was given. Numbers count upwards from call to call; a sample may be
// left out, and is then as it was. The bytes are copied before the call returns.
class SampleReturns {
 public:
  virtual ~SampleReturns() = default;
  // The sample's new bytes. Throws Error for a sample that was not given yet or not in this order, for an
  // empty one on either side, and for an encrypted one whose bytes would change.
  virtual void Replace(uint64_t number, ByteSpan bytes) = 0;
  // The same where all but some parts is as it was. They count upwards and do not overlap.
  virtual void ReplaceParts(uint64_t number, std::span<const SamplePart> parts) = 0;
  // Says that a sample stays, so that nobody need keep it in mind.
  virtual void Keep(uint64_t number) { static_cast<void>(number); }

 protected:
  SampleReturns() = default;
  SampleReturns(const SampleReturns&) = default;
  SampleReturns& operator=(const SampleReturns&) = default;
};

// Gets a track's samples in decoding order, and gives back those that it changes: at once, or as soon as it
// knows. The whole track is gone through before anything is written.
class SampleEditor {
 public:
  virtual ~SampleEditor() = default;
  // False for a sample that stays as it is whatever its bytes are, or as a look at some of them tells: it is
  // then not read, and Take not called for it.
  virtual bool Wants(const Source& source, const Sample& sample) {
    static_cast<void>(source);
    static_cast<void>(sample);
    return true;
  }
  // How many bytes at the begin of each sample Wants reads as a rule; they are announced to the source.
  virtual uint64_t headBytes() const { return 0; }
  // `bytes` are the sample's, valid during the call.
  virtual void Take(const Sample& sample, ByteSpan bytes, SampleReturns& returns) = 0;
  // Behind the last sample; what is held back is given back now.
  virtual void End(SampleReturns& returns) { static_cast<void>(returns); }

 protected:
  SampleEditor() = default;
  SampleEditor(const SampleEditor&) = default;
  SampleEditor& operator=(const SampleEditor&) = default;
};

// A box of a sample description that is there gets another body: 'avcC', 'hvcC', 'dvcC' ...
struct PrivateData {
  uint32_t description = 1;  // 1-based, as Sample::description; 0 for every one that holds such a box
  uint32_t type = 0;
  Bytes body;
};

// Codes of ISO/IEC 23091-2, for every `colr` of the kinds 'nclx' and 'nclc'; a profile ('prof', 'rICC') is
// left alone. What is not given stays. A box is added, 'nclx' to MP4 and 'nclc' to QuickTime, where there is
// none of the two and all three codes are given.
struct Colour {
  std::optional<uint16_t> primaries, transfer, matrix;
  std::optional<bool> fullRange;  // of 'nclx'
};

// Facts of a sample description. Each is written over the box that is there, or added behind the boxes that
// are there. Bodies as in ISO/IEC 14496-12 clause 12.1 and the QuickTime File Format Specification.
struct ContainerFacts {
  std::optional<Colour> colour;
  std::optional<std::array<uint32_t, 2>> pixelShape;     // pasp: width, height
  std::optional<std::array<uint32_t, 8>> cleanAperture;  // clap: width, height, x, y, each as N and D
  std::optional<std::array<uint8_t, 2>> fields;          // fiel: fields of a frame, and their order
  std::optional<std::array<uint8_t, 24>> mastering;      // mdcv: body as in the message of the stream
  std::optional<std::array<uint16_t, 2>> lightLevel;     // clli: of content, of frames on average
  bool any() const { return colour || pixelShape || cleanAperture || fields || mastering || lightLevel; }
};

// Pictures of a sample description that become of another size, as the stream says.
struct PictureSize {
  uint32_t description = 1;  // 1-based
  uint32_t wasWidth = 0, wasHeight = 0;
  uint32_t width = 0, height = 0;
  int64_t left = 0, top = 0;  // samples by which their begin moves in
};

struct TrackChange {
  uint32_t trackId = 0;
  // Null where no sample changes. Kept by the caller.
  SampleEditor* samples = nullptr;
  // This and the facts are read behind SampleEditor::End, which may still fill them in.
  std::vector<PrivateData> privateData = {};
  ContainerFacts facts = {};
  // One for each description at most; what the track says of its size follows the first.
  std::vector<PictureSize> pictures = {};
};

struct Change {
  std::vector<TrackChange> tracks;
  // Called now and then with the part that is done, 0 to 1. False ends the work, and nothing is left behind.
  std::function<bool(double)> progress;
};

}  // namespace qlnmedia::mp4

#endif
