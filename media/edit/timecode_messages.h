// Gives single pictures the message that holds a timecode: picture timing in H.264, time code in HEVC.
#ifndef MEDIA_EDIT_TIMECODE_MESSAGES_H
#define MEDIA_EDIT_TIMECODE_MESSAGES_H

#include <string>
#include <vector>

#include "pictures/picture_tracker.h"

namespace qlnmedia {

class TimecodeMessages {
 public:
  // What is wrong with a picture is an Error in the name of `where`.
  TimecodeMessages(Codec codec, std::string where) : codec_(codec), where_(std::move(where)) {}

  // Puts the timecode of that count and TcType into the units of a picture whose head is known; false where
  // it has that one already. H.264 sets are expected to get the pic_struct_present_flag that it asks for.
  bool Put(std::vector<Unit>& units, const CodedPicture& picture, uint32_t count, uint8_t type) const;

 private:
  bool PutH264(std::vector<Unit>& units, const CodedPicture& picture, uint32_t count, uint8_t type) const;

  Codec codec_;
  std::string where_;
};

}  // namespace qlnmedia

#endif
