/// @file stream_check.h
/// The checker of a stream that comes packet by packet, as a live one: what `CheckFile` says of a stream in a
/// file, said as soon as it shows.
///
///     qlnmedia::StreamCheck check(stream, said);
///     for (...) {
///       check.Take({bytes, pts, dts, key});
///       for (const qlnmedia::Finding& finding : check.NewFindings()) Tell(finding);
///     }
///     check.Finish();
///     for (const qlnmedia::Finding& finding : check.NewFindings()) Tell(finding);
#ifndef QLNMEDIA_STREAM_CHECK_H
#define QLNMEDIA_STREAM_CHECK_H

#include <cstdint>
#include <memory>
#include <optional>
#include <vector>

#include "qlnmedia/api.h"
#include "qlnmedia/check.h"
#include "qlnmedia/coded_stream.h"
#include "qlnmedia/error.h"
#include "qlnmedia/stream_values.h"

namespace qlnmedia {

/// What is said of a stream's pictures beside the stream itself; what is not set nobody has said.
struct SaidOfPictures {
  std::optional<ColourCodes> colour;          ///< codes of 2 are not held against the stream
  std::optional<bool> fullRange;              ///< of samples
  uint32_t width = 0;                         ///< columns; 0 where nobody has said
  uint32_t height = 0;                        ///< lines
  SampleAspect sampleAspect;                  ///< 0 to 0 where nobody has said
  std::optional<MasteringDisplay> mastering;  ///< of HDR
  std::optional<LightLevel> lightLevel;       ///< of HDR
};

/// Checks one stream of H.264 or HEVC. Objects share nothing: each may be used in a thread of its own, none
/// in two at once. Memory does not grow with the stream.
class QLNMEDIA_API StreamCheck {
 public:
  /// @param stream its private data is checked at once; copied
  /// @param said   what the stream is held against; copied
  /// @throws Error for another codec
  explicit StreamCheck(const StreamDescription& stream, const SaidOfPictures& said = {});
  ~StreamCheck();
  StreamCheck(const StreamCheck&) = delete;
  StreamCheck& operator=(const StreamCheck&) = delete;

  /// Takes the next packet in coding order.
  void Take(const PacketView& packet);
  /// At the end of the stream.
  void Finish();
  /// What was found since the last call, each kind of disagreement once; what shows again after a thousand
  /// others is told again. `count` is how often it showed until
  /// then.
  std::vector<Finding> NewFindings();
  /// Pictures that were taken.
  int64_t pictures() const;

 private:
  struct Impl;
  std::unique_ptr<Impl> impl_;
};

}  // namespace qlnmedia

#endif
