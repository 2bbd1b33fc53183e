// Merging and clearing a clip information record.

#include "qlnutil/clipinfo/info_blocks.h"
#include "qlnutil/clipinfo/info_fields.h"
#include "qlnutil/qlninfo.h"

namespace qln {
namespace {

constexpr size_t kLocators = 3;  // the first slots: whoever sets them first wins

void FreeSlot(QLNInfo& info, const InfoField& field) {
  if (void* const block = SlotOf(info, field)) KXFree(block);
  SetSlot(info, field, nullptr);
}

void ReplaceWithCopy(QLNInfo& destination, const InfoField& field, const void* source, size_t count,
                     size_t size) {
  FreeSlot(destination, field);
  SetSlot(destination, field, CopyBlock(source, count, size));
}

void MergeText(QLNInfo& destination, const InfoField& field, const void* source) {
  const size_t length = TextLength(source);
  ReplaceWithCopy(destination, field, source, length, length + kTextSlack);
}

void MergeBlock(QLNInfo& destination, const InfoField& field, const void* source, uint32_t length) {
  if (length != 0 && length != QLN_INFO_UNSET) ReplaceWithCopy(destination, field, source, length, length);
}

void MergeSlot(QLNInfo& destination, const QLNInfo& source, size_t slot) {
  const InfoField& field = kInfoSlots[slot];
  const void* const from = SlotOf(source, field);
  const void* const to = SlotOf(destination, field);
  if (from == nullptr || from == to) return;
  if (slot == kCustomMetadataSlot) {
    MergeBlock(destination, field, from, source.CustomMetadataBlockSize);
  } else if (slot == kImageInfoSlot) {
    // Gated on the other block's size: hosts set the two together.
    if (source.CustomMetadataBlockSize != 0) MergeBlock(destination, field, from, LengthInFirstWord(from));
  } else if (slot >= kLocators || to == nullptr) {
    MergeText(destination, field, from);
  }
}

}  // namespace
}  // namespace qln

uint32_t qlnInfoSet(QLNInfo* destination, const QLNInfo* source) {
  for (size_t slot = 0; slot < std::size(qln::kInfoSlots); ++slot) {
    qln::MergeSlot(*destination, *source, slot);
  }
  for (const qln::InfoField& field : qln::kInfoNumbers) {
    const uint32_t number = qln::NumberOf(*source, field);
    if (number != QLN_INFO_UNSET) qln::SetNumber(*destination, field, number);
  }
  return 0;
}

void qlnInfoDelete(QLNInfo* info) {
  for (const qln::InfoField& field : qln::kInfoSlots) qln::FreeSlot(*info, field);
  for (const qln::InfoField& field : qln::kInfoNumbers) qln::SetNumber(*info, field, QLN_INFO_UNSET);
  info->Reserved = 0;
  info->TimeCode = 0;
  info->VITCTimeCode = 0;
  info->PosterFrame = 0;
  info->A_Frame = 0;
  info->Closing = QLN_INFO_CLOSING;
}
