// Decodes line 21 captions and lists services.

#include "qlnmedia/caption_text.h"

#include <fmt/format.h>

#include <cmath>
#include <cstring>
#include <new>
#include <set>

#include "qlnmedia/output.h"
#include "qlnmedia/tool_error.h"

namespace qlnmedia {

namespace {

using qln::captions::CcType;
using qln::captions::Triplet;

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

class Line21Decoder {
 public:
  Line21Decoder() {
    const AVCodec* const codec = avcodec_find_decoder(AV_CODEC_ID_EIA_608);
    if (codec == nullptr) throw ToolError("captions", "this libavcodec has no decoder for line 21 captions");
    context_.reset(avcodec_alloc_context3(codec));
    packet_.reset(av_packet_alloc());
    if (context_ == nullptr || packet_ == nullptr) throw std::bad_alloc();
    context_->pkt_timebase = AVRational{1, AV_TIME_BASE};
    if (avcodec_open2(context_.get(), codec, nullptr) < 0)
      throw ToolError("captions", "the decoder for line 21 captions does not start");
  }

  void Decode(const Bytes& triplets, double seconds, std::vector<CaptionLine>& lines) {
    if (av_new_packet(packet_.get(), static_cast<int>(triplets.size())) < 0) throw std::bad_alloc();
    std::memcpy(packet_->data, triplets.data(), triplets.size());
    packet_->pts = static_cast<int64_t>(seconds * AV_TIME_BASE + 0.5);
    Feed(lines);
    av_packet_unref(packet_.get());
  }

  // What stands on the screen at the end.
  void Flush(std::vector<CaptionLine>& lines) {
    av_packet_unref(packet_.get());
    if ((context_->codec->capabilities & AV_CODEC_CAP_DELAY) != 0) Feed(lines);
  }

 private:
  void Feed(std::vector<CaptionLine>& lines) {
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
    if (!text.empty()) lines.push_back({begin, begin + subtitle.end_display_time / 1000.0, text});
    avsubtitle_free(&subtitle);
  }

  CodecContextHandle context_;
  PacketHandle packet_;
};

std::string TimeOf(double seconds, char separator) {
  // By way of microseconds, so that halves of a millisecond are not lost to binary fractions.
  const int64_t ms = (std::llround(seconds * 1e6) + 500) / 1000;
  return fmt::format("{:02}:{:02}:{:02}{}{:03}", ms / 3600000, ms / 60000 % 60, ms / 1000 % 60, separator,
                     ms % 1000);
}

}  // namespace

std::vector<CaptionLine> DecodeLine21(const std::vector<Triplets>& pictures, double picturesPerSecond,
                                      int field) {
  std::vector<CaptionLine> lines;
  if (picturesPerSecond <= 0) return lines;
  Line21Decoder decoder;
  const CcType wanted = field == 2 ? CcType::kField2 : CcType::kField1;
  for (size_t i = 0; i < pictures.size(); ++i) {
    Bytes bytes;
    for (const Triplet& t : pictures[i]) {
      if (t.valid && t.type == wanted)
        bytes.insert(bytes.end(), {static_cast<uint8_t>(0xFC | static_cast<int>(t.type)), t.first, t.second});
    }
    if (!bytes.empty()) decoder.Decode(bytes, static_cast<double>(i) / picturesPerSecond, lines);
  }
  decoder.Flush(lines);
  // A caption that nothing takes down stays until the last picture.
  const double end = static_cast<double>(pictures.size()) / picturesPerSecond;
  for (CaptionLine& line : lines) {
    if (line.end > end || line.end <= line.begin) line.end = end;
  }
  return lines;
}

std::vector<std::string> CaptionServices(const std::vector<Triplets>& pictures) {
  bool fields[2] = {};
  std::set<int> services;
  Bytes packet;  // of a caption channel, while it is gathered
  const auto close = [&] {
    // Behind the header: blocks of service number and size in one byte, an extended number in the next.
    for (size_t at = 1; at < packet.size();) {
      int service = packet[at] >> 5;
      const size_t size = packet[at] & 0x1F;
      ++at;
      if (service == 7 && size != 0 && at < packet.size()) service = packet[at++] & 0x3F;
      if (service == 0) break;
      if (size != 0) services.insert(service);
      at += size;
    }
    packet.clear();
  };
  for (const Triplets& picture : pictures) {
    for (const Triplet& t : picture) {
      if (!t.valid) continue;
      if (t.type == CcType::kField1 || t.type == CcType::kField2) {
        if (((t.first | t.second) & 0x7F) != 0) fields[t.type == CcType::kField2 ? 1 : 0] = true;
        continue;
      }
      if (t.type == CcType::kServiceStart) close();
      if (t.type == CcType::kServiceStart || !packet.empty())
        packet.insert(packet.end(), {t.first, t.second});
      if (!packet.empty()) {
        const size_t size = (packet[0] & 0x3F) == 0 ? 128 : size_t{2} * (packet[0] & 0x3F);
        if (packet.size() >= size) close();
      }
    }
  }
  close();
  std::vector<std::string> names;
  if (fields[0]) names.emplace_back("line 21 field 1");
  if (fields[1]) names.emplace_back("line 21 field 2");
  for (const int service : services) names.push_back(fmt::format("digital service {}", service));
  return names;
}

std::string WriteSrt(const std::vector<CaptionLine>& lines) {
  std::string text;
  for (size_t i = 0; i < lines.size(); ++i)
    text += fmt::format("{}\n{} --> {}\n{}\n\n", i + 1, TimeOf(lines[i].begin, ','),
                        TimeOf(lines[i].end, ','), lines[i].text);
  return text;
}

std::string WriteCaptionText(const std::vector<CaptionLine>& lines) {
  std::string text;
  for (const CaptionLine& line : lines) {
    std::string oneLine = line.text;
    for (char& c : oneLine) {
      if (c == '\n') c = ' ';
    }
    text += fmt::format("{} - {}  {}\n", TimeOf(line.begin, '.'), TimeOf(line.end, '.'), Printable(oneLine));
  }
  return text;
}

}  // namespace qlnmedia
