// Edits sets, each only once.

#include "edit/set_changes.h"

#include "base/error.h"
#include "units/access_unit.h"

namespace qlnmedia {

namespace {

constexpr size_t kMostKept = 1024;  // a stream that changes its sets all the time shall not fill memory

}  // namespace

bool SetChanges::Change(Bytes& unit) {
  if (!edit.any() || !IsSps(codec_, UnitType(codec_, unit))) return false;
  auto known = rewritten_.find(unit);
  if (known == rewritten_.end()) {
    std::optional<Bytes> edited = EditSps(codec_, unit, edit);
    if (!edited) throw Error(where_, "a sequence parameter set breaks off and cannot be changed");
    if (rewritten_.size() >= kMostKept) rewritten_.clear();
    known = rewritten_.emplace(unit, std::move(*edited)).first;
  }
  const bool changed = known->second != unit;
  unit = known->second;
  return changed;
}

}  // namespace qlnmedia
