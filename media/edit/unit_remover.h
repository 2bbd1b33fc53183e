// Takes units and messages out of a stream that somebody does not want.
#ifndef MEDIA_EDIT_UNIT_REMOVER_H
#define MEDIA_EDIT_UNIT_REMOVER_H

#include <vector>

#include "qlnmedia/stream_editor.h"
#include "units/config_record.h"

namespace qlnmedia {

class UnitRemover {
 public:
  // Counts what it does in `counts`, which must outlive it.
  UnitRemover(Codec codec, const UnitRemoval& unwanted, EditCounts& counts)
      : codec_(codec), unwanted_(unwanted), counts_(counts) {}

  void ChangePrivateData(ConfigRecord& config);
  // True where something went.
  bool Change(std::vector<Unit>& units);

 private:
  bool IsUnwanted(int unitType) const;
  bool IsUnwanted(const SeiMessage& message) const;
  // What remains of a unit: false where it goes.
  bool Keep(Bytes& unit);

  Codec codec_;
  UnitRemoval unwanted_;
  EditCounts& counts_;
};

}  // namespace qlnmedia

#endif
