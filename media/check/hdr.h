// Static HDR metadata: a container's held against the stream's own, and both against what the pictures are.
#ifndef MEDIA_CHECK_HDR_H
#define MEDIA_CHECK_HDR_H

#include <vector>

#include "check/finding_list.h"
#include "container/media_stream.h"
#include "hdr/stream_hdr.h"
#include "sets/sps_facts.h"

namespace qlnmedia {

class HdrChecker {
 public:
  // Both must outlive this.
  HdrChecker(const MediaStream& stream, FindingList& findings);

  // Takes a sequence parameter set of the base layer, wherever it stands.
  void TakeSps(const SpsFacts& sps);
  // Takes the units of the next frame.
  void Take(Codec codec, const std::vector<Unit>& units, int64_t frame);
  // At the end of the stream: what all of it says together.
  void Finish();

 private:
  void Add(std::string text, int64_t frame);
  void JudgeTransfer(const StreamHdr& hdr);
  void JudgeDisplay(const MasteringDisplay& display);
  void JudgeLight(const StreamHdr& hdr);
  void JudgeBaseLayer();

  const MediaStream& stream_;
  StreamHdr container_;
  StreamHdr last_;              // of the stream
  int transfer_;                // of the stream, or else of the container
  bool otherTransfer_ = false;  // a message names one that is preferred
  FindingList& findings_;
};

}  // namespace qlnmedia

#endif
