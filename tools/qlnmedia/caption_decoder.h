// Decodes all caption services of a stream, picture by picture.
#ifndef TOOLS_QLNMEDIA_CAPTION_DECODER_H
#define TOOLS_QLNMEDIA_CAPTION_DECODER_H

#include <map>
#include <string>
#include <vector>

#include "captions/service_reader.h"
#include "captions/service_screen.h"
#include "qlnmedia/caption_reader.h"
#include "qlnmedia/line21_decoder.h"

namespace qlnmedia {

class CaptionDecoder {
 public:
  // Takes the triplets of the next picture in presentation order.
  void Add(const Triplets& triplets, double seconds);
  // Ends what stands on the screen.
  void Finish(double seconds);
  // The services that were met, those of line 21 first. A digital caption stands from its first character
  // until its text goes or another one takes its place; characters that are added to it are part of it.
  std::vector<CaptionService> services() const;

 private:
  struct Digital {
    qln::captions::ServiceScreen screen;
    std::string shown;
    std::vector<CaptionLine> lines;
    void Show(std::string text, double seconds);
  };

  Line21Field fields_[2] = {Line21Field(1), Line21Field(2)};
  qln::captions::ServiceReader reader_;
  std::map<int, Digital> digital_;  // by service
};

// All services of what was surveyed.
std::vector<CaptionService> DecodeCaptions(const CaptionSurvey& survey);

}  // namespace qlnmedia

#endif
