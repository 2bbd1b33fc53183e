// The kxCFG calls: handles, the size protocol, and the edge that no exception crosses.

#include <cstring>
#include <map>
#include <memory>
#include <mutex>
#include <new>

#include "kxutil/config_store.h"
#include "kxutil/default_store.h"
#include "kxutil/kxutil.h"
#include "kxutil/xml_store.h"

namespace qln {
namespace {

constexpr int32_t kDone = 0;
constexpr int32_t kFailed = -1;

// The named stores that are open, so that a handle that is none is refused.
struct OpenStores {
  std::mutex mutex;
  std::map<KXConfigHandle, std::shared_ptr<XmlStore>> stores;
  KXConfigHandle lastHandle = 0;
};

// Made on first use and never destroyed: stores may be used while the process ends.
OpenStores& Opened() {
  static OpenStores* const opened = new OpenStores;
  return *opened;
}

std::shared_ptr<ConfigStore> StoreOf(KXConfigHandle handle) {
  if (handle == KX_DEFAULT_STORE) return {&DefaultStore(), [](ConfigStore*) {}};
  OpenStores& opened = Opened();
  const std::lock_guard<std::mutex> lock(opened.mutex);
  const auto found = opened.stores.find(handle);
  return found != opened.stores.end() ? found->second : nullptr;
}

// Runs one call; whatever it throws (there is no memory) makes it fail.
template <typename Call>
int32_t Guarded(Call call) {
  try {
    return call();
  } catch (...) {
    return kFailed;
  }
}

int32_t ReadDword(ConfigStore& store, const ConfigName& name, uint32_t* value) {
  const std::optional<ConfigValue> found = store.Read(name);
  if (!found) return kFailed;
  if (value == nullptr) return kDone;
  const uint32_t* const number = std::get_if<uint32_t>(&*found);
  if (number == nullptr) return kFailed;
  *value = *number;
  return kDone;
}

int32_t ReadString(ConfigStore& store, const ConfigName& name, char* buffer, uint32_t* size) {
  if (size == nullptr) return kFailed;
  const std::optional<ConfigValue> found = store.Read(name);
  const std::string* const text = found ? std::get_if<std::string>(&*found) : nullptr;
  if (text == nullptr || text->size() >= 0xFFFFFFFFu) {
    if (buffer == nullptr) *size = 0;
    return kFailed;
  }
  const uint32_t needed = static_cast<uint32_t>(text->size()) + 1;
  const uint32_t toldSize = text->empty() ? 0 : needed;
  if (buffer == nullptr) {
    *size = toldSize;
    return kDone;
  }
  if (*size < needed) {
    *size = needed;
    return kFailed;
  }
  std::memcpy(buffer, text->c_str(), needed);
  *size = toldSize;
  return kDone;
}

}  // namespace
}  // namespace qln

using qln::kDone;
using qln::kFailed;

KXConfigHandle kxCFGOpen(const char* name, uint32_t) {
  KXConfigHandle handle = 0;
  if (name == nullptr || *name == '\0') return handle;
  qln::Guarded([&] {
    std::shared_ptr<qln::XmlStore> store = qln::XmlStore::Open(name);
    if (store == nullptr) return kFailed;
    qln::OpenStores& opened = qln::Opened();
    const std::lock_guard<std::mutex> lock(opened.mutex);
    opened.stores.emplace(opened.lastHandle + 1, std::move(store));
    handle = ++opened.lastHandle;
    return kDone;
  });
  return handle;
}

int32_t kxCFGClose(KXConfigHandle handle, uint32_t save) {
  if (handle == KX_DEFAULT_STORE) return kDone;
  return qln::Guarded([=] {
    std::shared_ptr<qln::XmlStore> store;
    {
      qln::OpenStores& opened = qln::Opened();
      const std::lock_guard<std::mutex> lock(opened.mutex);
      const auto found = opened.stores.find(handle);
      if (found == opened.stores.end()) return kFailed;
      store = std::move(found->second);
      opened.stores.erase(found);
    }
    return save == KX_CONFIG_DISCARD || store->Save() ? kDone : kFailed;
  });
}

int32_t kxCFGValueDword(KXConfigHandle handle, const char* section, const char* key, uint32_t* value,
                        uint32_t mode) {
  if (section == nullptr || key == nullptr) return kFailed;
  return qln::Guarded([=] {
    const std::shared_ptr<qln::ConfigStore> store = qln::StoreOf(handle);
    if (store == nullptr) return kFailed;
    const qln::ConfigName name{section, key};
    if (mode == KX_CONFIG_READ) return qln::ReadDword(*store, name, value);
    if (mode != KX_CONFIG_WRITE || value == nullptr) return kFailed;
    return store->Write(name, *value) ? kDone : kFailed;
  });
}

int32_t kxCFGValueString(KXConfigHandle handle, const char* section, const char* key, char* buffer,
                         uint32_t* size, uint32_t mode) {
  if (section == nullptr || key == nullptr) return kFailed;
  return qln::Guarded([=] {
    const std::shared_ptr<qln::ConfigStore> store = qln::StoreOf(handle);
    if (store == nullptr) return kFailed;
    const qln::ConfigName name{section, key};
    if (mode == KX_CONFIG_READ) return qln::ReadString(*store, name, buffer, size);
    if (mode != KX_CONFIG_WRITE || buffer == nullptr) return kFailed;
    const size_t length = size != nullptr ? strnlen(buffer, *size) : std::strlen(buffer);
    return store->Write(name, std::string(buffer, length)) ? kDone : kFailed;
  });
}

int32_t kxCFGDeleteValue(KXConfigHandle handle, const char* section, const char* key) {
  if (section == nullptr || key == nullptr) return kFailed;
  return qln::Guarded([=] {
    const std::shared_ptr<qln::ConfigStore> store = qln::StoreOf(handle);
    return store != nullptr && store->Remove({section, key}) ? kDone : kFailed;
  });
}

int32_t kxCFGBegin(KXConfigHandle handle) {
  return qln::Guarded([=] {
    const std::shared_ptr<qln::ConfigStore> store = qln::StoreOf(handle);
    return store != nullptr && store->Begin() ? kDone : kFailed;
  });
}

int32_t kxCFGEnd(KXConfigHandle handle) {
  return qln::Guarded([=] {
    const std::shared_ptr<qln::ConfigStore> store = qln::StoreOf(handle);
    return store != nullptr && store->End() ? kDone : kFailed;
  });
}

void kxCFGSetDefaultStore(const char* path) {
  qln::Guarded([=] {
    qln::SetDefaultStorePath(path != nullptr ? path : "");
    return kDone;
  });
}
