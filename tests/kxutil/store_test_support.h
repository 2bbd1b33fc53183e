// What the store tests share: both kinds of store behind one handle.
#ifndef TESTS_KXUTIL_STORE_TEST_SUPPORT_H
#define TESTS_KXUTIL_STORE_TEST_SUPPORT_H

#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <vector>

#include "kxutil/kxutil.h"
#include "support/temporary_folder.h"

namespace qln::test {

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
