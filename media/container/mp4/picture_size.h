// What boxes say of the size of a track's pictures, where that becomes another: the sample entry, the track's
// header and aperture, and the clean aperture (ISO/IEC 14496-12 clauses 8.3.2, 12.1.3 and 12.1.4, QuickTime
// File Format Specification, 'tapt').
#ifndef MEDIA_CONTAINER_MP4_PICTURE_SIZE_H
#define MEDIA_CONTAINER_MP4_PICTURE_SIZE_H

#include <array>
#include <cstdint>
#include <vector>

#include "container/mp4/change.h"
#include "container/mp4/edit.h"

namespace qlnmedia::mp4 {

// Where the size stands in a visual sample entry, behind its head: width, height, 16 bits each.
constexpr uint64_t kEntrySizeAt = 24;
constexpr uint64_t kEntrySizeBytes = 4;
// Width and height at the end of `tkhd`, 16.16 each.
constexpr uint64_t kHeaderSizeBytes = 8;

// Width and height as a visual sample entry says them.
std::array<uint32_t, 2> ReadEntrySize(Reader& reader, const Description& description);

// What a container that says `said` (width, height) has to say of such pictures: one that names the frames of
// a stream of fields goes on doing so.
std::array<uint32_t, 2> FollowedSize(const PictureSize& picture, const std::array<uint32_t, 2>& said);

// The body of a `clap` that names the same part of the picture as before, as far as that is still there;
// `said` is the size that the sample entry had, `fresh` the one that it gets. A body that is none, or names
// nothing that is left, comes back as it was.
Bytes FollowedAperture(const Bytes& body, const PictureSize& picture, const std::array<uint32_t, 2>& said,
                       const std::array<uint32_t, 2>& fresh);

// Writes the sizes of sample entries, and in their proportion those of the track.
void WritePictureSizes(Edit& edit, const Track& track, const std::vector<PictureSize>& pictures);

}  // namespace qlnmedia::mp4

#endif
