// Clip information through the library's record for reading, and key by key for changes: a host must not seed
// or delete what others wrote.

#include <strings.h>
#include <sys/stat.h>

#include <cerrno>
#include <charconv>
#include <cstring>
#include <utility>

#include "base/library_messages.h"
#include "kxutil/kxutil.h"
#include "qlnmedia/clip_info.h"
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
std::optional<ClipInfoValue> ReadKey(KXConfigHandle store, const ClipInfoField& field) {
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

bool WriteKey(KXConfigHandle store, const ClipInfoChange& change) {
  const char* const key = change.field.name;
  if (!change.value) return kxCFGDeleteValue(store, kSection, key) == 0;
  if (const uint32_t* const number = std::get_if<uint32_t>(&*change.value)) {
    uint32_t copy = *number;
    return kxCFGValueDword(store, kSection, key, &copy, 1) == 0;
  }
  std::string copy = std::get<std::string>(*change.value);
  return kxCFGValueString(store, kSection, key, copy.data(), nullptr, 1) == 0;
}

std::optional<ClipInfoValue> ValueIn(const QLNInfo& info, const qln::InfoField& field, bool isNumber) {
  if (isNumber) {
    const uint32_t number = qln::NumberOf(info, field);
    if (number == QLN_INFO_UNSET) return {};
    return number;
  }
  const void* const text = qln::SlotOf(info, field);
  if (text == nullptr) return {};
  return std::string(static_cast<const char*>(text));
}

// What the utility layer says while this lives. What it could not do is this call's failure and one line; the
// rest, as of values that are damaged, goes where a host has it sent.
class StoreMessages {
 public:
  StoreMessages() : sink_(std::make_unique<MessageSink>()) {}
  ~StoreMessages() = default;
  StoreMessages(const StoreMessages&) = delete;
  StoreMessages& operator=(const StoreMessages&) = delete;

  // Throws Error with what was said that could not be done, and with `otherwise` where it was not done and
  // nothing was said: a trouble is told once.
  void Require(bool done, const std::string& name, const std::string& otherwise) {
    std::vector<LibraryMessage> messages = sink_->Take();
    for (const LibraryMessage& message : messages) {
      if (message.text.find(" cannot be ") != std::string::npos) throw Error({}, message.text);
    }
    if (done) return Say(messages);
    if (messages.empty()) throw Error(name, otherwise);
    throw Error({}, messages.front().text);
  }

 private:
  void Say(const std::vector<LibraryMessage>& messages) {
    sink_.reset();
    for (const LibraryMessage& message : messages)
      ErrFmtOut(message.severity, 0, 0, "%s", message.text.c_str());
    sink_ = std::make_unique<MessageSink>();
  }

  std::unique_ptr<MessageSink> sink_;
};

// Calls `visit` with each stored field and whether it is a number, in the record's order.
template <typename Visit>
void ForEachField(Visit visit) {
  for (const qln::InfoField& field : qln::kInfoSlots) {
    if (field.persistence != qln::Persistence::kNone) visit(field, false);
  }
  for (const qln::InfoField& field : qln::kInfoNumbers) visit(field, true);
}

}  // namespace

ClipInfoField FindClipInfoField(const std::string& name) {
  std::optional<ClipInfoField> found;
  ForEachField([&](const qln::InfoField& field, bool isNumber) {
    if (!found && strcasecmp(field.name, name.c_str()) == 0) found = ClipInfoField{field.name, isNumber};
  });
  if (found) return *found;
  for (const qln::InfoField& field : qln::kInfoSlots) {
    if (strcasecmp(field.name, name.c_str()) == 0)
      throw Error(name, "belongs to the clip itself and is not stored");
  }
  throw Error(name, "no such tag", "metadata list --all names them");
}

ClipInfoValue ParseClipInfoValue(const ClipInfoField& field, const std::string& text) {
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

std::vector<ClipInfoField> ClipInfoFields() {
  std::vector<ClipInfoField> fields;
  ForEachField([&](const qln::InfoField& field, bool isNumber) { fields.push_back({field.name, isNumber}); });
  return fields;
}

struct ClipInfoStore::Impl {
  std::string file;
  KXConfigHandle handle = KX_DEFAULT_STORE;
};

ClipInfoStore::ClipInfoStore(const std::string& file, bool mustExist) : impl_(std::make_unique<Impl>()) {
  impl_->file = file;
  if (file.empty()) return;
  if (mustExist && kxOSFileExists(file.c_str()) == 0) {
    struct stat status {};
    if (stat(file.c_str(), &status) == 0) throw Error(file, "cannot be looked at");
    throw Error(file, errno == ENOENT || errno == ENOTDIR ? "no such file" : std::strerror(errno));
  }
  StoreMessages messages;
  impl_->handle = kxCFGOpen(file.c_str(), 0);
  messages.Require(impl_->handle != 0, file, "is no settings file that can be read");
}

ClipInfoStore::~ClipInfoStore() {
  if (impl_->handle != KX_DEFAULT_STORE && impl_->handle != 0) kxCFGClose(impl_->handle, 0);
}

std::string ClipInfoStore::name() const { return impl_->file.empty() ? "default store" : impl_->file; }

std::vector<ClipInfoEntry> ClipInfoStore::ReadAll() const {
  StoreMessages messages;
  const StoredRecord record(impl_->handle);
  std::vector<ClipInfoEntry> entries;
  ForEachField([&](const qln::InfoField& field, bool isNumber) {
    const ClipInfoField named{field.name, isNumber};
    std::optional<ClipInfoValue> value = field.persistence == qln::Persistence::kWriteOnly
                                             ? ReadKey(impl_->handle, named)
                                             : ValueIn(record.info(), field, isNumber);
    if (value) entries.push_back({named, *std::move(value)});
  });
  messages.Require(true, name(), {});
  return entries;
}

std::optional<ClipInfoValue> ClipInfoStore::Read(const ClipInfoField& field) const {
  for (ClipInfoEntry& entry : ReadAll()) {
    if (std::strcmp(entry.field.name, field.name) == 0) return std::move(entry.value);
  }
  return {};
}

void ClipInfoStore::Write(const ClipInfoChange& change) { Write(std::vector<ClipInfoChange>{change}); }

void ClipInfoStore::Write(const std::vector<ClipInfoChange>& changes) {
  StoreMessages messages;
  const bool grouped = kxCFGBegin(impl_->handle) == 0;
  bool done = true;
  for (const ClipInfoChange& change : changes) done = done && WriteKey(impl_->handle, change);
  if (grouped) done = kxCFGEnd(impl_->handle) == 0 && done;
  messages.Require(done, name(), "cannot be written");
}

void ClipInfoStore::Save() {
  if (impl_->handle == KX_DEFAULT_STORE) return;
  StoreMessages messages;
  const bool saved = kxCFGClose(std::exchange(impl_->handle, 0), 1) == 0;
  messages.Require(saved, name(), "cannot be written");
}

}  // namespace qlnmedia
