// What an access unit brings along for itself, captions and a timecode: put into its pictures, wherever they
// stand in presentation order.
#ifndef MEDIA_EDIT_OWN_VALUES_H
#define MEDIA_EDIT_OWN_VALUES_H

#include <string>
#include <vector>

#include "edit/picture_units.h"
#include "edit/timecode_messages.h"
#include "qlnmedia/stream_editor.h"
#include "units/config_record.h"

namespace qlnmedia {

// Puts captions into the first picture of a packet of H.264 or HEVC; false where there is no picture, or the
// packet has captions.
bool PutOwnCaptions(Codec codec, std::vector<Unit>& units, const std::vector<captions::Triplet>& triplets,
                    EditCounts& counts);
// The same for a picture of MPEG-2: the bytes that it becomes.
Bytes PutOwnCaptions(ByteSpan data, const std::vector<captions::Triplet>& triplets, EditCounts& counts);

class OwnTimecodes {
 public:
  // Throws Error, in the name of `where`, for a stream whose rate cannot be told. Counts what it does in
  // `counts`, which must outlive it.
  OwnTimecodes(const StreamDescription& stream, const ConfigRecord& config, const StreamChanges& changes,
               std::string where, EditCounts& counts);

  // Puts it into all pictures of a packet: two fields are a frame. False where they have it. Throws Error
  // for a text that is no timecode, and where it has no place.
  bool Put(std::vector<PictureUnits>& parts, const std::string& timecode);

 private:
  std::string where_;
  EditCounts& counts_;
  std::string type_;
  Rational rate_;
  TimecodeMessages messages_;
};

}  // namespace qlnmedia

#endif
