// A record of clip information by tag name, as it stands in the default store or in a user file.
#ifndef TOOLS_QLNMEDIA_METADATA_RECORD_H
#define TOOLS_QLNMEDIA_METADATA_RECORD_H

#include <cstdint>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <utility>
#include <variant>
#include <vector>

#include "kxutil/kxutil.h"

namespace qlnmedia {

using MetadataValue = std::variant<uint32_t, std::string>;

// One stored field of the record.
struct MetadataField {
  const char* name;  // its key in the store
  bool isNumber;
};

// The field of that name, upper and lower case alike. Throws Error for a name that no stored field has.
MetadataField FindField(const std::string& name);

// The value that a text stands for: the text itself, or a number (decimal or 0x). Throws Error.
MetadataValue ParseValue(const MetadataField& field, const std::string& text);

// A store that is open while it lives.
class MetadataStore {
 public:
  // The default store where `file` is empty. With `mustExist`, a file that is missing is a Error.
  MetadataStore(std::string file, bool mustExist);
  ~MetadataStore();
  MetadataStore(const MetadataStore&) = delete;
  MetadataStore& operator=(const MetadataStore&) = delete;

  // All fields that hold a value, in the record's order.
  std::vector<std::pair<MetadataField, MetadataValue>> ReadAll() const;
  std::optional<MetadataValue> Read(const MetadataField& field) const;

  // Sets or (none) removes one key and touches no other. Throws Error when the store refuses.
  void Write(const MetadataField& field, const std::optional<MetadataValue>& value);

  // Puts the changes of a user file into place. Throws Error when that fails.
  void Save();

  // How messages name it.
  std::string Name() const { return file_.empty() ? "default store" : file_; }

 private:
  [[noreturn]] void RefuseWrite() const;

  std::string file_;
  KXConfigHandle handle_ = KX_DEFAULT_STORE;
};

// The record as one JSON object: numbers, texts, and {"hex": ...} for a text that is no UTF-8.
nlohmann::ordered_json ToJson(const std::vector<std::pair<MetadataField, MetadataValue>>& values);

// The changes that such an object asks for; null removes. Throws Error, with `where` in front, for
// anything else.
std::vector<std::pair<MetadataField, std::optional<MetadataValue>>> FromJson(
    const nlohmann::ordered_json& json, const std::string& where);

}  // namespace qlnmedia

#endif
