// The process-wide default store: a database in the user's configuration folder.
#ifndef KXUTIL_DEFAULT_STORE_H
#define KXUTIL_DEFAULT_STORE_H

#include <string>

#include "kxutil/config_store.h"

namespace qln {

// The default store of the process; any thread may use it at any time.
ConfigStore& DefaultStore();

// Puts the default store into another file; an empty path means the user's own again.
void SetDefaultStorePath(const std::string& path);

}  // namespace qln

#endif
