// The names of tags.

#include <cstdio>
#include <cstring>

#include "qlnutil/clipinfo/info_fields.h"
#include "qlnutil/qlninfo.h"

namespace qln {
namespace {

// Properties of stream formats; the tags count on from the first.
constexpr uint32_t kFirstFormatTag = 65536;
constexpr const char* kFormatNames[] = {"Width",
                                        "Height",
                                        "Planes",
                                        "BitCount",
                                        "Compression",
                                        "SizeImage",
                                        "XPelsPerMeter",
                                        "YPelsPerMeter",
                                        "ClrUsed",
                                        "ClrImportant",
                                        "Reserved",
                                        "FccType",
                                        "FccHandler",
                                        "Flags",
                                        "Caps",
                                        "Priority",
                                        "Language",
                                        "Scale",
                                        "Rate",
                                        "Start",
                                        "Length",
                                        "InitialFrames",
                                        "SuggestedBufferSize",
                                        "Quality",
                                        "SampleSize",
                                        "EditCount",
                                        "FormatChangeCount",
                                        "Pitch",
                                        "DrFlags",
                                        "FileType",
                                        "ResMorvane",
                                        "AudioType",
                                        "AudioChannels",
                                        "AudioFrequency",
                                        "TimeCode"};
static_assert(std::size(kFormatNames) == 35);

template <size_t kCount>
const char* NameIn(const InfoField (&fields)[kCount], uint32_t tag) {
  for (const InfoField& field : fields) {
    if (field.tag != kNoTag && static_cast<uint32_t>(field.tag) == tag) return field.name;
  }
  return nullptr;
}

const char* NameOfTag(uint32_t tag) {
  if (const char* const name = NameIn(kInfoSlots, tag)) return name;
  if (const char* const name = NameIn(kInfoNumbers, tag)) return name;
  if (tag >= kFirstFormatTag && tag - kFirstFormatTag < std::size(kFormatNames)) {
    return kFormatNames[tag - kFirstFormatTag];
  }
  return nullptr;
}

}  // namespace
}  // namespace qln

uint32_t qlnInfoGetDescription(uint32_t tag, char* text) {
  if (const char* const name = qln::NameOfTag(tag)) {
    std::memcpy(text, name, std::strlen(name) + 1);
    return 0;
  }
  (void)std::sprintf(text, "Unk(%d) ", static_cast<int32_t>(tag));
  return 0xFFFFFFFFu;
}
