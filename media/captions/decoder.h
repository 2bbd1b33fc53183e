// Decodes all caption services of a stream, picture by picture.
#ifndef MEDIA_CAPTIONS_DECODER_H
#define MEDIA_CAPTIONS_DECODER_H

#include <map>
#include <string>
#include <vector>

#include "captions/line21_decoder.h"
#include "captions/reader.h"
#include "captions/service_reader.h"
#include "captions/service_screen.h"
#include "captions/text.h"

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
  // The same with places and looks, which digital captions are without.
  std::vector<StyledService> styled() const;

 private:
  struct Digital {
    qlnmedia::captions::ServiceScreen screen;
    std::string shown;
    std::vector<CaptionLine> lines;
    void Show(std::string text, double seconds);
  };

  Line21Field fields_[2] = {Line21Field(1), Line21Field(2)};
  qlnmedia::captions::ServiceReader reader_;
  std::map<int, Digital> digital_;  // by service
};

}  // namespace qlnmedia

#endif
