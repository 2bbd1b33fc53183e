// Elementary ancillary files (.anc): the elements of SMPTE ST 436 of one picture after the other, as programs
// that wrap essence in MXF take and give them.
#ifndef MEDIA_CONTAINER_ANC_FILE_H
#define MEDIA_CONTAINER_ANC_FILE_H

#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "captions/anc_packets.h"
#include "captions/caption_track.h"

namespace qlnmedia {

// Whether a path's ending is that of such a file.
bool IsAncFile(const std::string& path);

// What one element holds.
struct AncFileElement {
  uint64_t number = 0;  // from 0, one a picture
  size_t at = 0;        // in the file
  std::vector<captions::AncPacket> packets;
  std::vector<std::string> damage;  // a line for each packet that is left out
};

// Hands over each element of a file. Nothing but a reason for a file that does not begin with one.
std::optional<std::string> ReadAncElements(std::string_view file,
                                           const std::function<void(const AncFileElement&)>& take);

// The captions of such a file, at the rate that its caption packets have, else at `asked` or that of line 21.
// SMPTE ST 436 makes an element of all that a frame has, of both its fields: each is a picture, whether it
// has packets or not, and what its packets hold belongs to that one picture in their order, be they on
// several lines, of either field or caption packets that follow each other. Where each element with captions
// has two caption packets of 50 pictures a second or more, its frame is made of two pictures, as fields are
// there, and each has one. `damage` takes a line for each kind of damage. Throws Error in the name of `path`
// for a file that is none or has no captions.
captions::CaptionTrack ReadAncFile(std::string_view file, const std::string& path,
                                   std::optional<captions::Rate> asked, std::vector<std::string>* damage);

}  // namespace qlnmedia

#endif
