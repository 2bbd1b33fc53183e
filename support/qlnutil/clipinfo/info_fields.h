// The fields of a clip information record in their order: keys in the store, tags, and what is stored.
#ifndef QLNUTIL_CLIPINFO_INFO_FIELDS_H
#define QLNUTIL_CLIPINFO_INFO_FIELDS_H

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <iterator>

#include "qlnutil/qlninfo.h"

namespace qln {

constexpr int32_t kNoTag = -1;

enum class Persistence {
  kNone,
  kReadAndWrite,
  kWriteOnly,  // written for others to see, never brought back
};

struct InfoField {
  const char* name;
  int32_t tag;
  size_t offset;
  Persistence persistence;
};

// The 99 slots. DoNotUse has no tag, so that the tags behind it are the slot numbers less one.
constexpr InfoField kInfoSlots[] = {
    {"FileName", 0, offsetof(QLNInfo, FileName), Persistence::kNone},
    {"NativeLocator", 1, offsetof(QLNInfo, NativeLocator), Persistence::kNone},
    {"UniversalLocator", 2, offsetof(QLNInfo, UniversalLocator), Persistence::kNone},
    {"TCP-IPAddress", 3, offsetof(QLNInfo, TCP_IPAddress), Persistence::kNone},
    {"SourceLocator", 4, offsetof(QLNInfo, SourceLocator), Persistence::kNone},
    {"ChannelIdentifier", 5, offsetof(QLNInfo, ChannelIdentifier), Persistence::kReadAndWrite},
    {"ChannelName", 6, offsetof(QLNInfo, ChannelName), Persistence::kReadAndWrite},
    {"ChannelDescription", 7, offsetof(QLNInfo, ChannelDescription), Persistence::kReadAndWrite},
    {"Title", 8, offsetof(QLNInfo, Title), Persistence::kReadAndWrite},
    {"Subject", 9, offsetof(QLNInfo, Subject), Persistence::kReadAndWrite},
    {"Category", 10, offsetof(QLNInfo, Category), Persistence::kReadAndWrite},
    {"Keywords", 11, offsetof(QLNInfo, Keywords), Persistence::kReadAndWrite},
    {"Ratings", 12, offsetof(QLNInfo, Ratings), Persistence::kReadAndWrite},
    {"Comments", 13, offsetof(QLNInfo, Comments), Persistence::kReadAndWrite},
    {"DoNotUse", kNoTag, offsetof(QLNInfo, DoNotUse), Persistence::kReadAndWrite},
    {"Owner", 14, offsetof(QLNInfo, Owner), Persistence::kReadAndWrite},
    {"Editor", 15, offsetof(QLNInfo, Editor), Persistence::kReadAndWrite},
    {"Supplier", 16, offsetof(QLNInfo, Supplier), Persistence::kReadAndWrite},
    {"Source", 17, offsetof(QLNInfo, Source), Persistence::kReadAndWrite},
    {"Project", 18, offsetof(QLNInfo, Project), Persistence::kReadAndWrite},
    {"Status", 19, offsetof(QLNInfo, Status), Persistence::kReadAndWrite},
    {"Author", 20, offsetof(QLNInfo, Author), Persistence::kReadAndWrite},
    {"RevisionNumber", 21, offsetof(QLNInfo, RevisionNumber), Persistence::kReadAndWrite},
    {"Produced", 22, offsetof(QLNInfo, Produced), Persistence::kReadAndWrite},
    {"Album", 23, offsetof(QLNInfo, Album), Persistence::kReadAndWrite},
    {"Artist", 24, offsetof(QLNInfo, Artist), Persistence::kReadAndWrite},
    {"Composer", 25, offsetof(QLNInfo, Composer), Persistence::kReadAndWrite},
    {"Copyright", 26, offsetof(QLNInfo, Copyright), Persistence::kReadAndWrite},
    {"CreationData", 27, offsetof(QLNInfo, CreationData), Persistence::kReadAndWrite},
    {"Description", 28, offsetof(QLNInfo, Description), Persistence::kReadAndWrite},
    {"Director", 29, offsetof(QLNInfo, Director), Persistence::kReadAndWrite},
    {"Disclaimer", 30, offsetof(QLNInfo, Disclaimer), Persistence::kReadAndWrite},
    {"EncodedBy", 31, offsetof(QLNInfo, EncodedBy), Persistence::kReadAndWrite},
    {"FullName", 32, offsetof(QLNInfo, FullName), Persistence::kReadAndWrite},
    {"Genre", 33, offsetof(QLNInfo, Genre), Persistence::kReadAndWrite},
    {"HostComputer", 34, offsetof(QLNInfo, HostComputer), Persistence::kReadAndWrite},
    {"Information", 35, offsetof(QLNInfo, Information), Persistence::kReadAndWrite},
    {"Make", 36, offsetof(QLNInfo, Make), Persistence::kReadAndWrite},
    {"Model", 37, offsetof(QLNInfo, Model), Persistence::kReadAndWrite},
    {"OriginalArtist", 38, offsetof(QLNInfo, OriginalArtist), Persistence::kReadAndWrite},
    {"OriginalFormat", 39, offsetof(QLNInfo, OriginalFormat), Persistence::kReadAndWrite},
    {"Performers", 40, offsetof(QLNInfo, Performers), Persistence::kReadAndWrite},
    {"Producer", 41, offsetof(QLNInfo, Producer), Persistence::kReadAndWrite},
    {"Product", 42, offsetof(QLNInfo, Product), Persistence::kReadAndWrite},
    {"Software", 43, offsetof(QLNInfo, Software), Persistence::kReadAndWrite},
    {"SpecialPlaybackRequirements", 44, offsetof(QLNInfo, SpecialPlaybackRequirements),
     Persistence::kReadAndWrite},
    {"Track", 45, offsetof(QLNInfo, Track), Persistence::kReadAndWrite},
    {"Warning", 46, offsetof(QLNInfo, Warning), Persistence::kReadAndWrite},
    {"URL", 47, offsetof(QLNInfo, URL), Persistence::kReadAndWrite},
    {"EditData1", 48, offsetof(QLNInfo, EditData1), Persistence::kReadAndWrite},
    {"EditData2", 49, offsetof(QLNInfo, EditData2), Persistence::kReadAndWrite},
    {"EditData3", 50, offsetof(QLNInfo, EditData3), Persistence::kReadAndWrite},
    {"EditData4", 51, offsetof(QLNInfo, EditData4), Persistence::kReadAndWrite},
    {"EditData5", 52, offsetof(QLNInfo, EditData5), Persistence::kReadAndWrite},
    {"EditData6", 53, offsetof(QLNInfo, EditData6), Persistence::kReadAndWrite},
    {"EditData7", 54, offsetof(QLNInfo, EditData7), Persistence::kReadAndWrite},
    {"EditData8", 55, offsetof(QLNInfo, EditData8), Persistence::kReadAndWrite},
    {"EditData9", 56, offsetof(QLNInfo, EditData9), Persistence::kReadAndWrite},
    {"VersionString", 57, offsetof(QLNInfo, VersionString), Persistence::kWriteOnly},
    {"Manufacturer", 58, offsetof(QLNInfo, Manufacturer), Persistence::kReadAndWrite},
    {"Language", 59, offsetof(QLNInfo, Language), Persistence::kReadAndWrite},
    {"Format", 60, offsetof(QLNInfo, Format), Persistence::kReadAndWrite},
    {"InputDevice", 61, offsetof(QLNInfo, InputDevice), Persistence::kReadAndWrite},
    {"DeviceModelNum", 62, offsetof(QLNInfo, DeviceModelNum), Persistence::kReadAndWrite},
    {"DeviceSerialNum", 63, offsetof(QLNInfo, DeviceSerialNum), Persistence::kReadAndWrite},
    {"Reel", 64, offsetof(QLNInfo, Reel), Persistence::kReadAndWrite},
    {"Shot", 65, offsetof(QLNInfo, Shot), Persistence::kReadAndWrite},
    {"Take", 66, offsetof(QLNInfo, Take), Persistence::kReadAndWrite},
    {"SlateInfo", 67, offsetof(QLNInfo, SlateInfo), Persistence::kReadAndWrite},
    {"FrameAttribute", 68, offsetof(QLNInfo, FrameAttribute), Persistence::kReadAndWrite},
    {"Episode", 69, offsetof(QLNInfo, Episode), Persistence::kReadAndWrite},
    {"Scene", 70, offsetof(QLNInfo, Scene), Persistence::kReadAndWrite},
    {"DailyRoll", 71, offsetof(QLNInfo, DailyRoll), Persistence::kReadAndWrite},
    {"CamRoll", 72, offsetof(QLNInfo, CamRoll), Persistence::kReadAndWrite},
    {"SoundRoll", 73, offsetof(QLNInfo, SoundRoll), Persistence::kReadAndWrite},
    {"LabRoll", 74, offsetof(QLNInfo, LabRoll), Persistence::kReadAndWrite},
    {"KeyNumberPrefix", 75, offsetof(QLNInfo, KeyNumberPrefix), Persistence::kReadAndWrite},
    {"InkNumberPrefix", 76, offsetof(QLNInfo, InkNumberPrefix), Persistence::kReadAndWrite},
    {"PictureIcon", 77, offsetof(QLNInfo, PictureIcon), Persistence::kReadAndWrite},
    {"ProxyFile", 78, offsetof(QLNInfo, ProxyFile), Persistence::kReadAndWrite},
    {"CustomMetadataBlock", kNoTag, offsetof(QLNInfo, CustomMetadataBlock), Persistence::kNone},
    {"ImageInfo", kNoTag, offsetof(QLNInfo, ImageInfo), Persistence::kReadAndWrite},
    {"UMID", kNoTag, offsetof(QLNInfo, UMID), Persistence::kReadAndWrite},
    {"XML", kNoTag, offsetof(QLNInfo, XML), Persistence::kReadAndWrite},
    {"XML_XMP", kNoTag, offsetof(QLNInfo, XML_XMP), Persistence::kReadAndWrite},
    {"XML_MediaInfo", kNoTag, offsetof(QLNInfo, XML_MediaInfo), Persistence::kReadAndWrite},
    {"NotUsed_87", kNoTag, offsetof(QLNInfo, NotUsed_87), Persistence::kReadAndWrite},
    {"NotUsed_88", kNoTag, offsetof(QLNInfo, NotUsed_88), Persistence::kReadAndWrite},
    {"NotUsed_89", kNoTag, offsetof(QLNInfo, NotUsed_89), Persistence::kReadAndWrite},
    {"NotUsed_90", kNoTag, offsetof(QLNInfo, NotUsed_90), Persistence::kReadAndWrite},
    {"NotUsed_91", kNoTag, offsetof(QLNInfo, NotUsed_91), Persistence::kReadAndWrite},
    {"NotUsed_92", kNoTag, offsetof(QLNInfo, NotUsed_92), Persistence::kReadAndWrite},
    {"NotUsed_93", kNoTag, offsetof(QLNInfo, NotUsed_93), Persistence::kReadAndWrite},
    {"NotUsed_94", kNoTag, offsetof(QLNInfo, NotUsed_94), Persistence::kReadAndWrite},
    {"NotUsed_95", kNoTag, offsetof(QLNInfo, NotUsed_95), Persistence::kReadAndWrite},
    {"NotUsed_96", kNoTag, offsetof(QLNInfo, NotUsed_96), Persistence::kReadAndWrite},
    {"NotUsed_97", kNoTag, offsetof(QLNInfo, NotUsed_97), Persistence::kReadAndWrite},
    {"NotUsed_98", kNoTag, offsetof(QLNInfo, NotUsed_98), Persistence::kReadAndWrite},
    {"NotUsed_99", kNoTag, offsetof(QLNInfo, NotUsed_99), Persistence::kReadAndWrite},
};

// The 49 numeric fields.
constexpr InfoField kInfoNumbers[] = {
    {"TimeCode", 4097, offsetof(QLNInfo, TimeCode), Persistence::kReadAndWrite},
    {"UserBits", 4098, offsetof(QLNInfo, UserBits), Persistence::kReadAndWrite},
    {"VITCTimeCode", 4099, offsetof(QLNInfo, VITCTimeCode), Persistence::kReadAndWrite},
    {"VITCUserBits", 4100, offsetof(QLNInfo, VITCUserBits), Persistence::kReadAndWrite},
    {"VITCExtraData", 4101, offsetof(QLNInfo, VITCExtraData), Persistence::kReadAndWrite},
    {"PosterFrame", 4102, offsetof(QLNInfo, PosterFrame), Persistence::kReadAndWrite},
    {"A-Frame", 4103, offsetof(QLNInfo, A_Frame), Persistence::kReadAndWrite},
    {"AspectRatio", 4104, offsetof(QLNInfo, AspectRatio), Persistence::kReadAndWrite},
    {"OriginalRate", 4105, offsetof(QLNInfo, OriginalRate), Persistence::kReadAndWrite},
    {"OriginalScale", 4106, offsetof(QLNInfo, OriginalScale), Persistence::kReadAndWrite},
    {"TotalConversions", 4107, offsetof(QLNInfo, TotalConversions), Persistence::kReadAndWrite},
    {"VersionNumber", 4108, offsetof(QLNInfo, VersionNumber), Persistence::kWriteOnly},
    {"FileSize", 4109, offsetof(QLNInfo, FileSize), Persistence::kReadAndWrite},
    {"FileDate", 4110, offsetof(QLNInfo, FileDate), Persistence::kReadAndWrite},
    {"FileTime", 4111, offsetof(QLNInfo, FileTime), Persistence::kReadAndWrite},
    {"SequenceNumber", 4112, offsetof(QLNInfo, SequenceNumber), Persistence::kReadAndWrite},
    {"TotalStreams", 4113, offsetof(QLNInfo, TotalStreams), Persistence::kReadAndWrite},
    {"TotalLength", 4114, offsetof(QLNInfo, TotalLength), Persistence::kReadAndWrite},
    {"FilmManufacturerCode", 4115, offsetof(QLNInfo, FilmManufacturerCode), Persistence::kReadAndWrite},
    {"FilmTypeCode", 4116, offsetof(QLNInfo, FilmTypeCode), Persistence::kReadAndWrite},
    {"WhitePoint", 4117, offsetof(QLNInfo, WhitePoint), Persistence::kReadAndWrite},
    {"BlackPoint", 4118, offsetof(QLNInfo, BlackPoint), Persistence::kReadAndWrite},
    {"BlackGain", 4119, offsetof(QLNInfo, BlackGain), Persistence::kReadAndWrite},
    {"BreakPoint", 4120, offsetof(QLNInfo, BreakPoint), Persistence::kReadAndWrite},
    {"Gamma1000", 4121, offsetof(QLNInfo, Gamma1000), Persistence::kReadAndWrite},
    {"TagNumber", 4122, offsetof(QLNInfo, TagNumber), Persistence::kReadAndWrite},
    {"Flags", 4123, offsetof(QLNInfo, Flags), Persistence::kReadAndWrite},
    {"TimeCodeType", 4124, offsetof(QLNInfo, TimeCodeType), Persistence::kReadAndWrite},
    {"LTCTimeCodeType", 4125, offsetof(QLNInfo, LTCTimeCodeType), Persistence::kReadAndWrite},
    {"VITCTimeCodeType", 4126, offsetof(QLNInfo, VITCTimeCodeType), Persistence::kReadAndWrite},
    {"ProdDate", 4127, offsetof(QLNInfo, ProdDate), Persistence::kReadAndWrite},
    {"UniqueID", 4128, offsetof(QLNInfo, UniqueID), Persistence::kReadAndWrite},
    {"CustomMetadataBlockType", 4129, offsetof(QLNInfo, CustomMetadataBlockType), Persistence::kReadAndWrite},
    {"CustomMetadataBlockSize", kNoTag, offsetof(QLNInfo, CustomMetadataBlockSize),
     Persistence::kReadAndWrite},
    {"NorthSouthEastWest", kNoTag, offsetof(QLNInfo, NorthSouthEastWest), Persistence::kReadAndWrite},
    {"Latitude", kNoTag, offsetof(QLNInfo, Latitude), Persistence::kReadAndWrite},
    {"Longitude", kNoTag, offsetof(QLNInfo, Longitude), Persistence::kReadAndWrite},
    {"Exposure", kNoTag, offsetof(QLNInfo, Exposure), Persistence::kReadAndWrite},
    {"RedGain", kNoTag, offsetof(QLNInfo, RedGain), Persistence::kReadAndWrite},
    {"BlueGain", kNoTag, offsetof(QLNInfo, BlueGain), Persistence::kReadAndWrite},
    {"WhiteBalance", kNoTag, offsetof(QLNInfo, WhiteBalance), Persistence::kReadAndWrite},
    {"Matrix", kNoTag, offsetof(QLNInfo, Matrix), Persistence::kReadAndWrite},
    {"ISO", kNoTag, offsetof(QLNInfo, ISO), Persistence::kReadAndWrite},
    {"GreenGain", kNoTag, offsetof(QLNInfo, GreenGain), Persistence::kReadAndWrite},
    {"FileSizeHi", kNoTag, offsetof(QLNInfo, FileSizeHi), Persistence::kReadAndWrite},
    {"NumericNotUsed_46", kNoTag, offsetof(QLNInfo, NumericNotUsed_46), Persistence::kReadAndWrite},
    {"NumericNotUsed_47", kNoTag, offsetof(QLNInfo, NumericNotUsed_47), Persistence::kReadAndWrite},
    {"NumericNotUsed_48", kNoTag, offsetof(QLNInfo, NumericNotUsed_48), Persistence::kReadAndWrite},
    {"NumericNotUsed_49", kNoTag, offsetof(QLNInfo, NumericNotUsed_49), Persistence::kReadAndWrite},
};

constexpr size_t kCustomMetadataSlot = 80;
constexpr size_t kImageInfoSlot = 81;

template <size_t kCount>
consteval bool LieInOrder(const InfoField (&fields)[kCount], size_t first, size_t size) {
  for (size_t i = 0; i < kCount; ++i) {
    if (fields[i].offset != first + i * size) return false;
  }
  return true;
}
static_assert(std::size(kInfoSlots) == 99 && LieInOrder(kInfoSlots, 0, sizeof(void*)));
static_assert(std::size(kInfoNumbers) == 49 && LieInOrder(kInfoNumbers, 796, sizeof(uint32_t)));
static_assert(kInfoSlots[kCustomMetadataSlot].offset == offsetof(QLNInfo, CustomMetadataBlock));
static_assert(kInfoSlots[kImageInfoSlot].offset == offsetof(QLNInfo, ImageInfo));

// The slots and numeric fields by their place. All slots are pointers of one size and form.
inline void* SlotOf(const QLNInfo& info, const InfoField& field) {
  void* block = nullptr;
  std::memcpy(&block, reinterpret_cast<const char*>(&info) + field.offset, sizeof block);
  return block;
}
inline void SetSlot(QLNInfo& info, const InfoField& field, void* block) {
  std::memcpy(reinterpret_cast<char*>(&info) + field.offset, &block, sizeof block);
}
inline uint32_t NumberOf(const QLNInfo& info, const InfoField& field) {
  uint32_t number = 0;
  std::memcpy(&number, reinterpret_cast<const char*>(&info) + field.offset, sizeof number);
  return number;
}
inline void SetNumber(QLNInfo& info, const InfoField& field, uint32_t number) {
  std::memcpy(reinterpret_cast<char*>(&info) + field.offset, &number, sizeof number);
}

}  // namespace qln

#endif
