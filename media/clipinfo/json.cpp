// Clip information as JSON, and that as a file.

#include <charconv>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <nlohmann/json.hpp>

#include "base/text_file.h"
#include "kxutil/utf8_text.h"
#include "qlnmedia/clip_info.h"

namespace qlnmedia {

namespace {

using Json = nlohmann::ordered_json;

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

// True for a pipe or a device, which takes bytes as they come and has no name to give to a whole file.
bool IsStream(const std::string& path) {
  std::error_code none;
  const std::filesystem::file_status status = std::filesystem::status(path, none);
  return std::filesystem::exists(status) && !std::filesystem::is_regular_file(status) &&
         !std::filesystem::is_directory(status);
}

struct CloseFile {
  void operator()(std::FILE* file) const { std::fclose(file); }
};

}  // namespace

std::string ClipInfoJson(const std::vector<ClipInfoEntry>& entries) {
  Json json = Json::object();
  for (const auto& [field, value] : entries) {
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
  return json.dump(2);
}

std::vector<ClipInfoChange> ParseClipInfoJson(const std::string& text, const std::string& where) {
  const Json json = Json::parse(text, nullptr, false);
  if (json.is_discarded()) throw Error(where, "is no JSON");
  if (!json.is_object()) throw Error(where, "holds no JSON object of tags and values");
  std::vector<ClipInfoChange> changes;
  for (const auto& [name, value] : json.items()) {
    const ClipInfoField field = FindClipInfoField(name);
    if (value.is_null()) {
      changes.push_back({field, std::nullopt});
    } else if (field.isNumber && value.is_number_unsigned()) {
      changes.push_back({field, ParseClipInfoValue(field, value.dump())});
    } else if (!field.isNumber && value.is_string()) {
      const std::string words = value.get<std::string>();
      if (words.find('\0') != std::string::npos) throw Error(where, name + " holds a zero character");
      changes.push_back({field, words});
    } else if (!field.isNumber && value.is_object() && value.size() == 1 && value.contains("hex") &&
               value["hex"].is_string()) {
      const std::optional<std::string> bytes = BytesOfHex(value["hex"].get<std::string>());
      if (!bytes) throw Error(where, name + " holds no hexadecimal text");
      changes.push_back({field, *bytes});
    } else {
      throw Error(where, name + (field.isNumber ? " wants a number from 0 to 4294967294" : " wants a text"));
    }
  }
  return changes;
}

void WriteClipInfoFile(const std::vector<ClipInfoEntry>& entries, const std::string& path) {
  const std::string text = ClipInfoJson(entries) + "\n";
  if (!IsStream(path)) return WriteTextFile(path, text);
  std::unique_ptr<std::FILE, CloseFile> file(std::fopen(path.c_str(), "wb"));
  const bool written = file != nullptr && std::fwrite(text.data(), 1, text.size(), file.get()) == text.size();
  if (!written || std::fclose(file.release()) != 0) throw Error(path, "cannot be written");
}

}  // namespace qlnmedia
