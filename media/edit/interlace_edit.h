// Makes an HEVC stream say what its coded pictures are: the fields of interlaced frames, or progressive
// frames. Parameter sets, picture timing and the configuration record's head change, and nothing else.
#ifndef MEDIA_EDIT_INTERLACE_EDIT_H
#define MEDIA_EDIT_INTERLACE_EDIT_H

#include <string>
#include <vector>

#include "base/progress.h"
#include "container/libav_handles.h"
#include "edit/scan_signs.h"
#include "pictures/order_survey.h"
#include "sets/set_edit.h"
#include "sets/sps_facts.h"
#include "units/config_record.h"

namespace qlnmedia {

class InterlaceEdit {
 public:
  // Looks through the whole stream first. Throws Error where what is wanted is not what the coded
  // pictures are, for a stream of H.264, whose slices say it themselves, and where delays would be needed
  // that nobody knows.
  InterlaceEdit(const std::string& path, unsigned index, Codec codec, bool interlaced,
                const ProgressCallback& progress);

  // Adds to an edit of sequence parameter sets what those of this stream need.
  void AddTo(SpsEdit& edit) const;
  // Changes a video parameter set; false where there is nothing to change.
  bool PatchVps(Bytes& unit);
  // Changes the flags in front of an hvcC's lists.
  void PatchHead(ConfigRecord& record) const;
  // The container's field order, as AVFieldOrder counts.
  AVFieldOrder fieldOrder() const;

  // A sequence parameter set as the source has it.
  void TakeSps(const SpsFacts& sps);
  // Changes the picture timing of the next packet, while its parameter sets still are those of the source.
  // Returns true where something changed.
  bool PatchPacket(std::vector<Unit>& units);

  // What was done, a piece of text each.
  std::vector<std::string> Summary() const;

 private:
  void LookAhead(const ProgressCallback& progress);
  void RequireSigns(const ScanSigns& signs) const;
  bool PatchPicture(std::vector<Unit>& units, const CodedPicture& picture, uint32_t picStruct);
  // pic_struct of a picture that does not say it: the `number`-th of `count` of a packet.
  uint32_t PicStructOf(size_t number, size_t count, uint32_t place) const;
  [[noreturn]] void Fail(const std::string& what, const std::string& advice = {}) const;

  std::string path_;
  unsigned index_;
  bool interlaced_;
  bool bottomFirst_ = false;
  PictureTracker tracker_;
  std::optional<SpsFacts> sps_;
  std::vector<uint32_t> places_;  // of each packet in presentation order; empty where nobody asks
  size_t packets_ = 0;
  int setsChanged_ = 0;
  int timingsChanged_ = 0;
  int timingsAdded_ = 0;
};

}  // namespace qlnmedia

#endif
