// Settings in XML: what is read from the elements, and how a change finds its place among them.

#include "kxutil/xml_store_document.h"

#include <set>

#include "kxutil/utf8_text.h"
#include "kxutil/xml_prescan.h"

namespace qln {
namespace {

constexpr char kRootName[] = "settings";
constexpr char kSectionName[] = "section";
constexpr char kValueName[] = "value";

// The two attributes that can hold a text: as it is, or in hexadecimal.
struct TextAttributes {
  const char* plain;
  const char* bytes;
};
constexpr TextAttributes kPath = {"path", "pathBytes"};
constexpr TextAttributes kKey = {"key", "keyBytes"};
constexpr TextAttributes kText = {"text", "bytes"};
constexpr char kNumber[] = "number";

int DigitValue(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

std::optional<std::string> FromHex(std::string_view hex) {
  if (hex.size() % 2 != 0) return std::nullopt;
  std::string bytes;
  for (size_t i = 0; i < hex.size(); i += 2) {
    const int high = DigitValue(hex[i]);
    const int low = DigitValue(hex[i + 1]);
    if (high < 0 || low < 0 || (high == 0 && low == 0)) return std::nullopt;
    bytes.push_back(static_cast<char>(high << 4 | low));
  }
  return bytes;
}

std::string ToHex(const std::string& bytes) {
  constexpr char kDigits[] = "0123456789ABCDEF";
  std::string hex;
  for (const char c : bytes) {
    hex.push_back(kDigits[static_cast<unsigned char>(c) >> 4]);
    hex.push_back(kDigits[static_cast<unsigned char>(c) & 15]);
  }
  return hex;
}

// A text that contains a NUL ends there, as all texts of the store do.
std::optional<std::string> ReadText(const TiXmlElement& element, const TextAttributes& names) {
  if (const char* const plain = element.Attribute(names.plain)) return std::string(plain);
  if (const char* const bytes = element.Attribute(names.bytes)) return FromHex(bytes);
  return std::nullopt;
}

void WriteText(TiXmlElement& element, const TextAttributes& names, const std::string& text) {
  if (IsXmlText(text)) {
    element.SetAttribute(names.plain, text);
    element.RemoveAttribute(names.bytes);
  } else {
    element.SetAttribute(names.bytes, ToHex(text));
    element.RemoveAttribute(names.plain);
  }
}

std::optional<uint32_t> ParseNumber(const char* text) {
  uint64_t number = 0;
  const char* digit = text;
  for (; *digit >= '0' && *digit <= '9' && number <= 0xFFFFFFFFu; ++digit) {
    number = number * 10 + static_cast<uint64_t>(*digit - '0');
  }
  if (digit == text || *digit != '\0' || number > 0xFFFFFFFFu) return std::nullopt;
  return static_cast<uint32_t>(number);
}

std::optional<ConfigValue> ReadValue(const TiXmlElement& element) {
  if (const char* const number = element.Attribute(kNumber)) {
    if (const std::optional<uint32_t> value = ParseNumber(number)) return *value;
    return std::nullopt;
  }
  if (std::optional<std::string> text = ReadText(element, kText)) return *std::move(text);
  return std::nullopt;
}

void WriteValue(TiXmlElement& element, const ConfigValue& value) {
  if (const uint32_t* const number = std::get_if<uint32_t>(&value)) {
    element.SetAttribute(kNumber, std::to_string(*number));
    element.RemoveAttribute(kText.plain);
    element.RemoveAttribute(kText.bytes);
  } else {
    WriteText(element, kText, std::get<std::string>(value));
    element.RemoveAttribute(kNumber);
  }
}

}  // namespace

bool XmlStoreDocument::Parse(std::string_view text) {
  if (text.find('\0') != std::string_view::npos || !IsUtf8(text)) return false;
  if (SafeXmlLength(text.data(), text.size()) != text.size()) return false;
  // The parser may step a few bytes over the end.
  std::string padded(text);
  padded.append(4, '\0');
  const char* const rest = document_.Parse(padded.c_str(), nullptr, TIXML_ENCODING_UNKNOWN);
  if (document_.Error() || (rest != nullptr && *rest != '\0')) return false;
  const TiXmlElement* const root = document_.RootElement();
  return root != nullptr && root->ValueStr() == kRootName && root->NextSiblingElement() == nullptr;
}

std::map<ConfigName, ConfigValue> XmlStoreDocument::Values() const {
  std::map<ConfigName, ConfigValue> values;
  const TiXmlElement* const root = document_.RootElement();
  if (root == nullptr) return values;
  for (const TiXmlElement* section = root->FirstChildElement(kSectionName); section != nullptr;
       section = section->NextSiblingElement(kSectionName)) {
    const std::optional<std::string> path = ReadText(*section, kPath);
    if (!path) continue;
    for (const TiXmlElement* element = section->FirstChildElement(kValueName); element != nullptr;
         element = element->NextSiblingElement(kValueName)) {
      const std::optional<std::string> key = ReadText(*element, kKey);
      if (!key) continue;
      if (std::optional<ConfigValue> value = ReadValue(*element)) {
        values.emplace(ConfigName{*path, *key}, *std::move(value));
      }
    }
  }
  return values;
}

bool XmlStoreDocument::Apply(const Changes& changes) {
  Changes left = changes;
  Sections sections;
  bool changed = ApplyToPresent(left, sections);
  for (const auto& [name, value] : left) {
    if (!value) continue;
    Append(name, *value, sections);
    changed = true;
  }
  return changed;
}

// Changes the elements that are there, each in its place, and leaves in `changes` what found none. Gives all
// sections on the way.
bool XmlStoreDocument::ApplyToPresent(Changes& changes, Sections& sections) {
  TiXmlElement* const root = document_.RootElement();
  if (root == nullptr) return false;
  bool changed = false;
  std::set<ConfigName> done;
  for (TiXmlElement* section = root->FirstChildElement(kSectionName); section != nullptr;
       section = section->NextSiblingElement(kSectionName)) {
    const std::optional<std::string> path = ReadText(*section, kPath);
    if (path) sections.emplace(*path, section);
    TiXmlElement* next = path ? section->FirstChildElement(kValueName) : nullptr;
    while (next != nullptr) {
      TiXmlElement* const element = next;
      next = element->NextSiblingElement(kValueName);
      const std::optional<std::string> key = ReadText(*element, kKey);
      if (!key) continue;
      const ConfigName name{*path, *key};
      const auto change = changes.find(name);
      if (change == changes.end()) continue;
      // Of several elements with one name the first takes the value; the others go.
      if (change->second && done.insert(name).second) {
        if (ReadValue(*element) == change->second) continue;
        WriteValue(*element, *change->second);
      } else {
        section->RemoveChild(element);
      }
      changed = true;
    }
  }
  for (const ConfigName& name : done) changes.erase(name);
  return changed;
}

TiXmlElement& XmlStoreDocument::Root() {
  if (TiXmlElement* const root = document_.RootElement()) return *root;
  document_.LinkEndChild(new TiXmlDeclaration("1.0", "UTF-8", ""));
  return *document_.LinkEndChild(new TiXmlElement(kRootName))->ToElement();
}

void XmlStoreDocument::Append(const ConfigName& name, const ConfigValue& value, Sections& sections) {
  TiXmlElement*& section = sections[name.section];
  if (section == nullptr) {
    section = Root().LinkEndChild(new TiXmlElement(kSectionName))->ToElement();
    WriteText(*section, kPath, name.section);
  }
  TiXmlElement* const element = section->LinkEndChild(new TiXmlElement(kValueName))->ToElement();
  WriteText(*element, kKey, name.key);
  WriteValue(*element, value);
}

std::string XmlStoreDocument::Text() const {
  TiXmlPrinter printer;
  document_.Accept(&printer);
  return printer.Str();
}

}  // namespace qln
