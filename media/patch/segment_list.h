// The segments of one stream, as a folder or a playlist names them.
#ifndef MEDIA_PATCH_SEGMENT_LIST_H
#define MEDIA_PATCH_SEGMENT_LIST_H

#include <string>
#include <vector>

namespace qlnmedia {

struct SegmentList {
  std::string folder;                 // that all names below stand in
  std::string initialization;         // name of the segment with the `moov`
  std::vector<std::string> segments;  // names, in order of time
  std::vector<std::string> others;    // names of files that are no segments and go with them
};

// `path` is a folder, whose one initialization segment and media segments are found by their boxes and put in
// order by their decoding times, or an HLS playlist (IETF RFC 8216) or a DASH manifest (ISO/IEC 23009-1) with
// one stream of pictures, which name them; segments of a manifest's other streams go with it. Throws Error
// where there is not one initialization segment and at least one segment, or a playlist names parts of files
// or files outside of its folder.
SegmentList ReadSegmentList(const std::string& path);

}  // namespace qlnmedia

#endif
