// Holds pairs against CTA-608 and packets against their rate and against each other.

#include "check/caption_packets.h"

#include <fmt/format.h>

#include "captions/line21.h"

namespace qlnmedia {

namespace {

constexpr uint8_t kValue = 0x7F;

}  // namespace

void PairCheck::Take(int64_t place, uint8_t first, uint8_t second) {
  if (captions::WithOddParity(first) != first || captions::WithOddParity(second) != second) {
    tell_(place, FindingKind::kDamage, "a pair whose parity is wrong", Severity::kError);
    single_.reset();
    return;
  }
  const auto a = static_cast<uint8_t>(first & kValue);
  const auto b = static_cast<uint8_t>(second & kValue);
  const bool control = a >= 0x10 && a < 0x20;
  const auto code = static_cast<uint16_t>(a << 8 | b);
  if (single_ && single_->second != code) Single();
  if (!IsLegal(a, b))
    tell_(place, FindingKind::kCaptions, fmt::format("an illegal pair, {:02x} {:02x}", first, second),
          Severity::kError);
  if (!control)
    single_.reset();
  else if (single_ && single_->second == code)
    single_.reset();
  else
    single_.emplace(place, code);
}

void PairCheck::Finish() {
  if (single_) Single();
}

void PairCheck::Single() {
  tell_(single_->first, FindingKind::kCaptions, "a control code that is sent only once", Severity::kNote);
  single_.reset();
}

// By the tables of CTA-608.
bool PairCheck::IsLegal(uint8_t a, uint8_t b) const {
  if (a >= 0x20) return b == 0 || b >= 0x20;
  if (a == 0) return b == 0;
  if (a < 0x10) return field_ == 2;  // extended data services
  const int kind = a & 7;
  if (b >= 0x40) return kind != 0 || b < 0x60;  // preamble address codes; row 11 has no second row
  if (b < 0x20) return false;
  switch (kind) {
    case 0:
      return b < 0x30;  // background
    case 1:
    case 2:
    case 3:
      return true;  // mid-row codes and characters
    case 4:
    case 5:
      return b < 0x30;  // miscellaneous
    case 7:
      return (b >= 0x21 && b <= 0x2A) || (b >= 0x2D && b <= 0x2F);  // tabs, character sets, looks
    default:
      return false;
  }
}

void CaptionPacketCheck::Take(int64_t place, const captions::CaptionPacket& packet) {
  const captions::RateInfo& rate = captions::InfoOf(packet.rate);
  if (counter_ && packet.counter != *counter_)
    tell_(place, FindingKind::kCaptions, "a gap in the packets' sequence counter", Severity::kWarning);
  counter_ = static_cast<uint16_t>(packet.counter + 1);
  if (packet.triplets.size() != static_cast<size_t>(rate.triplets))
    tell_(place, FindingKind::kCaptions,
          fmt::format("a packet of {} triplets, and its rate asks for {}", packet.triplets.size(),
                      rate.triplets),
          Severity::kWarning);
  for (const captions::Triplet& t : packet.triplets) {
    if (!t.valid || (t.type != captions::CcType::kField1 && t.type != captions::CcType::kField2)) continue;
    (t.type == captions::CcType::kField1 ? first_ : second_).Take(place, t.first, t.second);
  }
}

void CaptionPacketCheck::Finish() {
  first_.Finish();
  second_.Finish();
}

}  // namespace qlnmedia
