// Tells the services of a line 21 field apart and lets libavcodec decode its captions.

#include "captions/line21_decoder.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstring>
#include <new>
#include <string_view>

#include "base/error.h"
#include "captions/line21.h"

namespace qlnmedia {

namespace captions = qlnmedia::captions;

namespace {

constexpr uint8_t kValue = 0x7F;          // without parity
constexpr uint8_t kSecondChannel = 0x08;  // in the first byte of a control code
constexpr uint8_t kEndOfData = 0x0F;

// The text of an ASS dialogue: what stands behind its eighth comma, without the pieces in braces.
std::string PlainDialogue(const char* ass) {
  std::string_view rest(ass);
  for (int commas = 0; commas < 8; ++commas) {
    const size_t comma = rest.find(',');
    if (comma == std::string_view::npos) return {};
    rest.remove_prefix(comma + 1);
  }
  std::string text;
  bool inBraces = false;
  for (size_t i = 0; i < rest.size(); ++i) {
    const char c = rest[i];
    const char next = i + 1 < rest.size() ? rest[i + 1] : '\0';
    if (c == '{') inBraces = true;
    if (!inBraces && c == '\\' && (next == 'N' || next == 'n' || next == 'h')) {
      text += next == 'h' ? ' ' : '\n';
      ++i;
    } else if (!inBraces && c != '\r') {
      text += c;
    }
    if (c == '}') inBraces = false;
  }
  while (!text.empty() && (text.back() == '\n' || text.back() == ' ')) text.pop_back();
  return text;
}

// Bytes of a pair that a decoder of channel 1 understands. Wrong parity stays wrong.
uint8_t ForFirstChannel(uint8_t first) {
  if (captions::WithOddParity(first) != first) return first;
  return captions::WithOddParity(static_cast<uint8_t>(first & ~kSecondChannel));
}

}  // namespace

void Line21Channel::Open() {
  const AVCodec* const codec = avcodec_find_decoder(AV_CODEC_ID_EIA_608);
  if (codec == nullptr) throw Error("captions", "this libavcodec has no decoder for line 21 captions");
  context_.reset(avcodec_alloc_context3(codec));
  packet_.reset(av_packet_alloc());
  if (context_ == nullptr || packet_ == nullptr) throw std::bad_alloc();
  context_->pkt_timebase = AVRational{1, AV_TIME_BASE};
  if (avcodec_open2(context_.get(), codec, nullptr) < 0)
    throw Error("captions", "the decoder for line 21 captions does not start");
}

void Line21Channel::Add(int field, uint8_t first, uint8_t second, double seconds) {
  if (context_ == nullptr) Open();
  const uint8_t triplet[] = {static_cast<uint8_t>(field == 2 ? 0xFD : 0xFC), first, second};
  if (av_new_packet(packet_.get(), sizeof triplet) < 0) throw std::bad_alloc();
  std::memcpy(packet_->data, triplet, sizeof triplet);
  packet_->pts = static_cast<int64_t>(seconds * AV_TIME_BASE + 0.5);
  Feed();
  av_packet_unref(packet_.get());
}

void Line21Channel::Feed() {
  AVSubtitle subtitle{};
  int got = 0;
  if (avcodec_decode_subtitle2(context_.get(), &subtitle, &got, packet_.get()) < 0 || got == 0) return;
  std::string text;
  for (unsigned i = 0; i < subtitle.num_rects; ++i) {
    if (subtitle.rects[i]->ass == nullptr) continue;
    if (!text.empty()) text += '\n';
    text += PlainDialogue(subtitle.rects[i]->ass);
  }
  const double begin = static_cast<double>(subtitle.pts) / AV_TIME_BASE;
  if (!text.empty()) lines_.push_back({begin, begin + subtitle.end_display_time / 1000.0, text});
  avsubtitle_free(&subtitle);
}

void Line21Channel::Finish(double seconds) {
  if (context_ == nullptr) return;
  const size_t over = lines_.size();
  av_packet_unref(packet_.get());
  if ((context_->codec->capabilities & AV_CODEC_CAP_DELAY) != 0) Feed();
  // A caption that nothing takes down stays until the end; the decoder does not know when that is.
  for (size_t i = 0; i < lines_.size(); ++i) {
    CaptionLine& line = lines_[i];
    if (i >= over || line.end > seconds || line.end <= line.begin) line.end = seconds;
  }
}

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
    for (size_t i = 0; i < channels_.size(); ++i) {
      if (captionsMet_[i]) channels_[i].Add(field_, first, second, seconds);
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
  captionsMet_[channel_] = true;
  channels_[channel_].Add(field_, code < 0x20 && channel_ == 1 ? ForFirstChannel(first) : first, second,
                          seconds);
}

void Line21Field::Finish(double seconds) {
  for (Line21Channel& channel : channels_) channel.Finish(seconds);
}

std::vector<CaptionService> Line21Field::services() const {
  std::vector<CaptionService> services;
  for (size_t i = 0; i < channels_.size(); ++i) {
    const size_t number = 2 * static_cast<size_t>(field_) - 1 + i;
    if (captionsMet_[i]) services.push_back({fmt::format("CC{}", number), channels_[i].lines()});
    if (textMet_[i]) services.push_back({fmt::format("T{}", number), {}});
  }
  if (dataMet_) services.push_back({"XDS", {}});
  return services;
}

}  // namespace qlnmedia
