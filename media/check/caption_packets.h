// Checks of captions packet by packet and pair by pair, wherever they come from.
#ifndef MEDIA_CHECK_CAPTION_PACKETS_H
#define MEDIA_CHECK_CAPTION_PACKETS_H

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <utility>

#include "captions/cdp.h"
#include "qlnmedia/check.h"

namespace qlnmedia {

// Takes what is wrong, and the place that shows it: a line, or a picture.
using TellFault =
    std::function<void(int64_t place, FindingKind kind, const std::string& what, Severity severity)>;

// Pairs of one field as they follow each other.
class PairCheck {
 public:
  PairCheck(TellFault tell, int field) : tell_(std::move(tell)), field_(field) {}

  void Take(int64_t place, uint8_t first, uint8_t second);
  void Finish();

 private:
  void Single();
  bool IsLegal(uint8_t a, uint8_t b) const;

  TellFault tell_;
  int field_;
  std::optional<std::pair<int64_t, uint16_t>> single_;  // the last control code, if it came once
};

// Caption distribution packets of one stream as they follow each other.
class CaptionPacketCheck {
 public:
  explicit CaptionPacketCheck(const TellFault& tell) : tell_(tell), first_(tell, 1), second_(tell, 2) {}

  void Take(int64_t place, const captions::CaptionPacket& packet);
  // A packet that could not be read: its counter is not missed.
  void Skip() { counter_.reset(); }
  void Finish();

 private:
  TellFault tell_;
  PairCheck first_, second_;
  std::optional<uint16_t> counter_;  // that comes next
};

}  // namespace qlnmedia

#endif
