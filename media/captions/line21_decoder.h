// Line 21 captions (CTA-608) of one field as text with times.
#ifndef MEDIA_CAPTIONS_LINE21_DECODER_H
#define MEDIA_CAPTIONS_LINE21_DECODER_H

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "captions/line21_screen.h"

namespace qlnmedia {

// A service with what it shows.
struct StyledService {
  std::string name;  // as CaptionService::name
  std::vector<captions::StyledCaption> captions;
};

// A field with its two caption channels, its two text channels, and, in field 2, extended data services.
class Line21Field {
 public:
  explicit Line21Field(int field) : field_(field) {}

  void Add(uint8_t first, uint8_t second, double seconds);
  void Finish(double seconds);
  // What was met: "CC1" to "CC4" with their captions; "T1" to "T4" and "XDS" without.
  std::vector<StyledService> services() const;

 private:
  void TakeControl(uint8_t code, uint8_t parameter);

  int field_;
  size_t channel_ = 0;  // that control codes spoke of last
  bool text_ = false;   // what follows is for the text channel
  bool data_ = false;   // what follows is for extended data services
  std::array<std::optional<captions::Line21Screen>, 2> channels_;  // those that were met
  std::array<bool, 2> textMet_{};
  bool dataMet_ = false;
};

}  // namespace qlnmedia

#endif
