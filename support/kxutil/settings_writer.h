// Changes settings: under a lock against other writers, in a copy in memory that is checked, read back and
// then put in the file's place. A process that is killed leaves the old file or the new one; readers meet no
// lock.
#ifndef KXUTIL_SETTINGS_WRITER_H
#define KXUTIL_SETTINGS_WRITER_H

#include <string>

#include "kxutil/settings_table.h"

namespace qln {

struct ChangeReport {
  bool done = false;
  std::string problem;   // why not
  std::string setAside;  // the name that a damaged store has now; empty if none was found
  std::string damage;    // what was wrong with it
};

// Makes all the changes or none, durably. Waits for other writers for half a minute. A store that is missing
// is made; a damaged one is set aside, and the changes begin a new one.
ChangeReport ChangeSettings(const std::string& path, const ConfigChanges& changes);

// Changes nothing, and sets a store aside that is damaged beyond single values.
ChangeReport SetAsideIfDamaged(const std::string& path);

}  // namespace qln

#endif
