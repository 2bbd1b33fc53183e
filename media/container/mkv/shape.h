// What follows from changed frames and tracks: sizes of what holds them, places that elements name, and
// checksums.
#ifndef MEDIA_CONTAINER_MKV_SHAPE_H
#define MEDIA_CONTAINER_MKV_SHAPE_H

#include "container/mkv/layout.h"
#include "container/mp4/splices.h"

namespace qlnmedia::mkv {

// Adds to `contents`, which holds the changes of blocks and track entries and is sealed, what follows from
// them, and seals it again. Fields keep their width where their number fits; a wider one moves what stands
// behind it, until nothing moves any more. A checksum that was wrong stays. Throws Error for sizes that the
// document does not allow.
void PutShape(const Source& source, const Layout& layout, mp4::Splices& contents, mp4::Spool& spool);

// CRC-32 of a stretch of a source as its element holds it (RFC 8794 section 11.3.1).
uint32_t ChecksumOf(const Source& source, uint64_t begin, uint64_t end);

// What an element in an index is to whoever moves things: holds others that name places, is a place in the
// segment or in a cluster, or none of that.
enum class Role { kOther, kMaster, kPlace, kRelativePlace };
Role RoleOf(uint64_t parent, uint64_t id);

}  // namespace qlnmedia::mkv

#endif
