/// @file coded_stream.h
/// One coded video stream in plain types, as a container or a host hands it over: what is said of it, and its
/// packets one after the other.
#ifndef QLNMEDIA_CODED_STREAM_H
#define QLNMEDIA_CODED_STREAM_H

#include <cstdint>
#include <optional>
#include <span>
#include <vector>

#include "qlnmedia/rational.h"

namespace qlnmedia {

/// A time that is not known.
inline constexpr int64_t kNoTime = INT64_MIN;

/// The codecs whose pictures are told apart here.
enum class VideoCodec { kOther, kH264, kHevc, kMpeg2 };

/// What is said of a stream in front of its first packet.
struct StreamDescription {
  VideoCodec codec = VideoCodec::kOther;  ///< what it is coded with
  /// Body of an avcC or hvcC box, units with start codes, or nothing.
  std::vector<uint8_t> privateData;
  /// How units are told apart in packets: 0 by start codes, 1, 2 or 4 by a big-endian length of so many bytes
  /// in front of each; nothing for what the private data says (start codes where it is no box).
  std::optional<int> lengthBytes;
  Rational timeBase{1, 1};  ///< seconds in a unit of its packets' times
  Rational averageRate;     ///< packets a second as the container tells or counts them; 0/1 for unknown
  Rational baseRate;        ///< the lowest rate at which all its times can stand; 0/1 for unknown
  bool raw = false;         ///< no container: packets have no times that mean anything
  /// The container numbers its packets, and does not tell the order in which their pictures are shown: what
  /// counts is what the pictures say themselves.
  bool ownOrder = false;
  /// Key marks and rates are the container's own. False where a reader finds them in the stream itself, as in
  /// transport streams: they then say nothing that the stream does not say.
  bool ownMarks = true;
  uint32_t height = 0;       ///< lines of a picture as the container says; 0 where it says nothing
  bool bottomFirst = false;  ///< the container says that of two fields the bottom one is displayed first
};

/// A packet, or an access unit of a host; the bytes are the giver's, and are looked at during the call only.
struct PacketView {
  std::span<const uint8_t> data;  ///< the bytes; borrowed
  int64_t pts = kNoTime;          ///< presentation time in units of the stream's time base
  int64_t dts = kNoTime;          ///< decoding time
  bool key = false;               ///< marked as a place where decoding can start
  int64_t position = -1;          ///< in the file, in bytes; -1 where nobody knows
};

}  // namespace qlnmedia

#endif
