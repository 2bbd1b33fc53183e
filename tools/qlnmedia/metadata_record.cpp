// Clip information through the library's record for reading, and key by key for changes: a host must not seed
// or delete what others wrote.

#include "metadata_record.h"

#include <strings.h>

#include <charconv>
#include <cstring>

#include "base/error.h"
#include "kxutil/utf8_text.h"
#include "qlnutil/clipinfo/info_fields.h"
#include "qlnutil/qlninfo.h"

namespace qlnmedia {

namespace {

constexpr char kSection[] = "Tarnwick\\MetaData\\Default";

// The record as the library reads it, with every number unset that the store does not hold.
class StoredRecord {
 public:
  explicit StoredRecord(KXConfigHandle store) {
    for (const qln::InfoField& field : qln::kInfoNumbers) qln::SetNumber(info_, field, QLN_INFO_UNSET);
    qlnInfoReadRegSet(store, &info_);
  }
  ~StoredRecord() { qlnInfoDelete(&info_); }
  StoredRecord(const StoredRecord&) = delete;
  StoredRecord& operator=(const StoredRecord&) = delete;
  const QLNInfo& info() const { return info_; }

 private:
  QLNInfo info_ = {};
};

// A single key; for the fields that the library writes and never reads.
std::optional<MetadataValue> ReadKey(KXConfigHandle store, const MetadataField& field) {
  uint32_t number = 0;
  if (field.isNumber) {
    if (kxCFGValueDword(store, kSection, field.name, &number, 0) != 0 || number == QLN_INFO_UNSET) return {};
    return number;
  }
  uint32_t size = 0;
  kxCFGValueString(store, kSection, field.name, nullptr, &size, 0);
  if (size == 0) return {};
  std::string text(size, '\0');
  if (kxCFGValueString(store, kSection, field.name, text.data(), &size, 0) != 0) return {};
  return std::string(text.c_str());
}

std::optional<MetadataValue> ValueIn(const QLNInfo& info, const qln::InfoField& field, bool isNumber) {
  if (isNumber) {
    const uint32_t number = qln::NumberOf(info, field);
    if (number == QLN_INFO_UNSET) return {};
    return number;
  }
  const void* const text = qln::SlotOf(info, field);
  if (text == nullptr) return {};
  return std::string(static_cast<const char*>(text));
}

// Calls `visit` with each stored field and whether it is a number, in the record's order.
template <typename Visit>
void ForEachField(Visit visit) {
  for (const qln::InfoField& field : qln::kInfoSlots) {
    if (field.persistence != qln::Persistence::kNone) visit(field, false);
  }
  for (const qln::InfoField& field : qln::kInfoNumbers) visit(field, true);
}

std::string HexOf(const std::string& bytes) {
  std::string hex;
  for (const char c : bytes) {
    constexpr char kDigits[] = "0123456789ABCDEF";
    hex.push_back(kDigits[static_cast<unsigned char>(c) >> 4]);
    hex.push_back(kDigits[static_cast<unsigned char>(c) & 15]);
  }
  return hex;
}

std::optional<std::string> BytesOfHex(const std::string& hex) {
  if (hex.size() % 2 != 0) return {};
  std::string bytes;
  for (size_t i = 0; i < hex.size(); i += 2) {
    unsigned value = 0;
    const auto [stop, error] = std::from_chars(hex.data() + i, hex.data() + i + 2, value, 16);
    if (error != std::errc() || stop != hex.data() + i + 2 || value == 0) return {};
    bytes.push_back(static_cast<char>(value));
  }
  return bytes;
}

}  // namespace

MetadataField FindField(const std::string& name) {
  std::optional<MetadataField> found;
  ForEachField([&](const qln::InfoField& field, bool isNumber) {
    if (!found && strcasecmp(field.name, name.c_str()) == 0) found = MetadataField{field.name, isNumber};
  });
  if (found) return *found;
  for (const qln::InfoField& field : qln::kInfoSlots) {
    if (strcasecmp(field.name, name.c_str()) == 0)
      throw Error(name, "belongs to the clip itself and is not stored");
  }
  throw Error(name, "no such tag", "metadata list --all names them");
}

MetadataValue ParseValue(const MetadataField& field, const std::string& text) {
  if (!field.isNumber) return text;
  const bool hexadecimal = text.size() > 2 && text[0] == '0' && (text[1] == 'x' || text[1] == 'X');
  uint32_t number = 0;
  const char* const begin = text.data() + (hexadecimal ? 2 : 0);
  const char* const end = text.data() + text.size();
  const auto [stop, error] = std::from_chars(begin, end, number, hexadecimal ? 16 : 10);
  if (error != std::errc() || stop != end) {
    throw Error(field.name, "\"" + text + "\" is no number from 0 to 4294967294");
  }
  if (number == QLN_INFO_UNSET)
    throw Error(field.name, text + " means that the field is not set", "use unset");
  return number;
}

MetadataStore::MetadataStore(std::string file, bool mustExist) : file_(std::move(file)) {
  if (file_.empty()) return;
  if (mustExist && kxOSFileExists(file_.c_str()) == 0) throw Error(file_, "no such file");
  handle_ = kxCFGOpen(file_.c_str(), 0);
  if (handle_ == 0) throw Error(file_, "is no settings file that can be read");
}

MetadataStore::~MetadataStore() {
  if (handle_ != KX_DEFAULT_STORE && handle_ != 0) kxCFGClose(handle_, 0);
}

std::vector<std::pair<MetadataField, MetadataValue>> MetadataStore::ReadAll() const {
  const StoredRecord record(handle_);
  std::vector<std::pair<MetadataField, MetadataValue>> values;
  ForEachField([&](const qln::InfoField& field, bool isNumber) {
    const MetadataField named{field.name, isNumber};
    std::optional<MetadataValue> value = field.persistence == qln::Persistence::kWriteOnly
                                             ? ReadKey(handle_, named)
                                             : ValueIn(record.info(), field, isNumber);
    if (value) values.emplace_back(named, *std::move(value));
  });
  return values;
}

std::optional<MetadataValue> MetadataStore::Read(const MetadataField& field) const {
  for (auto& [other, value] : ReadAll()) {
    if (std::strcmp(other.name, field.name) == 0) return value;
  }
  return {};
}

void MetadataStore::Write(const MetadataField& field, const std::optional<MetadataValue>& value) {
  int32_t result = 0;
  if (!value) {
    result = kxCFGDeleteValue(handle_, kSection, field.name);
  } else if (const uint32_t* const number = std::get_if<uint32_t>(&*value)) {
    uint32_t copy = *number;
    result = kxCFGValueDword(handle_, kSection, field.name, &copy, 1);
  } else {
    std::string copy = std::get<std::string>(*value);
    result = kxCFGValueString(handle_, kSection, field.name, copy.data(), nullptr, 1);
  }
  if (result != 0) RefuseWrite();
}

void MetadataStore::Save() {
  if (handle_ == KX_DEFAULT_STORE) return;
  if (kxCFGClose(std::exchange(handle_, 0), 1) != 0) RefuseWrite();
}

void MetadataStore::RefuseWrite() const { throw Error(Name(), "cannot be written"); }

nlohmann::ordered_json ToJson(const std::vector<std::pair<MetadataField, MetadataValue>>& values) {
  nlohmann::ordered_json json = nlohmann::ordered_json::object();
  for (const auto& [field, value] : values) {
    if (const uint32_t* const number = std::get_if<uint32_t>(&value)) {
      json[field.name] = *number;
      continue;
    }
    const std::string& text = std::get<std::string>(value);
    if (qln::IsUtf8(text)) {
      json[field.name] = text;
    } else {
      json[field.name] = {{"hex", HexOf(text)}};
    }
  }
  return json;
}

std::vector<std::pair<MetadataField, std::optional<MetadataValue>>> FromJson(
    const nlohmann::ordered_json& json, const std::string& where) {
  if (!json.is_object()) throw Error(where, "holds no JSON object of tags and values");
  std::vector<std::pair<MetadataField, std::optional<MetadataValue>>> changes;
  for (const auto& [name, value] : json.items()) {
    const MetadataField field = FindField(name);
    if (value.is_null()) {
      changes.emplace_back(field, std::nullopt);
    } else if (field.isNumber && value.is_number_unsigned()) {
      changes.emplace_back(field, ParseValue(field, value.dump()));
    } else if (!field.isNumber && value.is_string()) {
      const std::string text = value.get<std::string>();
      if (text.find('\0') != std::string::npos) throw Error(where, name + " holds a zero character");
      changes.emplace_back(field, text);
    } else if (!field.isNumber && value.is_object() && value.size() == 1 && value.contains("hex") &&
               value["hex"].is_string()) {
      const std::optional<std::string> bytes = BytesOfHex(value["hex"].get<std::string>());
      if (!bytes) throw Error(where, name + " holds no hexadecimal text");
      changes.emplace_back(field, *bytes);
    } else {
      throw Error(where, name + (field.isNumber ? " wants a number from 0 to 4294967294" : " wants a text"));
    }
  }
  return changes;
}

}  // namespace qlnmedia
