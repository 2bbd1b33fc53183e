// Caption channel packets out of triplets, service blocks out of packets.

#include "captions/service_reader.h"

#include "captions/service_codes.h"

namespace qlnmedia::captions {
namespace {

constexpr uint8_t kSizeCode = 0x3F;
constexpr size_t kLargest = 128;  // what the size code 0 means

}  // namespace

void ServiceReader::Add(const Triplet& t, const Take& take) {
  if (!t.valid || (t.type != CcType::kServiceStart && t.type != CcType::kServiceData)) return;
  if (t.type == CcType::kServiceStart) packet_.clear();
  if (t.type == CcType::kServiceData && packet_.empty()) return;
  packet_.insert(packet_.end(), {t.first, t.second});
  const size_t code = packet_[0] & kSizeCode;
  if (packet_.size() >= (code == 0 ? kLargest : 2 * code)) Close(take);
}

void ServiceReader::Close(const Take& take) {
  for (size_t at = 1; at < packet_.size();) {
    int service = packet_[at] >> 5;
    const size_t size = packet_[at] & 0x1F;
    ++at;
    if (service == kExtendedService && size != 0 && at < packet_.size()) service = packet_[at++] & 0x3F;
    if (service == 0 || size > packet_.size() - at) break;  // the null block ends a packet
    if (size != 0) take(service, std::span(packet_).subspan(at, size));
    at += size;
  }
  packet_.clear();
}

}  // namespace qlnmedia::captions
