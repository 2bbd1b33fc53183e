// Lets libavcodec decode one channel of line 21 captions.

#include "container/line21_channel.h"

#include <cmath>
#include <cstring>
#include <new>
#include <string_view>
#include <utility>

#include "base/error.h"
#include "container/libav_handles.h"

namespace qlnmedia {

namespace {

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

class LibavLine21 final : public Line21Channel {
 public:
  LibavLine21();
  void Add(int field, uint8_t first, uint8_t second, double seconds) override;
  void Finish(double seconds) override;
  const std::vector<CaptionLine>& lines() const override { return lines_; }

 private:
  void Feed();

  CodecContextHandle context_;
  PacketHandle packet_;
  std::vector<CaptionLine> lines_;
  // Times of the picture at hand and of the one before it: captions end with one of them.
  double time_ = 0;
  double timeBefore_ = 0;
};

LibavLine21::LibavLine21() {
  const AVCodec* const codec = avcodec_find_decoder(AV_CODEC_ID_EIA_608);
  if (codec == nullptr) throw Error("captions", "this libavcodec has no decoder for line 21 captions");
  context_.reset(avcodec_alloc_context3(codec));
  packet_.reset(av_packet_alloc());
  if (context_ == nullptr || packet_ == nullptr) throw std::bad_alloc();
  context_->pkt_timebase = AVRational{1, AV_TIME_BASE};
  if (avcodec_open2(context_.get(), codec, nullptr) < 0)
    throw Error("captions", "the decoder for line 21 captions does not start");
}

void LibavLine21::Add(int field, uint8_t first, uint8_t second, double seconds) {
  const uint8_t triplet[] = {static_cast<uint8_t>(field == 2 ? 0xFD : 0xFC), first, second};
  if (av_new_packet(packet_.get(), sizeof triplet) < 0) throw std::bad_alloc();
  std::memcpy(packet_->data, triplet, sizeof triplet);
  packet_->pts = static_cast<int64_t>(seconds * AV_TIME_BASE + 0.5);
  if (seconds != time_) timeBefore_ = std::exchange(time_, seconds);
  Feed();
  av_packet_unref(packet_.get());
}

void LibavLine21::Feed() {
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
  // The decoder tells a duration, in whole milliseconds: a picture's time is half a one off at most.
  double end = begin + subtitle.end_display_time / 1000.0;
  for (const double time : {timeBefore_, time_}) {
    if (std::abs(end - time) < 0.001) end = time;
  }
  if (!text.empty()) lines_.push_back({begin, end, text});
  avsubtitle_free(&subtitle);
}

void LibavLine21::Finish(double seconds) {
  const size_t over = lines_.size();
  av_packet_unref(packet_.get());
  if ((context_->codec->capabilities & AV_CODEC_CAP_DELAY) != 0) Feed();
  // A caption that nothing takes down stays until the end; the decoder does not know when that is.
  for (size_t i = 0; i < lines_.size(); ++i) {
    CaptionLine& line = lines_[i];
    if (i >= over || line.end > seconds || line.end <= line.begin) line.end = seconds;
  }
}

}  // namespace

std::unique_ptr<Line21Channel> MakeLine21Channel() { return std::make_unique<LibavLine21>(); }

}  // namespace qlnmedia
