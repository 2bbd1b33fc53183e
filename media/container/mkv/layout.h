// Where the parts of a Matroska or WebM file stand: its segments with their clusters and tracks, and what
// names places in them. Nothing that holds pictures is read.
#ifndef MEDIA_CONTAINER_MKV_LAYOUT_H
#define MEDIA_CONTAINER_MKV_LAYOUT_H

#include <map>
#include <optional>
#include <string>
#include <vector>

#include "container/mkv/element.h"
#include "container/mkv/encoding.h"

namespace qlnmedia::mkv {

// A TrackEntry. Numbers of tracks may come again: in further segments, and where a live stream says its
// tracks once more.
struct Entry {
  Element element;
  size_t segment = 0;
  uint64_t number = 0;
  uint64_t type = 0;
  std::string codec;             // as "V_MPEG4/ISO/AVC"; what is not printable is '.'
  uint64_t defaultDuration = 0;  // nanoseconds; 0 where it is not told
  Element privateData;           // its end is 0 where there is none
  Encodings encodings;
  uint32_t description = 1;  // which of the track's descriptions, 1-based: entries that say the same are one

  // Bytes in front of what the codec calls its private data.
  size_t privateHead() const;
};

struct Cluster {
  uint64_t at = 0;
  uint64_t end = 0;
};

struct Segment {
  Element element;  // with its end, whether that is told or not
  Limits limits;
  uint64_t timestampScale = 1000000;  // nanoseconds in a unit of time
  std::vector<Element> indexes = {};  // SeekHead and Cues, in the order of the file
  std::vector<Element> tracks = {};   // Tracks
  std::vector<Cluster> clusters = {};
};

struct Layout {
  std::vector<Segment> segments;
  // By track number, in the order of the file.
  std::map<uint64_t, std::vector<Entry>> tracks;
  // Of the first segment, in their order.
  std::vector<uint64_t> firstTracks;
  // Where the file ends within an element; what is there of it belongs to no segment here.
  std::optional<uint64_t> cutAt;

  // The entry that a cluster's blocks belong to; null where its segment has none of that number.
  const Entry* EntryOf(uint64_t number, size_t segment, uint64_t clusterAt) const;
};

// Throws Error, with the place, for a file that is not put together as EBML says. Bytes behind the last
// segment may be anything, and the last segment may be cut off.
Layout ReadLayout(const Source& source);

// The private data as the codec has it, its head left out, encodings undone.
Bytes ReadPrivateData(const Source& source, const Entry& entry);

}  // namespace qlnmedia::mkv

#endif
