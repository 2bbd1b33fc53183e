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
  char* FileName;                    /**< name of the clip file; tag 0 */
  char* NativeLocator;               /**< path of the clip on its own system; tag 1 */
  char* UniversalLocator;            /**< URL of the clip; tag 2 */
  char* TCP_IPAddress;               /**< address of the machine that has the clip; tag 3 */
  char* SourceLocator;               /**< where the clip was taken from; tag 4 */
  char* ChannelIdentifier;           /**< identifier of the channel; tag 5 */
  char* ChannelName;                 /**< name of the channel; tag 6 */
  char* ChannelDescription;          /**< description of the channel; tag 7 */
  char* Title;                       /**< title of the clip; tag 8 */
  char* Subject;                     /**< what it is about; tag 9 */
  char* Category;                    /**< category; tag 10 */
  char* Keywords;                    /**< words to find it by; tag 11 */
  char* Ratings;                     /**< ratings; tag 12 */
  char* Comments;                    /**< comments; tag 13 */
  char* DoNotUse;                    /**< reserved */
  char* Owner;                       /**< owner of the clip; tag 14 */
  char* Editor;                      /**< who edited it; tag 15 */
  char* Supplier;                    /**< who supplied it; tag 16 */
  char* Source;                      /**< source of the material; tag 17 */
  char* Project;                     /**< project that it belongs to; tag 18 */
  char* Status;                      /**< state of the work on it; tag 19 */
  char* Author;                      /**< who wrote it; tag 20 */
  char* RevisionNumber;              /**< revision, as a text; tag 21 */
  char* Produced;                    /**< when or where it was produced; tag 22 */
  char* Album;                       /**< album; tag 23 */
  char* Artist;                      /**< artist; tag 24 */
  char* Composer;                    /**< composer; tag 25 */
  char* Copyright;                   /**< copyright notice; tag 26 */
  char* CreationData;                /**< date or data of its creation; tag 27 */
  char* Description;                 /**< description; tag 28 */
  char* Director;                    /**< director; tag 29 */
  char* Disclaimer;                  /**< disclaimer; tag 30 */
  char* EncodedBy;                   /**< who encoded it; tag 31 */
  char* FullName;                    /**< full name; tag 32 */
  char* Genre;                       /**< genre; tag 33 */
  char* HostComputer;                /**< machine that it was made on; tag 34 */
  char* Information;                 /**< information of any kind; tag 35 */
  char* Make;                        /**< maker of the device; tag 36 */
  char* Model;                       /**< model of the device; tag 37 */
  char* OriginalArtist;              /**< artist of the original; tag 38 */
  char* OriginalFormat;              /**< format of the original; tag 39 */
  char* Performers;                  /**< performers; tag 40 */
  char* Producer;                    /**< producer; tag 41 */
  char* Product;                     /**< product; tag 42 */
  char* Software;                    /**< software that made it; tag 43 */
  char* SpecialPlaybackRequirements; /**< what playing it takes; tag 44 */
  char* Track;                       /**< track; tag 45 */
  char* Warning;                     /**< warning; tag 46 */
  char* URL;                         /**< address of a page about it; tag 47 */
  char* EditData1;                   /**< free for editing systems; tag 48 */
  char* EditData2;                   /**< free for editing systems; tag 49 */
  char* EditData3;                   /**< free for editing systems; tag 50 */
  char* EditData4;                   /**< free for editing systems; tag 51 */
  char* EditData5;                   /**< free for editing systems; tag 52 */
  char* EditData6;                   /**< free for editing systems; tag 53 */
  char* EditData7;                   /**< free for editing systems; tag 54 */
  char* EditData8;                   /**< free for editing systems; tag 55 */
  char* EditData9;                   /**< free for editing systems; tag 56 */
  char* VersionString;               /**< version, as a text; written and never read back; tag 57 */
  char* Manufacturer;                /**< manufacturer of the device; tag 58 */
  char* Language;                    /**< language; tag 59 */
  char* Format;                      /**< format; tag 60 */
  char* InputDevice;                 /**< device that it was taken with; tag 61 */
  char* DeviceModelNum;              /**< model number of that device; tag 62 */
  char* DeviceSerialNum;             /**< serial number of that device; tag 63 */
  char* Reel;                        /**< reel; tag 64 */
  char* Shot;                        /**< shot; tag 65 */
  char* Take;                        /**< take; tag 66 */
  char* SlateInfo;                   /**< what the slate says; tag 67 */
  char* FrameAttribute;              /**< attribute of frames; tag 68 */
  char* Episode;                     /**< episode; tag 69 */
  char* Scene;                       /**< scene; tag 70 */
  char* DailyRoll;                   /**< roll of dailies; tag 71 */
  char* CamRoll;                     /**< camera roll; tag 72 */
  char* SoundRoll;                   /**< sound roll; tag 73 */
  char* LabRoll;                     /**< laboratory roll; tag 74 */
  char* KeyNumberPrefix;             /**< prefix of the film key numbers; tag 75 */
  char* InkNumberPrefix;             /**< prefix of the film ink numbers; tag 76 */
  char* PictureIcon;                 /**< picture that stands for the clip; tag 77 */
  char* ProxyFile;                   /**< file with a proxy of the clip; tag 78 */
  void* CustomMetadataBlock;         /**< CustomMetadataBlockSize bytes */
  char* ImageInfo; /**< a text in the store; to qlnInfoSet a block whose first 32-bit word is its length */
  char* UMID;      /**< unique material identifier (SMPTE ST 330) */
  char* XML;       /**< XML of any kind */
  char* XML_XMP;   /**< XMP packet */
  char* XML_MediaInfo; /**< media description as XML */
  char* NotUsed_87;    /**< not used; merged and stored as the others */
  char* NotUsed_88;    /**< not used; merged and stored as the others */
  char* NotUsed_89;    /**< not used; merged and stored as the others */
  char* NotUsed_90;    /**< not used; merged and stored as the others */
  char* NotUsed_91;    /**< not used; merged and stored as the others */
  char* NotUsed_92;    /**< not used; merged and stored as the others */
  char* NotUsed_93;    /**< not used; merged and stored as the others */
  char* NotUsed_94;    /**< not used; merged and stored as the others */
  char* NotUsed_95;    /**< not used; merged and stored as the others */
  char* NotUsed_96;    /**< not used; merged and stored as the others */
  char* NotUsed_97;    /**< not used; merged and stored as the others */
  char* NotUsed_98;    /**< not used; merged and stored as the others */
  char* NotUsed_99;    /**< not used; merged and stored as the others */

  uint32_t Reserved; /**< without a meaning yet; cleared by qlnInfoDelete */

  uint32_t TimeCode;                /**< first timecode, in frames; tag 4097 */
  uint32_t UserBits;                /**< user bits of the LTC; tag 4098 */
  uint32_t VITCTimeCode;            /**< first timecode of the VITC, in frames; tag 4099 */
  uint32_t VITCUserBits;            /**< user bits of the VITC; tag 4100 */
  uint32_t VITCExtraData;           /**< further data of the VITC; tag 4101 */
  uint32_t PosterFrame;             /**< frame that stands for the clip; tag 4102 */
  uint32_t A_Frame;                 /**< frame where the pulldown sequence begins; tag 4103 */
  uint32_t AspectRatio;             /**< aspect ratio; tag 4104 */
  uint32_t OriginalRate;            /**< frames per second = OriginalRate / OriginalScale; tag 4105 */
  uint32_t OriginalScale;           /**< see OriginalRate; tag 4106 */
  uint32_t TotalConversions;        /**< conversions so far; tag 4107 */
  uint32_t VersionNumber;           /**< version; written and never read back; tag 4108 */
  uint32_t FileSize;                /**< bytes, low 32 bits; tag 4109 */
  uint32_t FileDate;                /**< date of the file; tag 4110 */
  uint32_t FileTime;                /**< time of the file; tag 4111 */
  uint32_t SequenceNumber;          /**< number in a sequence; tag 4112 */
  uint32_t TotalStreams;            /**< streams of the clip; tag 4113 */
  uint32_t TotalLength;             /**< length of the clip in frames; tag 4114 */
  uint32_t FilmManufacturerCode;    /**< film manufacturer, as key numbers have it; tag 4115 */
  uint32_t FilmTypeCode;            /**< film type, as key numbers have it; tag 4116 */
  uint32_t WhitePoint;              /**< white point of film samples; tag 4117 */
  uint32_t BlackPoint;              /**< black point of film samples; tag 4118 */
  uint32_t BlackGain;               /**< gain of black; tag 4119 */
  uint32_t BreakPoint;              /**< break point of the curve; tag 4120 */
  uint32_t Gamma1000;               /**< gamma times 1000; tag 4121 */
  uint32_t TagNumber;               /**< number of a tag; tag 4122 */
  uint32_t Flags;                   /**< flags; tag 4123 */
  uint32_t TimeCodeType;            /**< timecode type of TimeCode; tag 4124 */
  uint32_t LTCTimeCodeType;         /**< timecode type of the LTC; tag 4125 */
  uint32_t VITCTimeCodeType;        /**< timecode type of the VITC; tag 4126 */
  uint32_t ProdDate;                /**< date of production; tag 4127 */
  uint32_t UniqueID;                /**< identifier; tag 4128 */
  uint32_t CustomMetadataBlockType; /**< kind of CustomMetadataBlock; tag 4129 */
  uint32_t CustomMetadataBlockSize; /**< bytes of CustomMetadataBlock */
  uint32_t NorthSouthEastWest;      /**< hemispheres of the next two */
  uint32_t Latitude;                /**< latitude */
  uint32_t Longitude;               /**< longitude */
  uint32_t Exposure;                /**< exposure of the camera */
  uint32_t RedGain;                 /**< gain of red */
  uint32_t BlueGain;                /**< gain of blue */
  uint32_t WhiteBalance;            /**< white balance */
  uint32_t Matrix;                  /**< colour matrix */
  uint32_t ISO;                     /**< sensitivity of the camera */
  uint32_t GreenGain;               /**< gain of green */
  uint32_t FileSizeHi;              /**< bytes, high 32 bits */
  uint32_t NumericNotUsed_46;       /**< not used; merged and stored as the others */
  uint32_t NumericNotUsed_47;       /**< not used; merged and stored as the others */
  uint32_t NumericNotUsed_48;       /**< not used; merged and stored as the others */
  uint32_t NumericNotUsed_49;       /**< not used; merged and stored as the others */

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
