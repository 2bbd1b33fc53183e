// Puts captions into H.264, HEVC and MPEG-2 pictures, in presentation order, and takes out those that are
// there.
#ifndef MEDIA_EDIT_CAPTION_EDIT_H
#define MEDIA_EDIT_CAPTION_EDIT_H

#include <map>
#include <string>
#include <vector>

#include "edit/picture_units.h"
#include "qlnmedia/stream_editor.h"
#include "units/units.h"

namespace qlnmedia {

class CaptionEdit {
 public:
  // Throws Error, in the name of `where`, where the stream was surveyed and has captions that may not be
  // replaced. Counts what it does in `counts`; that and the survey must outlive it. Without a survey the
  // places of pictures come with them (PutAt).
  CaptionEdit(const StreamChanges& changes, const StreamSurvey* survey, std::string where,
              EditCounts& counts);

  // Goes on to the next packet. Throws Error where more come than were surveyed.
  void NextPacket();
  // Changes the units of that packet, true where there was something to do; or its bytes, if it is MPEG-2.
  bool ChangeUnits(Codec codec, std::vector<Unit>& units);
  Bytes ChangeMpeg2(ByteSpan data);

  // Whether captions are wanted and nobody surveyed the stream.
  bool needsPlaces() const { return provider_ && survey_ == nullptr; }
  // Puts the captions of the picture at a place in presentation order into a packet's pictures; true where
  // they got some.
  bool PutAt(uint32_t place, Codec codec, std::vector<PictureUnits>& parts);

 private:
  std::vector<captions::Triplet> TripletsAt(uint32_t place);

  CaptionProvider provider_;
  bool replace_;
  const StreamSurvey* survey_;
  std::string where_;
  EditCounts& counts_;
  size_t packets_ = 0;
  bool wanted_ = false;                      // the packet begins a picture that gets captions
  std::vector<captions::Triplet> triplets_;  // which are these
  uint32_t made_ = 0;                        // pictures that the provider was asked for
  std::map<uint32_t, std::vector<captions::Triplet>> waiting_;  // those that come later in coding order
};

}  // namespace qlnmedia

#endif
