// What the two kinds of configuration store have in common: names, values, and what is done with them.
#ifndef KXUTIL_CONFIG_STORE_H
#define KXUTIL_CONFIG_STORE_H

#include <compare>
#include <cstdint>
#include <optional>
#include <string>
#include <variant>

namespace qln {

struct ConfigName {
  std::string section;  // "Tarnwick\Advanced"; any bytes but NUL
  std::string key;
  auto operator<=>(const ConfigName&) const = default;
};

// A number or a text of any bytes but NUL; the two are never taken for each other.
using ConfigValue = std::variant<uint32_t, std::string>;

class ConfigStore {
 public:
  virtual ~ConfigStore() = default;

  // The value of a key; none if the key is absent or the store cannot be read.
  virtual std::optional<ConfigValue> Read(const ConfigName& name) = 0;

  // False if the store cannot be written; it then holds what it held.
  virtual bool Write(const ConfigName& name, const ConfigValue& value) = 0;

  // Removes a key; true also if it was not there.
  virtual bool Remove(const ConfigName& name) = 0;

  // Between the two the changes of the calling thread are gathered; the end makes them all, or none.
  virtual bool Begin() = 0;
  virtual bool End() = 0;
};

}  // namespace qln

#endif
