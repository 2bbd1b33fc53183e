/// @file qlninfo.h
/// Clip information: the flat record of a clip's descriptive metadata, its merging and clearing, the names of
/// its tags, and its defaults in the configuration store.
///
/// The host allocates the record and zeroes it before its first use. A slot is null or owns a block of
/// KXAlloc; qlnInfoDelete frees all blocks. A record belongs to one thread at a time; pointers to records are
/// never null (they are not tested).
///
/// Defaults are changed by the pair "set, then write": what is to change is set into a record that holds the
/// rest, and that record is written, since a store mirrors the record that it is written from.
/// @code
/// QLNInfo all = {0}, change = {0};
/// qlnInfoDelete(&all);     // the fields' defaults
/// qlnInfoDelete(&change);  // among them four times 0, which would be set:
/// change.TimeCode = change.VITCTimeCode = change.PosterFrame = change.A_Frame = QLN_INFO_UNSET;
/// change.Title = strcpy((char*)KXAlloc(5), "Dawn");
///
/// qlnInfoReadRegSet(KX_DEFAULT_STORE, &all);
/// qlnInfoSet(&all, &change);
/// qlnInfoWriteRegSet(KX_DEFAULT_STORE, &all);  // VersionString and VersionNumber, never read, only if set
///
/// qlnInfoDelete(&all);
/// qlnInfoDelete(&change);
/// @endcode
#ifndef QLNUTIL_QLNINFO_H
#define QLNUTIL_QLNINFO_H

#include "kxutil/kxutil.h"
#include "qlnutil/qlnapi.h"

/// A numeric field with this value holds none.
#define QLN_INFO_UNSET 0xFFFFFFFFu

/// What qlnInfoDelete leaves in the closing word.
#define QLN_INFO_CLOSING 0x7FFFFFFFu

QLN_C_BEGIN

/// The descriptive metadata of a clip. A text is zero-terminated, in the host's single-byte character set.
/// The names are the keys in the store ("TCP-IPAddress" and "A-Frame" with a hyphen).
typedef struct QLNInfo {
  char* FileName;
  char* NativeLocator;
  char* UniversalLocator;
  char* TCP_IPAddress;
  char* SourceLocator;
  char* ChannelIdentifier;
  char* ChannelName;
  char* ChannelDescription;
  char* Title;
  char* Subject;
  char* Category;
  char* Keywords;
  char* Ratings;
  char* Comments;
  char* DoNotUse;
  char* Owner;
  char* Editor;
  char* Supplier;
  char* Source;
  char* Project;
  char* Status;
  char* Author;
  char* RevisionNumber;
  char* Produced;
  char* Album;
  char* Artist;
  char* Composer;
  char* Copyright;
  char* CreationData;
  char* Description;
  char* Director;
  char* Disclaimer;
  char* EncodedBy;
  char* FullName;
  char* Genre;
  char* HostComputer;
  char* Information;
  char* Make;
  char* Model;
  char* OriginalArtist;
  char* OriginalFormat;
  char* Performers;
  char* Producer;
  char* Product;
  char* Software;
  char* SpecialPlaybackRequirements;
  char* Track;
  char* Warning;
  char* URL;
  char* EditData1;
  char* EditData2;
  char* EditData3;
  char* EditData4;
  char* EditData5;
  char* EditData6;
  char* EditData7;
  char* EditData8;
  char* EditData9;
  char* VersionString;
  char* Manufacturer;
  char* Language;
  char* Format;
  char* InputDevice;
  char* DeviceModelNum;
  char* DeviceSerialNum;
  char* Reel;
  char* Shot;
  char* Take;
  char* SlateInfo;
  char* FrameAttribute;
  char* Episode;
  char* Scene;
  char* DailyRoll;
  char* CamRoll;
  char* SoundRoll;
  char* LabRoll;
  char* KeyNumberPrefix;
  char* InkNumberPrefix;
  char* PictureIcon;
  char* ProxyFile;
  void* CustomMetadataBlock; /**< CustomMetadataBlockSize bytes */
  char* ImageInfo; /**< a text in the store; to qlnInfoSet a block whose first 32-bit word is its length */
  char* UMID;
  char* XML;
  char* XML_XMP;
  char* XML_MediaInfo;
  char* NotUsed_87;
  char* NotUsed_88;
  char* NotUsed_89;
  char* NotUsed_90;
  char* NotUsed_91;
  char* NotUsed_92;
  char* NotUsed_93;
  char* NotUsed_94;
  char* NotUsed_95;
  char* NotUsed_96;
  char* NotUsed_97;
  char* NotUsed_98;
  char* NotUsed_99;

  uint32_t Reserved; /**< without a meaning yet; cleared by qlnInfoDelete */

  uint32_t TimeCode;
  uint32_t UserBits;
  uint32_t VITCTimeCode;
  uint32_t VITCUserBits;
  uint32_t VITCExtraData;
  uint32_t PosterFrame;
  uint32_t A_Frame;
  uint32_t AspectRatio;
  uint32_t OriginalRate;
  uint32_t OriginalScale;
  uint32_t TotalConversions;
  uint32_t VersionNumber;
  uint32_t FileSize;
  uint32_t FileDate;
  uint32_t FileTime;
  uint32_t SequenceNumber;
  uint32_t TotalStreams;
  uint32_t TotalLength;
  uint32_t FilmManufacturerCode;
  uint32_t FilmTypeCode;
  uint32_t WhitePoint;
  uint32_t BlackPoint;
  uint32_t BlackGain;
  uint32_t BreakPoint;
  uint32_t Gamma1000;
  uint32_t TagNumber;
  uint32_t Flags;
  uint32_t TimeCodeType;
  uint32_t LTCTimeCodeType;
  uint32_t VITCTimeCodeType;
  uint32_t ProdDate;
  uint32_t UniqueID;
  uint32_t CustomMetadataBlockType;
  uint32_t CustomMetadataBlockSize;
  uint32_t NorthSouthEastWest;
  uint32_t Latitude;
  uint32_t Longitude;
  uint32_t Exposure;
  uint32_t RedGain;
  uint32_t BlueGain;
  uint32_t WhiteBalance;
  uint32_t Matrix;
  uint32_t ISO;
  uint32_t GreenGain;
  uint32_t FileSizeHi;
  uint32_t NumericNotUsed_46;
  uint32_t NumericNotUsed_47;
  uint32_t NumericNotUsed_48;
  uint32_t NumericNotUsed_49;

  uint64_t Closing; /**< without a meaning yet; neither merged nor stored */
} QLNInfo;

QLN_STATIC_ASSERT(sizeof(QLNInfo) == 1000, "QLNInfo");
QLN_STATIC_ASSERT(offsetof(QLNInfo, DoNotUse) == 14 * 8, "QLNInfo slots");
QLN_STATIC_ASSERT(offsetof(QLNInfo, CustomMetadataBlock) == 640, "QLNInfo slots");
QLN_STATIC_ASSERT(offsetof(QLNInfo, Reserved) == 792, "QLNInfo unnamed word");
QLN_STATIC_ASSERT(offsetof(QLNInfo, TimeCode) == 796, "QLNInfo numeric fields");
QLN_STATIC_ASSERT(offsetof(QLNInfo, NumericNotUsed_49) == 988, "QLNInfo numeric fields");
QLN_STATIC_ASSERT(offsetof(QLNInfo, Closing) == 992, "QLNInfo closing word");

/// Merges @p source into @p destination, which gets blocks of its own; the source is not changed.
///
/// FileName, NativeLocator and UniversalLocator are copied only into a slot that is null; every other text
/// replaces the destination's. CustomMetadataBlock is replaced if the source's CustomMetadataBlockSize is
/// neither 0 nor QLN_INFO_UNSET; ImageInfo if that same field is not 0 and the block's own first word is
/// neither 0 nor 0xFFFFFFFF. Each numeric field of the source that is not QLN_INFO_UNSET replaces the
/// destination's, 0 included. Reserved and Closing stay. Where both slots hold the same pointer, nothing is
/// done.
///
/// Of a source block whose size KXAllocSize knows no byte behind its end is read: a text ends there, a block
/// is filled up with zeros, and an ImageInfo that tells more than its block holds is not copied. Where the
/// size is not known, terminators and lengths are believed. A slot for which there is no memory is left null.
/// @param[in,out] destination, source records, which may be the same one.
/// @return 0 always.
QLN_API uint32_t qlnInfoSet(QLNInfo* destination, const QLNInfo* source);

/// Frees all blocks of a record and sets its fields to their defaults: slots null, numeric fields
/// QLN_INFO_UNSET, but TimeCode, VITCTimeCode, PosterFrame and A_Frame 0, Reserved 0, Closing
/// QLN_INFO_CLOSING.
/// @param[in,out] info a record that was zeroed before its first use.
QLN_API void qlnInfoDelete(QLNInfo* info);

/// Writes the name of a tag: 0 to 78 for texts, 4097 to 4129 for numeric fields, 65536 to 65570 for
/// properties of stream formats, which have no place in the record.
/// @param tag the number. @param[out] text room for 28 bytes; not tested for null.
/// @return 0; 0xFFFFFFFF for a number without a name, and then the text is "Unk(%d) " of it, signed.
QLN_API uint32_t qlnInfoGetDescription(uint32_t tag, char* text);

/// Reads the defaults from their stores into a record; the user file comes second, so that its values win.
///
/// If the default store has no key "XMLDisable" under "Tarnwick\MetaData", it is not read but filled from the
/// record, as qlnInfoWriteRegSet does. The user file is "UserMetadata.xml" in the working folder; a file that
/// does not exist or is no store is passed over.
/// @param[in,out] info the record. @param useDefaultStore, useUserFile not 0 where wanted.
/// @return 0 always.
QLN_API uint32_t qlnInfoReadReg(QLNInfo* info, uint32_t useDefaultStore, uint32_t useUserFile);

/// Writes a record as the defaults into the default store and into the user file, if there is one: it is
/// never made here. @param info the record. @param useDefaultStore, useUserFile not 0 where wanted.
/// @return 0 always.
QLN_API uint32_t qlnInfoWriteReg(const QLNInfo* info, uint32_t useDefaultStore, uint32_t useUserFile);

/// Reads all fields from one store, from under "Tarnwick\MetaData\Default": the texts from ChannelIdentifier
/// on but for CustomMetadataBlock, and the numeric fields; VersionString and VersionNumber are never read. An
/// absent key and an empty text leave their field alone; a text that is there but cannot be read leaves null.
/// @param store a handle of kxCFGOpen, or KX_DEFAULT_STORE. @param[in,out] info the record.
/// @return 0 always.
QLN_API uint32_t qlnInfoReadRegSet(KXConfigHandle store, QLNInfo* info);

/// Writes the same fields, VersionString and VersionNumber too, to one store, and deletes the keys of those
/// that hold no value, so that the store mirrors the record. Where the utility layer has kxCFGBegin and
/// kxCFGEnd, all of it is one change: others see the record before or after, and it is flushed once.
/// @param store a handle of kxCFGOpen, or KX_DEFAULT_STORE. @param info the record.
/// @return 0 always; what the store refuses is not told.
QLN_API uint32_t qlnInfoWriteRegSet(KXConfigHandle store, const QLNInfo* info);

/// Kept so that hosts link; does nothing. @return 1 always.
/// @{
QLN_API uint32_t XMLFromQLNAudio(void);
QLN_API uint32_t XMLFromQLNInfo(void);
QLN_API uint32_t XMLFromQLNSystem(void);
QLN_API uint32_t XMLFromQLNVideo(void);
/// @}

QLN_C_END

#endif
