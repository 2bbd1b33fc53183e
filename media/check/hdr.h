// Static HDR metadata of a container held against the stream's own.
#ifndef MEDIA_CHECK_HDR_H
#define MEDIA_CHECK_HDR_H

#include <vector>

#include "check/finding_list.h"
#include "hdr/stream_hdr.h"

namespace qlnmedia {

class HdrChecker {
 public:
  // `container` is what the container says of the stream `stream`.
  HdrChecker(unsigned stream, const StreamHdr& container, FindingList& findings)
      : stream_(stream), container_(container), findings_(findings) {}

  // Takes the units of the next frame.
  void Take(Codec codec, const std::vector<Unit>& units, int64_t frame);
  void Finish();

 private:
  void Add(std::string text, int64_t frame);

  unsigned stream_;
  StreamHdr container_;
  StreamHdr last_;  // of the stream
  FindingList& findings_;
};

}  // namespace qlnmedia

#endif
