// What the head of an MKV says beside what libavformat reads of it, by the names of its elements (RFC 9559).
#ifndef MEDIA_CONTAINER_MKV_HEAD_H
#define MEDIA_CONTAINER_MKV_HEAD_H

#include <string>
#include <vector>

namespace qlnmedia {

// What stands in the file `was` and not in `is`, a line for each stream and for the rest, as "stream 0:
// PixelCropTop, TrackOffset". Elements count where they say something else than their absence does. Left
// aside are those that a muxer makes anew: index, clusters, identifiers, compression. Files that are no MKV
// have none; one that is damaged, as far as it can be read.
std::vector<std::string> LostMkvElements(const std::string& was, const std::string& is);

}  // namespace qlnmedia

#endif
