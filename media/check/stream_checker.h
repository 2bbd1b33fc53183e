// Checks one coded stream, packet by packet: its sets, its units' order, its HDR metadata.
#ifndef MEDIA_CHECK_STREAM_CHECKER_H
#define MEDIA_CHECK_STREAM_CHECKER_H

#include <cstdint>
#include <string>
#include <vector>

#include "check/container_facts.h"
#include "check/finding_list.h"
#include "check/frame_numbers.h"
#include "check/hdr.h"
#include "check/set_history.h"
#include "check/timecode.h"
#include "check/unit_order.h"
#include "container/media_stream.h"
#include "units/config_record.h"
#include "units/packet_units.h"

namespace qlnmedia {

class StreamChecker {
 public:
  // `stream` is one of H.264 or HEVC; its private data is checked at once. `stream` and `findings` must
  // outlive this.
  StreamChecker(const MediaStream& stream, FindingList& findings);

  // Takes the next packet of the stream. What is encrypted is not judged.
  void Take(const PacketView& packet) {
    PacketUnits apart(packet.data);
    Take(packet, apart);
  }
  // The same with the packet's units, which others look at as well.
  void Take(const PacketView& packet, PacketUnits& apart);
  // Frames that were taken.
  int64_t frames() const { return frames_; }
  // At the end of the stream.
  void Finish();

 private:
  void Add(FindingKind kind, std::string text, int64_t frame);
  // `entry`: a coded video sequence begins with the frame.
  void TakeSet(ByteSpan unit, int64_t frame, bool entry);
  void AddChange(const SetKey& key, const std::string& name, int64_t before, int64_t frame, bool entry);
  void TakeSps(ByteSpan unit, int64_t frame);
  // The units of a packet; findings on how they are told apart.
  std::vector<Unit> UnitsOf(const UnitRun& run, int64_t frame);

  const MediaStream& stream_;
  FindingList& findings_;
  Codec codec_;
  ConfigRecord config_;
  std::string place_;  // of the private data, as people call it
  SetHistory sets_;
  OrderRules rules_;
  HdrChecker hdr_;
  TimecodeChecker timecode_;
  FrameNumbers frameNumbers_;
  bool gapsAllowed_ = false;
  int64_t frames_ = 0;
};

}  // namespace qlnmedia

#endif
