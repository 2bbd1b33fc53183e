// Changes the parameter sets of a stream, in its packets and in its private data.
#ifndef MEDIA_EDIT_SET_CHANGES_H
#define MEDIA_EDIT_SET_CHANGES_H

#include <map>
#include <string>

#include "sets/set_edit.h"
#include "units/units.h"

namespace qlnmedia {

class SetChanges {
 public:
  SetChanges(Codec codec, std::string where) : codec_(codec), where_(std::move(where)) {}

  // What sequence parameter sets shall say; complete before the first one is changed.
  SpsEdit edit;

  // Changes a unit if it is a sequence parameter set; false where there is nothing to change. Throws Error
  // for a set that breaks off.
  bool Change(Bytes& unit);

 private:
  Codec codec_;
  std::string where_;
  std::map<Bytes, Bytes> rewritten_;  // sets changed before: streams repeat them
};

}  // namespace qlnmedia

#endif
