// Line 21 captions (CTA-608) of one field as text with times.
#ifndef MEDIA_CAPTIONS_LINE21_DECODER_H
#define MEDIA_CAPTIONS_LINE21_DECODER_H

#include <array>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "captions/text.h"

namespace qlnmedia {

// Decodes one caption channel. The decoder stands outside: see MakeLine21Channel of the containers' room.
class Line21Channel {
 public:
  virtual ~Line21Channel() = default;
  // Takes a pair of channel 1; `field` is 1 or 2.
  virtual void Add(int field, uint8_t first, uint8_t second, double seconds) = 0;
  // Ends what stands on the screen.
  virtual void Finish(double seconds) = 0;
  virtual const std::vector<CaptionLine>& lines() const = 0;
};

// Makes the decoder of a channel that is met; throws Error where there is none.
using Line21ChannelMaker = std::function<std::unique_ptr<Line21Channel>()>;

// A field with its two caption channels, its two text channels, and, in field 2, extended data services.
class Line21Field {
 public:
  Line21Field(int field, Line21ChannelMaker make) : field_(field), make_(std::move(make)) {}

  void Add(uint8_t first, uint8_t second, double seconds);
  void Finish(double seconds);
  // What was met: "CC1" to "CC4" with their lines; "T1" to "T4" and "XDS" without.
  std::vector<CaptionService> services() const;

 private:
  void TakeControl(uint8_t code, uint8_t parameter);

  int field_;
  Line21ChannelMaker make_;
  size_t channel_ = 0;                                      // that control codes spoke of last
  bool text_ = false;                                       // what follows is for the text channel
  bool data_ = false;                                       // what follows is for extended data services
  std::array<std::unique_ptr<Line21Channel>, 2> channels_;  // those that were met
  std::array<bool, 2> textMet_{};
  bool dataMet_ = false;
};

}  // namespace qlnmedia

#endif
