// Makes an HEVC stream say what its coded pictures are: the fields of interlaced frames, or progressive
// frames. Parameter sets, picture timing and the configuration record's head change, and nothing else.
#ifndef MEDIA_EDIT_INTERLACE_EDIT_H
#define MEDIA_EDIT_INTERLACE_EDIT_H

#include <optional>
#include <string>
#include <vector>

#include "edit/picture_units.h"
#include "edit/scan_signs.h"
#include "qlnmedia/stream_editor.h"
#include "units/config_record.h"

namespace qlnmedia {

class InterlaceEdit {
 public:
  // Throws Error, in the name of `where`, where what is wanted is not what the coded pictures are, for a
  // stream of H.264, whose slices say it themselves, and where delays would be needed that nobody knows.
  // Counts what it does in `counts`, which must outlive it.
  InterlaceEdit(const StreamDescription& stream, const ConfigRecord& config, bool interlaced,
                const StreamSurvey* survey, std::string where, EditCounts& counts);

  // Adds to an edit of sequence parameter sets what those of this stream need.
  void AddTo(SpsEdit& edit) const;
  // Changes a video parameter set; false where there is nothing to change.
  bool ChangeVps(Bytes& unit);
  // Changes the flags in front of an hvcC's lists.
  void ChangeHead(ConfigRecord& record) const;
  // Changes the picture timing and the video parameter sets of the next packet, while its sequence parameter
  // sets still are those of the source. Returns true where something changed.
  bool Change(std::vector<PictureUnits>& parts);

 private:
  void RequireSigns(const ScanSigns& signs) const;
  // A sequence parameter set of the base layer as the source has it; other units are passed over.
  void TakeSps(ByteSpan unit);
  bool ChangePicture(PictureUnits& part, uint32_t picStruct);
  // pic_struct of a picture that does not say it: the `number`-th of `count` of a packet.
  uint32_t PicStructOf(size_t number, size_t count, uint32_t place) const;
  [[noreturn]] void Fail(const std::string& what, const std::string& advice = {}) const;

  std::string where_;
  EditCounts& counts_;
  bool interlaced_;
  bool bottomFirst_;
  std::optional<SpsFacts> sps_;
  std::vector<uint32_t> places_;  // of each packet in presentation order; empty where nobody asks
  size_t packets_ = 0;
};

}  // namespace qlnmedia

#endif
