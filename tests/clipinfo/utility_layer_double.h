// Stands in front of the utility layer: counts and fails allocations, and records or scripts the store calls.
// Everything goes on to the real ones unless a test says otherwise.
#ifndef TESTS_CLIPINFO_UTILITY_LAYER_DOUBLE_H
#define TESTS_CLIPINFO_UTILITY_LAYER_DOUBLE_H

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "kxutil/kxutil.h"

namespace qln::test {

// Fails the allocation with this number (0 is the next one), and all behind it if asked.
class FailAllocations {
 public:
  explicit FailAllocations(int countdown, bool andAllBehind = false);
  ~FailAllocations();
  FailAllocations(const FailAllocations&) = delete;
  FailAllocations& operator=(const FailAllocations&) = delete;
};

// Makes KXAllocSize know nothing, as in a host's own utility layer.
class HideBlockSizes {
 public:
  HideBlockSizes();
  ~HideBlockSizes();
  HideBlockSizes(const HideBlockSizes&) = delete;
  HideBlockSizes& operator=(const HideBlockSizes&) = delete;
};

// A store that answers as the test scripts it and writes down every call.
struct ScriptedStore {
  ScriptedStore();
  ~ScriptedStore();
  ScriptedStore(const ScriptedStore&) = delete;
  ScriptedStore& operator=(const ScriptedStore&) = delete;

  std::vector<std::string> calls;  // "string read -1 section key size", "dword probe ...", "delete ...", ...
  std::function<int32_t(const std::string& key, char* buffer, uint32_t* size)> readString;
  std::function<int32_t(const std::string& key, uint32_t* value)> readDword;
  std::function<void(const std::string& key, const std::string& bytes)> wroteString;
  KXConfigHandle openResult = 0;
  bool fileExists = false;
  int32_t writeResult = 0;
  std::optional<int32_t> beginResult;  // none: groups of changes are neither known nor written down
};

}  // namespace qln::test

#endif
