// A default store and a store file in a folder of their own.
#ifndef TESTS_KXUTIL_STORE_SAFETY_SUPPORT_H
#define TESTS_KXUTIL_STORE_SAFETY_SUPPORT_H

#include <gtest/gtest.h>

#include <optional>
#include <string>

#include "kxutil/kxutil.h"
#include "kxutil/store_test_support.h"
#include "support/test_support.h"

namespace qln::test {

inline constexpr char kSection[] = "Tarnwick\\Test";

class StoreSafety : public testing::Test {
 protected:
  void SetUp() override { kxCFGSetDefaultStore(database().c_str()); }
  void TearDown() override { kxCFGSetDefaultStore(nullptr); }
  std::string database() const { return folder_ / "settings.db"; }
  std::string file() const { return folder_ / "User.xml"; }
  void Make(const std::string& path, const std::string& text) {
    WriteFile(path, Bytes(text.begin(), text.end()));
  }
  std::string Text(const std::string& path) {
    const Bytes bytes = ReadFile(path);
    return std::string(bytes.begin(), bytes.end());
  }
  // Sets one key of the file store.
  int32_t SetInFile(const char* key, uint32_t value, uint32_t save = 1) {
    const KXConfigHandle store = kxCFGOpen(file().c_str(), 0);
    if (store == 0) return -1;
    SetNumber(store, kSection, key, value);
    return kxCFGClose(store, save);
  }
  std::optional<uint32_t> InFile(const char* key) {
    const KXConfigHandle store = kxCFGOpen(file().c_str(), 0);
    const std::optional<uint32_t> value = GetNumber(store, kSection, key);
    kxCFGClose(store, 0);
    return value;
  }
  TemporaryFolder folder_;
};

}  // namespace qln::test

#endif
