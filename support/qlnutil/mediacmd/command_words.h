// The words of commands, flags and state values, and the state values that change what a command carries.
#ifndef QLNUTIL_MEDIACMD_COMMAND_WORDS_H
#define QLNUTIL_MEDIACMD_COMMAND_WORDS_H

#include <cstdint>
#include <string_view>

#include "qlnutil/mediacmd.h"

namespace qln {

// What stands in front of a command in XML.
inline constexpr std::string_view kCommandComment = " Morvane MEDIACMD xml structure version 1,0 ";

// A value and its word, stored inline so that the tables need no relocation when the library is loaded.
struct WordRow {
  uint32_t value;
  char word[GS_WORD_SIZE + 1];
};

// In search order; a bit with two words gives the first one.
inline constexpr size_t kFlagWordCount = 36;
extern const WordRow kFlagWords[kFlagWordCount];

inline constexpr size_t kStateValueCount = 460;
extern const WordRow kStateValues[kStateValueCount];

// State values that give the data area, or the timecode text of a point, a meaning of their own.
inline constexpr int32_t kStateFrameData = 25;
inline constexpr int32_t kStateMetadata = 150;
inline constexpr int32_t kStateMetabaseFileName = 162;
inline constexpr int32_t kStateMetabaseGetTag = 166;
inline constexpr int32_t kStateIpVideoSettings = 801;
inline constexpr int32_t kStateIpVideoClock = 802;
inline constexpr int32_t kStateChannelName = 1054;
inline constexpr int32_t kStateQlnType = 60002;
inline constexpr int32_t kStatePreviewFrame = 1000007;
inline constexpr int32_t kStateQlnService = 1100000;
inline constexpr int32_t kStateInsertQueue = 1100001;
inline constexpr int32_t kStateXlatQueue = 1100002;

// The commands whose `CmdAlt` names a state value.
constexpr bool IsValueCommand(uint32_t cmd) { return cmd >= ctGetValue && cmd <= ctValueSupported; }

// The commands that run at nominal speed when they carry none.
constexpr bool IsRunningCommand(uint32_t cmd) { return cmd == ctPlay || cmd == ctRecord; }

// The commands that stand still when they carry no speed.
constexpr bool IsHaltingCommand(uint32_t cmd) {
  return cmd == ctStop || cmd == ctPause || cmd == ctRecStop || cmd == ctEject || cmd == ctTerminate ||
         cmd == ctAbort;
}

// Lower case without the locale that a host may have set.
constexpr char AsciiLower(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; }

// "Stop" for ctStop and so on; "Unknown" above ctSwitch. The enumerator's name is the word behind "ct".
std::string_view CommandWord(uint32_t cmd);

// The command whose word the text begins with, whatever the case. ctSwitch is not among them: it comes back
// from text forms only as a number.
// Returns false, and leaves `cmd`, where there is none.
bool CommandFromText(std::string_view text, uint32_t& cmd);

struct FlagName {
  uint32_t flag;
  std::string_view name;
};

// The flags that stand on the command itself, in their order.
inline constexpr FlagName kCommandFlags[] = {
    {CF_DEFERRED, "Deferred"},
    {CF_OVERRIDE_DEFERRED, "OverrideDeferred"},
    {CF_LOOP, "Loop"},
    {CF_TRIGGER, "Trigger"},
    {CF_RIPPLE, "Ripple"},
    {CF_INVERT, "Invert"},
    {CF_TEST, "Test"},
    {CF_NO_RETURN, "NoReturn"},
    {CF_USE_ALL_IDS, "UseAllIDs"},
    {CF_USE_CLIP_ID, "UseClipID"},
    {CF_NO_CLIP_FILES, "NoClipFiles"},
    {CF_NO_TC_SPACES, "NoTCSpaces"},
};

// The flags that make `CmdAlt` a time.
inline constexpr FlagName kCmdAltTimes[] = {
    {CF_TIME_MS, "TimeMs"}, {CF_TIME_TARGET, "TimeTarget"}, {CF_TIME_HOUSE_CLOCK, "TimeHouseClock"}};

// The flags that all points in time share.
inline constexpr FlagName kPointFlags[] = {
    {CF_USING_CURRENT, "UsingCurrent"}, {CF_USE_FRAME_COUNT, "UsingFrameCount"}, {CF_FIELDS, "IsFieldCount"}};

// `Speed` in percent of forward play, truncated toward zero. The product wraps at 32 bits, so that
// MEDIACMD_NO_SPEED counts as 0.
constexpr int32_t SpeedPercent(int32_t speed) {
  return static_cast<int32_t>(static_cast<uint32_t>(speed) * 100u) / MEDIACMD_PLAY_SPEED;
}

}  // namespace qln

#endif
