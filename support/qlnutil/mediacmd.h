/// @file mediacmd.h
/// The transport command record, the words of its flags and state values, and its text forms.
///
/// A host fills a MediaCmd, hands it on, and turns it into XML text and back. The record crosses the
/// library's edge, so its fields, widths and offsets are fixed. No function keeps state; each works on the
/// records of its caller, on any thread, as long as no other thread changes them meanwhile.
///
/// How much of a record is looked at: the fixed fields always; the open data area from `ClipID` on as far as
/// `StructSize`, read as a signed number, says. Owners of longer records (preview frames) say so there. A
/// host that has read a stranger's text therefore sets `StructSize` to the size of its block before it hands
/// the record to a writer, to copyMediaCmd or to __dbgout_mediacmd: the readers store the number of the text
/// as it stands.
#ifndef QLNUTIL_MEDIACMD_H
#define QLNUTIL_MEDIACMD_H

#include "qlnutil/qlnapi.h"

/// The magic in `CmdID` of a valid command.
#define MEDIACMD_ID 0xFA250200u
/// The default of `StructSize` in bytes.
#define MEDIACMD_SIZE 4188
/// 100 percent forward play in the unit of `Speed`.
#define MEDIACMD_PLAY_SPEED 65520
/// No speed set.
#define MEDIACMD_NO_SPEED 0x7FFFFFFF

/// The commands that `Cmd` holds. Any other value is written as "Unknown" in the text forms.
enum MediaCmdCommand {
  ctStop = 0,
  ctPause = 1,
  ctPlay = 2,
  ctRecord = 3,
  ctRecStop = 4,
  ctEject = 5,
  ctTransfer = 6,
  ctInsert = 7,
  ctBlank = 8,
  ctDelete = 9,
  ctTrim = 10,
  ctChanSelect = 11,
  ctGetState = 12,
  ctSetState = 13,
  ctGetValue = 14, /**< `CmdAlt` names the state value, as for the next two */
  ctSetValue = 15,
  ctValueSupported = 16,
  ctError = 17,
  ctTerminate = 18,
  ctAbort = 19,
  ctEdit = 20,
  ctSwitch = 21
};

/* The bits of `Flags`, with the words that cfFromString knows for them. */
#define CF_DEFERRED 0x00000001u            /**< "deferred" */
#define CF_TIME_MS 0x00000002u             /**< "timems": `CmdAlt` is a time */
#define CF_TIME_TARGET 0x00000004u         /**< "timetarget": `CmdAlt` is a time */
#define CF_TIME_HOUSE_CLOCK 0x00000008u    /**< "timehouseclock": `CmdAlt` is a time */
#define CF_USE_SPEED 0x00000010u           /**< "usespeed": `Speed` is valid */
#define CF_USE_PRESETS 0x00000020u         /**< "usepresets": the three channel fields are valid */
#define CF_USE_POSITION 0x00000040u        /**< "useposition" */
#define CF_USE_POSITION_OFFSET 0x00000080u /**< "usepositionoffset" */
#define CF_USE_START 0x00000100u           /**< "usestart" */
#define CF_USE_START_OFFSET 0x00000200u    /**< "usestartoffset" */
#define CF_USE_END 0x00000400u             /**< "useend" */
#define CF_USE_END_OFFSET 0x00000800u      /**< "useendoffset" */
#define CF_USE_ALL_IDS 0x00001000u         /**< "useallids" */
#define CF_USE_CLIP_ID 0x00002000u         /**< "useclipid": the data area is valid */
#define CF_NO_CLIP_FILES 0x00004000u       /**< "copy", "noclipfiles" */
#define CF_NO_TC_SPACES 0x00008000u        /**< "convert", "notcspaces" */
#define CF_USE_CMD_ALT 0x00010000u         /**< "usecmdalt": `CmdAlt` is an alternate value */
#define CF_IS_SHUTTLE 0x00020000u          /**< "isshuttle" */
#define CF_USING_CURRENT 0x00040000u       /**< "usingcurrent" */
#define CF_USE_FRAME_COUNT 0x00080000u     /**< "useframecount" */
#define CF_FIELDS 0x00100000u              /**< "fields": positions count fields */
#define CF_RIPPLE 0x00200000u              /**< "ripple" */
#define CF_LOOP 0x00400000u                /**< "loop" */
#define CF_TRIGGER 0x00800000u             /**< "trigger" */
#define CF_PREVIEW 0x01000000u           /**< "preview"; has no place in the text forms, as the next three */
#define CF_REMOTE_COMMAND 0x02000000u    /**< "remotecommand" */
#define CF_OVER_24_HOURS 0x04000000u     /**< "over24hours" */
#define CF_SECOND_FIELD 0x08000000u      /**< "secondfield", "usenextfield" */
#define CF_INVERT 0x10000000u            /**< "invert" */
#define CF_TEST 0x20000000u              /**< "test" */
#define CF_OVERRIDE_DEFERRED 0x40000000u /**< "overridedeferred", "ignore" */
#define CF_NO_RETURN 0x80000000u         /**< "noreturn" */

/* Buffers for a word with its terminator. */
#define CF_WORD_SIZE 18 /**< what cfToString needs */
#define GS_WORD_SIZE 31 /**< what gsToString needs */

#pragma pack(push, 4)
/// One transport command. Little-endian, without gaps; the caller owns it and whatever the links point to.
typedef struct MediaCmd {
  void* prev;            /**< link of the caller's command list; null when not linked */
  void* next;            /**< link, as above */
  void* list;            /**< link, as above */
  uint32_t CmdID;        /**< MEDIACMD_ID */
  uint32_t StructSize;   /**< bytes from the record's start that are valid; 4188 by default */
  int32_t Channel;       /**< channel number; -1 when none is set */
  uint32_t Cmd;          /**< MediaCmdCommand */
  uint32_t Flags;        /**< CF_ bits */
  int32_t Speed;         /**< 65520 is 100 percent forward play; MEDIACMD_NO_SPEED when no speed is set */
  int32_t VideoChannels; /**< video preset mask, -1 for all; with CF_USE_PRESETS and CF_USE_FRAME_COUNT both
                              set, the timecode of the control track, in frames */
  int32_t AudioChannels; /**< audio preset mask, -1 for all; in the same case the LTC */
  int32_t InfoChannels;  /**< info preset mask, -1 for all; in the same case the VITC */
  int32_t CmdAlt;        /**< second operand: state value, time or alternate value; -1 when none is set */
  int32_t Position;      /**< in frames, or fields with CF_FIELDS; -1 when none is set */
  int32_t Start;         /**< start point, as Position */
  int32_t End;           /**< end point, as Position */
  char ClipID[9];        /**< at most 8 characters and a terminator; where the last byte is not zero, the area
                              from here on holds one longer text */
  char FileName[4103];   /**< NUL-terminated */
} MediaCmd;
#pragma pack(pop)

QLN_STATIC_ASSERT(sizeof(MediaCmd) == MEDIACMD_SIZE, "MediaCmd has 4188 bytes");
QLN_STATIC_ASSERT(offsetof(MediaCmd, CmdID) == 24, "three links stand in front of CmdID");
QLN_STATIC_ASSERT(offsetof(MediaCmd, Flags) == 40, "Flags stands at 40");
QLN_STATIC_ASSERT(offsetof(MediaCmd, CmdAlt) == 60, "CmdAlt stands at 60");
QLN_STATIC_ASSERT(offsetof(MediaCmd, End) == 72, "End stands at 72");
QLN_STATIC_ASSERT(offsetof(MediaCmd, ClipID) == 76, "the data area begins at 76");
QLN_STATIC_ASSERT(offsetof(MediaCmd, FileName) == 85, "FileName stands at 85");

QLN_C_BEGIN

/// Sets a record to its defaults: all zero but CmdID, StructSize 4188, Speed MEDIACMD_NO_SPEED, and -1 in
/// Channel and in the seven fields from VideoChannels to End.
/// @param[out] command a whole record of 4188 bytes; null does nothing. @param cmd goes into `Cmd`.
QLN_API void initMediaCmd(MediaCmd* command, uint32_t cmd);

/// Makes a command usable that was filled without presets or speed.
/// Without CF_USE_PRESETS the three channel fields become -1. Without CF_USE_SPEED, play and record get
/// `Speed` 65520, and stop, pause, record stop, eject, terminate and abort get 0, each with CF_USE_SPEED;
/// other commands keep their speed.
/// @param[in,out] command the record; null gives 0. @param mask the flags that are looked at, 0 for all. A
/// mask without CF_USE_SPEED forces the default speed over one that the flags declare valid.
/// @return the record's flags afterwards.
QLN_API uint32_t fixMediaCmd(MediaCmd* command, uint32_t mask);

/// Merges a command into a record that may already carry flags. `StructSize` and the links of the destination
/// stay; `Position`, `Start` and `End` are always copied; `CmdAlt`, the presets and the texts only where the
/// source's flags (for `CmdAlt` also its command) say that they are valid. A speed that the source lacks
/// becomes the command's default, or MEDIACMD_NO_SPEED; in that last case a CF_USE_SPEED of the destination
/// stays set. `FileName` is copied up to 4099 bytes within both records, unless one of them ends before
/// byte 86.
/// @param[in,out] destination, source whole records, not overlapping; null does nothing.
/// @param mask the source's flags that are added to those of the destination. The flags that say which of the
/// fields above are valid come with their fields whatever it says. What the source lacks of CF_DEFERRED,
/// CF_OVERRIDE_DEFERRED, the three of time, CF_USE_ALL_IDS, CF_NO_CLIP_FILES, CF_NO_TC_SPACES, CF_LOOP,
/// CF_RIPPLE, CF_INVERT, CF_TEST and CF_NO_RETURN goes out of the destination's flags.
QLN_API void copyMediaCmd(MediaCmd* destination, const MediaCmd* source, uint32_t mask);

/// Looks a flag's word up, whatever its case (ASCII).
/// @param word NUL-terminated. @param[out] value the bit; may be null.
/// @return 0; 0xFFFFFFFF for a word that is not in the table and for null, and then @p value stays.
QLN_API uint32_t cfFromString(const char* word, uint32_t* value);

/// Gives the (first) word of a flag bit.
/// @param value one bit. @param[out] word buffer of CF_WORD_SIZE (18) bytes; may be null.
/// @return 0; 0xFFFFFFFF for a value that is not in the table, and then @p word stays.
QLN_API uint32_t cfToString(uint32_t value, char* word);

/// Looks a state value's word up, whatever its case (ASCII).
/// @param word NUL-terminated. @param[out] value the identifier, as `CmdAlt` holds it; may be null.
/// @return 0; 0xFFFFFFFF for a word that is not in the table and for null, and then @p value stays.
QLN_API uint32_t gsFromString(const char* word, uint32_t* value);

/// Gives the (first) word of a state value.
/// @param value the identifier. @param[out] word buffer of GS_WORD_SIZE (31) bytes; may be null.
/// @return 0; 0xFFFFFFFF for an identifier that is not in the table, and then @p word stays.
QLN_API uint32_t gsToString(uint32_t value, char* word);

/// Sends one line about a command to OutputDebugStringA; nothing for ctGetState, ctSetState and null.
/// The line is cut at 1039 characters. A clip identifier or file name that has no terminator within the
/// record ends the line in front of both, and "WARNING(vuMCmd): %s\n" with "Exception: outputing mediacmd to
/// string" goes through ErrFmtOut.
/// @param command the record, valid for `StructSize` bytes.
QLN_API void __dbgout_mediacmd(const MediaCmd* command);  // NOLINT(cert-dcl37-c,cert-dcl51-cpp)

/// Sends a timecode's text to OutputDebugStringA.
/// @param timecode in frames. @param tcType timecode type; 0 prints as non-drop-frame.
QLN_API void __dbgout_tc(uint32_t timecode, uint8_t tcType);  // NOLINT(cert-dcl37-c,cert-dcl51-cpp)

/* ---- XML ---------------------------------------------------------------------------------------------- */

/// Writes a command as the compact text of an XML document, declared as iso-8859-1, as MediaCmdToXML makes
/// it.
/// @param[out] text receives a text that the caller releases with MediaCmdFreeXMLString; stays as it was
/// where there is no memory. Null does nothing.
/// @param[in,out] command valid for `StructSize` bytes; null does nothing. Under the state value
/// "metabasefilename" a "$" in `FileName` is overwritten by zero.
/// @param tcType timecode type of the points' texts; only its low byte counts.
/// @return 0.
QLN_API uint32_t MediaCmdToXMLString(char** text, MediaCmd* command, uint32_t tcType);

/// Releases a text of MediaCmdToXMLString and sets its pointer to null. @param[in,out] text null, or a
/// pointer that may be null. @return 0.
QLN_API uint32_t MediaCmdFreeXMLString(char** text);

/// Reads a command from XML text: initialises the record with `Cmd` 0, then goes on as MediaCmdFromXML. Text
/// that breaks off counts as far as it goes; elements deeper than 1000, and what follows an element's 2000th
/// attribute, count as broken off, and so does what takes more time than grows with the text's size: nodes
/// times their depth may come to 1,000,000, and attributes times those in front of them in their element to
/// 2,000,000, with 8 more for each byte.
/// @param[out] command a whole record of 4188 bytes. @param tcType timecode type of points that are given as
/// text only; null for drop-frame. @param text NUL-terminated; stays as it is.
/// @return 0; 0xFFFFFFFF for a null command; 0xFFFFFFFE without a root "MediaCmd" or "ClipInfo", for null
/// text, and without memory; 0xFFFFFFFD where the root of that name is no element. The record is initialised
/// in all but the first case.
QLN_API uint32_t MediaCmdFromXMLString(MediaCmd* command, const uint32_t* tcType, const char* text);

#ifdef __cplusplus
/// Adds a command to an XML document (TinyXML): a declaration, and a root "MediaCmd" with a comment and one
/// element for each field that flags, command and state value call for. Blanks are kept in the document but
/// condensed by the parser that reads them back.
///
/// Not everything comes back through MediaCmdFromXML: the flags of preview, remote command, 24 hours and
/// second field are not written; "OverrideDeferred", the channel timecodes, aliases, names and tags are not
/// read; base64 data is taken for hexadecimal; a play command without a speed comes back with one.
/// @param[in,out] document where to add; nothing in it is cleared. Null does nothing. Without memory it keeps
/// what was added until then.
/// @param[in,out] command, tcType as for MediaCmdToXMLString.
/// @return 0. A file name without terminator within the record is left out, with "WARNING(XMLmCmd): %s\n"
/// through ErrFmtOut: "Exception: MediaCmdToXML() " for one that fills the area from `ClipID` on, "Exception:
///  MediaCmdToXML(ClipID) " for one in its own place. Other texts are cut at the record's end.
QLN_API uint32_t MediaCmdToXML(class TiXmlDocument* document, MediaCmd* command, uint32_t tcType);

/// Reads a command from an XML document (TinyXML). A field whose element is missing stays as it was, flags
/// are ORed into those present, and nothing is validated: `StructSize` and `CmdID` are stored as the text has
/// them.
///
/// Every bound is the greater of 4188 and the `StructSize` that the record has on entry (below 2^31): texts
/// are cut there, and an "arbID" whose length lies outside of it, or is not zero without a text, is passed
/// over. A shorter "arbID" text is decoded as far as it goes.
/// @param[in,out] command a whole record of at least that size. @param tcType as for MediaCmdFromXMLString.
/// @param document read and left alone; the function has a copy of its own.
/// @return as MediaCmdFromXMLString; the record is untouched where it is not 0.
QLN_API uint32_t MediaCmdFromXML(MediaCmd* command, const uint32_t* tcType, class TiXmlDocument document);
#endif

QLN_C_END

#endif
