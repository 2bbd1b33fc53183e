// A settings store that stands in an XML file: read at open, kept in memory, written back by its changes.
#ifndef KXUTIL_XML_STORE_H
#define KXUTIL_XML_STORE_H

#include <map>
#include <memory>
#include <optional>
#include <string>

#include "kxutil/config_store.h"

namespace qln {

class XmlStore : public ConfigStore {
 public:
  // Opens the store in a file; a missing file is an empty store. A relative path counts from the working
  // folder of this moment, also for the save. Null, with a message, for a file that cannot be read or is no
  // settings document.
  static std::unique_ptr<XmlStore> Open(const std::string& path);

  std::optional<ConfigValue> Read(const ConfigName& name) override;
  bool Write(const ConfigName& name, const ConfigValue& value) override;
  bool Remove(const ConfigName& name) override;
  // Changes stay in memory up to the save in any case.
  bool Begin() override { return true; }
  bool End() override { return true; }

  // Applies what was changed since the opening to the file as it is by now. Where nothing changed, nothing is
  // written. False, with a message, if that cannot be done; the file then stays as it is.
  bool Save();

 private:
  explicit XmlStore(std::string path) : path_(std::move(path)) {}

  std::string path_;  // absolute
  std::map<ConfigName, ConfigValue> values_;
  std::map<ConfigName, std::optional<ConfigValue>> changes_;  // none: removed
};

}  // namespace qln

#endif
