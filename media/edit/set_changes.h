// Changes the parameter sets of a stream, in its packets and in its private data.
#ifndef MEDIA_EDIT_SET_CHANGES_H
#define MEDIA_EDIT_SET_CHANGES_H

#include <map>
#include <string>
#include <vector>

#include "qlnmedia/stream_editor.h"
#include "sets/set_edit.h"
#include "units/config_record.h"

namespace qlnmedia {

class SetChanges {
 public:
  // `sets` are those of the stream's private data. Throws Error, in the name of `where`, for values that no
  // set of the codec can hold.
  SetChanges(Codec codec, const StreamChanges& changes, const std::vector<Bytes>& sets, std::string where);

  // What sequence parameter sets shall say; complete before the first one is changed.
  SpsEdit edit;

  // Changes a unit if it is a sequence or video parameter set; false where there is nothing to change. Throws
  // Error for a set that breaks off, and for one that what is wanted does not fit.
  bool Change(Bytes& unit);
  // Level, tier and, where it is told, the average rate in the head of a configuration record, whose sets are
  // changed already.
  void ChangeHead(ConfigRecord& record) const;

 private:
  Bytes Edited(ByteSpan unit, int type) const;
  void RequireFit(const SpsFacts& sps) const;
  [[noreturn]] void Fail(const std::string& what, const std::string& advice = {}) const;

  Codec codec_;
  std::string where_;
  SpsEdit vpsEdit_;                   // what video parameter sets shall say
  bool fields_ = false;               // HEVC: a tick is a field
  std::map<Bytes, Bytes> rewritten_;  // sets changed before: streams repeat them
};

}  // namespace qlnmedia

#endif
