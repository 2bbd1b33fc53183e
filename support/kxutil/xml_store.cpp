// The life of a file store: values in memory, changes beside them, and a save that loses nobody's keys.

#include "kxutil/xml_store.h"

#include <filesystem>
#include <system_error>

#include "kxutil/kxutil.h"
#include "kxutil/store_file.h"
#include "kxutil/xml_store_document.h"

namespace qln {
namespace {

// Reads a store's document; a missing file gives an empty one. False with a text in `problem`.
bool Load(const std::string& path, XmlStoreDocument& document, std::string& problem) {
  StoreText text;
  switch (ReadStoreFile(path, text, problem)) {
    case StoreFileState::kMissing:
      return true;
    case StoreFileState::kUnreadable:
      return false;
    case StoreFileState::kRead:
      break;
  }
  if (document.Parse(text.view())) return true;
  problem = "it is no settings document";
  return false;
}

// The path from the root on. False with a text in `problem` if the working folder is gone.
bool MakeAbsolute(std::string& path, std::string& problem) {
  if (path.starts_with('/')) return true;
  std::error_code error;
  const std::filesystem::path folder = std::filesystem::current_path(error);
  if (error) {
    problem = error.message();
    return false;
  }
  path = (folder / path).string();
  return true;
}

}  // namespace

std::unique_ptr<XmlStore> XmlStore::Open(const std::string& name) {
  std::string path = name;
  std::string problem;
  XmlStoreDocument document;
  const bool loaded = MakeAbsolute(path, problem) && Load(path, document, problem);
  if (!loaded) {
    ErrOut("Settings file %s cannot be opened: %s", path.c_str(), problem.c_str());
    return nullptr;
  }
  std::unique_ptr<XmlStore> store(new XmlStore(path));
  store->values_ = document.Values();
  return store;
}

std::optional<ConfigValue> XmlStore::Read(const ConfigName& name) {
  const auto found = values_.find(name);
  if (found == values_.end()) return std::nullopt;
  return found->second;
}

bool XmlStore::Write(const ConfigName& name, const ConfigValue& value) {
  const auto found = values_.find(name);
  if (found != values_.end() && found->second == value) return true;
  changes_[name] = value;
  values_[name] = value;
  return true;
}

bool XmlStore::Remove(const ConfigName& name) {
  if (values_.find(name) == values_.end()) return true;
  changes_[name] = std::nullopt;
  values_.erase(name);
  return true;
}

bool XmlStore::Save() {
  if (changes_.empty()) return true;
  std::string problem;
  const StoreFolderLock lock(path_, problem);
  XmlStoreDocument document;
  bool saved = lock.held() && Load(lock.target(), document, problem);
  if (saved && document.Apply(changes_)) saved = ReplaceStoreFile(lock.target(), document.Text(), problem);
  if (!saved) ErrOut("Settings file %s cannot be written: %s", path_.c_str(), problem.c_str());
  return saved;
}

}  // namespace qln
