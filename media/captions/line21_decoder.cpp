// Tells the services of a line 21 field apart.

#include "captions/line21_decoder.h"

#include <fmt/format.h>

#include "captions/line21.h"

namespace qlnmedia {

namespace {

constexpr uint8_t kValue = 0x7F;          // without parity
constexpr uint8_t kSecondChannel = 0x08;  // in the first byte of a control code
constexpr uint8_t kEndOfData = 0x0F;

// Bytes of a pair that a decoder of channel 1 understands. Wrong parity stays wrong.
uint8_t ForFirstChannel(uint8_t first) {
  if (captions::WithOddParity(first) != first) return first;
  return captions::WithOddParity(static_cast<uint8_t>(first & ~kSecondChannel));
}

}  // namespace

void Line21Field::TakeControl(uint8_t code, uint8_t parameter) {
  channel_ = (code & kSecondChannel) != 0 ? 1 : 0;
  data_ = false;
  // Miscellaneous control codes choose between captions (RCL, RU2 to RU4, RDC) and text (TR, RTD).
  const int kind = code & ~kSecondChannel;
  if (kind != 0x14 && kind != 0x15) return;
  if (parameter == 0x2A || parameter == 0x2B) text_ = true;
  if (parameter == 0x20 || (parameter >= 0x25 && parameter <= 0x27) || parameter == 0x29) text_ = false;
}

void Line21Field::Add(uint8_t first, uint8_t second, double seconds) {
  const uint8_t code = first & kValue;
  if (code == 0 && (second & kValue) == 0) {
    // Null pairs part control codes that are doubled from those that are said again.
    for (auto& channel : channels_) {
      if (channel) channel->Add(first, second, seconds);
    }
    return;
  }
  if (field_ == 2 && code >= 0x01 && code <= kEndOfData) {
    dataMet_ = true;
    data_ = code != kEndOfData;
    return;
  }
  if (code >= 0x10 && code < 0x20) TakeControl(code, second & kValue);
  if (data_) return;
  if (text_) {
    textMet_[channel_] = true;
    return;
  }
  if (!channels_[channel_]) channels_[channel_].emplace();
  channels_[channel_]->Add(code < 0x20 && channel_ == 1 ? ForFirstChannel(first) : first, second, seconds);
}

void Line21Field::Finish(double seconds) {
  for (auto& channel : channels_) {
    if (channel) channel->Finish(seconds);
  }
}

std::vector<StyledService> Line21Field::services() const {
  std::vector<StyledService> services;
  for (size_t i = 0; i < channels_.size(); ++i) {
    const size_t number = 2 * static_cast<size_t>(field_) - 1 + i;
    if (channels_[i]) services.push_back({fmt::format("CC{}", number), channels_[i]->captions()});
    if (textMet_[i]) services.push_back({fmt::format("T{}", number), {}});
  }
  if (dataMet_) services.push_back({"XDS", {}});
  return services;
}

}  // namespace qlnmedia
