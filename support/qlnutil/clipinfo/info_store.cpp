// A record's defaults in the configuration store: one key for each stored field.

#include <cstring>

#include "qlnutil/clipinfo/info_blocks.h"
#include "qlnutil/clipinfo/info_fields.h"
#include "qlnutil/qlninfo.h"

// A host's own layer need not have the two; each change is then a step of its own.
extern "C" int32_t kxCFGBegin(KXConfigHandle store) __attribute__((weak));
extern "C" int32_t kxCFGEnd(KXConfigHandle store) __attribute__((weak));

namespace qln {
namespace {

constexpr char kDefaultsSection[] = "Tarnwick\\MetaData\\Default";
constexpr char kMetaDataSection[] = "Tarnwick\\MetaData";
constexpr char kDisableKey[] = "XMLDisable";
constexpr char kUserFile[] = "UserMetadata.xml";

// What a store tells is taken for a size up to here; beyond, the read has failed.
constexpr uint32_t kLargestText = 0xFFFFFFFFu - 15;

void ReadText(KXConfigHandle store, QLNInfo& info, const InfoField& field) {
  uint32_t size = 0;
  kxCFGValueString(store, kDefaultsSection, field.name, nullptr, &size, KX_CONFIG_READ);
  if (size == 0) return;  // absent or empty
  if (void* const old = SlotOf(info, field)) KXFree(old);
  SetSlot(info, field, nullptr);
  if (size > kLargestText) return;
  const size_t room = size_t{size} + kTextSlack;
  char* const text = static_cast<char*>(KXAlloc(room));
  if (text == nullptr) return;
  // A text that comes without its terminator ends in the slack.
  std::memset(text, 0, room);
  if (kxCFGValueString(store, kDefaultsSection, field.name, text, &size, KX_CONFIG_READ) != 0) {
    KXFree(text);
    return;
  }
  SetSlot(info, field, text);
}

void ReadNumber(KXConfigHandle store, QLNInfo& info, const InfoField& field) {
  if (kxCFGValueDword(store, kDefaultsSection, field.name, nullptr, KX_CONFIG_READ) != 0) return;
  uint32_t number = NumberOf(info, field);
  const uint32_t old = number;
  if (kxCFGValueDword(store, kDefaultsSection, field.name, &number, KX_CONFIG_READ) != 0) number = old;
  SetNumber(info, field, number);
}

// The store may look at all of the size that it is told, one byte more than the text's own block need have.
void WriteText(KXConfigHandle store, const InfoField& field, const void* text) {
  const size_t length = TextLength(text);
  if (length > kLargestText) return;
  uint32_t size = static_cast<uint32_t>(length) + 2;
  char* const copy = static_cast<char*>(CopyBlock(text, length, size));
  if (copy == nullptr) return;
  kxCFGValueString(store, kDefaultsSection, field.name, copy, &size, KX_CONFIG_WRITE);
  KXFree(copy);
}

// Makes the changes of its lifetime one step, so that others see the record whole, and flushed once.
class ChangeGroup {
 public:
  explicit ChangeGroup(KXConfigHandle store)
      : store_(store), begun_(kxCFGBegin != nullptr && kxCFGEnd != nullptr && kxCFGBegin(store) == 0) {}
  ~ChangeGroup() {
    if (begun_) kxCFGEnd(store_);
  }
  ChangeGroup(const ChangeGroup&) = delete;
  ChangeGroup& operator=(const ChangeGroup&) = delete;

 private:
  const KXConfigHandle store_;
  const bool begun_;
};

// Runs an action on the user file's store, if that file is there.
template <typename Action>
void WithUserFile(Action action) {
  if (kxOSFileExists(kUserFile) == 0) return;
  const KXConfigHandle store = kxCFGOpen(kUserFile, KX_CONFIG_OPEN);
  if (store == 0) return;
  action(store);
  kxCFGClose(store, KX_CONFIG_SAVE);
}

}  // namespace
}  // namespace qln

uint32_t qlnInfoReadRegSet(KXConfigHandle store, QLNInfo* info) {
  for (const qln::InfoField& field : qln::kInfoSlots) {
    if (field.persistence == qln::Persistence::kReadAndWrite) qln::ReadText(store, *info, field);
  }
  for (const qln::InfoField& field : qln::kInfoNumbers) {
    if (field.persistence == qln::Persistence::kReadAndWrite) qln::ReadNumber(store, *info, field);
  }
  return 0;
}

uint32_t qlnInfoWriteRegSet(KXConfigHandle store, const QLNInfo* info) {
  const qln::ChangeGroup group(store);
  for (const qln::InfoField& field : qln::kInfoSlots) {
    if (field.persistence == qln::Persistence::kNone) continue;
    if (const void* const text = qln::SlotOf(*info, field)) {
      qln::WriteText(store, field, text);
    } else {
      kxCFGDeleteValue(store, qln::kDefaultsSection, field.name);
    }
  }
  for (const qln::InfoField& field : qln::kInfoNumbers) {
    uint32_t number = qln::NumberOf(*info, field);
    if (number != QLN_INFO_UNSET) {
      kxCFGValueDword(store, qln::kDefaultsSection, field.name, &number, KX_CONFIG_WRITE);
    } else {
      kxCFGDeleteValue(store, qln::kDefaultsSection, field.name);
    }
  }
  return 0;
}

uint32_t qlnInfoReadReg(QLNInfo* info, uint32_t useDefaultStore, uint32_t useUserFile) {
  if (useDefaultStore != 0) {
    uint32_t disabled = 0;
    if (kxCFGValueDword(KX_DEFAULT_STORE, qln::kMetaDataSection, qln::kDisableKey, &disabled,
                        KX_CONFIG_READ) != 0) {
      qlnInfoWriteRegSet(KX_DEFAULT_STORE, info);
    } else {
      qlnInfoReadRegSet(KX_DEFAULT_STORE, info);
    }
  }
  if (useUserFile != 0) {
    qln::WithUserFile([info](KXConfigHandle store) { qlnInfoReadRegSet(store, info); });
  }
  return 0;
}

uint32_t qlnInfoWriteReg(const QLNInfo* info, uint32_t useDefaultStore, uint32_t useUserFile) {
  if (useDefaultStore != 0) qlnInfoWriteRegSet(KX_DEFAULT_STORE, info);
  if (useUserFile != 0) {
    qln::WithUserFile([info](KXConfigHandle store) { qlnInfoWriteRegSet(store, info); });
  }
  return 0;
}
