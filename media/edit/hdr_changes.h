// Puts mastering display and light level into the pictures where decoding can start, in the place of others.
#ifndef MEDIA_EDIT_HDR_CHANGES_H
#define MEDIA_EDIT_HDR_CHANGES_H

#include <vector>

#include "qlnmedia/stream_editor.h"
#include "units/config_record.h"

namespace qlnmedia {

class HdrChanges {
 public:
  // Counts what it does in `counts`, which must outlive it.
  HdrChanges(Codec codec, const StreamChanges& changes, EditCounts& counts);

  // Takes messages of these kinds out of the private data.
  void ChangePrivateData(ConfigRecord& config);
  // Changes the units of a packet; true where something changed.
  bool Change(std::vector<Unit>& units, bool randomAccess);

 private:
  bool IsUnwanted(const SeiMessage& message) const;

  Codec codec_;
  bool mastering_;
  bool lightLevel_;
  Bytes unit_;  // the SEI unit that goes in, or nothing
  EditCounts& counts_;
};

}  // namespace qlnmedia

#endif
