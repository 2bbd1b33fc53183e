// Line 21 captions (CTA-608) of one field as text with times.
#ifndef MEDIA_CAPTIONS_LINE21_DECODER_H
#define MEDIA_CAPTIONS_LINE21_DECODER_H

#include <array>
#include <cstdint>
#include <string>
#include <vector>

#include "captions/text.h"
#include "container/libav_handles.h"

namespace qlnmedia {

// One caption channel, decoded by libavcodec.
class Line21Channel {
 public:
  // Takes a pair of channel 1; `field` is 1 or 2.
  void Add(int field, uint8_t first, uint8_t second, double seconds);
  // Ends what stands on the screen.
  void Finish(double seconds);
  const std::vector<CaptionLine>& lines() const { return lines_; }

 private:
  void Open();
  void Feed();

  CodecContextHandle context_;
  PacketHandle packet_;
  std::vector<CaptionLine> lines_;
};

// A field with its two caption channels, its two text channels, and, in field 2, extended data services.
class Line21Field {
 public:
  explicit Line21Field(int field) : field_(field) {}

  void Add(uint8_t first, uint8_t second, double seconds);
  void Finish(double seconds);
  // What was met: "CC1" to "CC4" with their lines; "T1" to "T4" and "XDS" without.
  std::vector<CaptionService> services() const;

 private:
  void TakeControl(uint8_t code, uint8_t parameter);

  int field_;
  size_t channel_ = 0;  // that control codes spoke of last
  bool text_ = false;   // what follows is for the text channel
  bool data_ = false;   // what follows is for extended data services
  std::array<Line21Channel, 2> channels_;
  std::array<bool, 2> captionsMet_{};
  std::array<bool, 2> textMet_{};
  bool dataMet_ = false;
};

}  // namespace qlnmedia

#endif
