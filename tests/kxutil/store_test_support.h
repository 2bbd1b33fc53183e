// What the store tests share: a folder of their own, and both kinds of store behind one handle.
#ifndef TESTS_KXUTIL_STORE_TEST_SUPPORT_H
#define TESTS_KXUTIL_STORE_TEST_SUPPORT_H

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "kxutil/kxutil.h"

namespace qln::test {

// A folder that is gone with everything in it at the end.
class TemporaryFolder {
 public:
  TemporaryFolder() {
    // In memory where there is such a place: a store flushes every write.
    const char* const memory = "/dev/shm";
    const bool inMemory = std::filesystem::is_directory(memory);
    std::string name =
        (inMemory ? memory : std::filesystem::temp_directory_path().string()) + "/kxutil.XXXXXX";
    path_ = mkdtemp(name.data()) != nullptr ? name : "";
  }
  ~TemporaryFolder() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
  }
  TemporaryFolder(const TemporaryFolder&) = delete;
  TemporaryFolder& operator=(const TemporaryFolder&) = delete;
  const std::string& path() const { return path_; }
  std::string operator/(const std::string& name) const { return path_ + "/" + name; }

 private:
  std::string path_;
};

inline std::optional<std::string> GetText(KXConfigHandle handle, const char* section, const char* key) {
  uint32_t size = 0;
  if (kxCFGValueString(handle, section, key, nullptr, &size, 0) != 0) return std::nullopt;
  std::vector<char> buffer(size + 1, '#');
  uint32_t room = size + 1;
  if (kxCFGValueString(handle, section, key, buffer.data(), &room, 0) != 0) return std::nullopt;
  return std::string(buffer.data());
}

inline int32_t SetText(KXConfigHandle handle, const char* section, const char* key, std::string text) {
  return kxCFGValueString(handle, section, key, text.data(), nullptr, 1);
}

inline std::optional<uint32_t> GetNumber(KXConfigHandle handle, const char* section, const char* key) {
  uint32_t value = 0xDEADBEEF;
  if (kxCFGValueDword(handle, section, key, &value, 0) != 0) return std::nullopt;
  return value;
}

inline int32_t SetNumber(KXConfigHandle handle, const char* section, const char* key, uint32_t value) {
  return kxCFGValueDword(handle, section, key, &value, 1);
}

}  // namespace qln::test

#endif
