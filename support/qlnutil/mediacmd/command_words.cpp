// Look-ups in the word tables, and the tables of commands and flags.

#include "qlnutil/mediacmd/command_words.h"

#include <cstring>
#include <iterator>

namespace qln {

constexpr WordRow kFlagWords[kFlagWordCount] = {
    {CF_DEFERRED, "deferred"},
    {CF_OVERRIDE_DEFERRED, "overridedeferred"},
    {CF_TIME_MS, "timems"},
    {CF_TIME_TARGET, "timetarget"},
    {CF_TIME_HOUSE_CLOCK, "timehouseclock"},
    {CF_USE_SPEED, "usespeed"},
    {CF_USE_PRESETS, "usepresets"},
    {CF_USE_POSITION, "useposition"},
    {CF_USE_POSITION_OFFSET, "usepositionoffset"},
    {CF_USE_START, "usestart"},
    {CF_USE_START_OFFSET, "usestartoffset"},
    {CF_USE_END, "useend"},
    {CF_USE_END_OFFSET, "useendoffset"},
    {CF_USE_ALL_IDS, "useallids"},
    {CF_USE_CLIP_ID, "useclipid"},
    {CF_NO_CLIP_FILES, "copy"},
    {CF_NO_CLIP_FILES, "noclipfiles"},
    {CF_NO_TC_SPACES, "convert"},
    {CF_NO_TC_SPACES, "notcspaces"},
    {CF_USE_CMD_ALT, "usecmdalt"},
    {CF_IS_SHUTTLE, "isshuttle"},
    {CF_USING_CURRENT, "usingcurrent"},
    {CF_USE_FRAME_COUNT, "useframecount"},
    {CF_FIELDS, "fields"},
    {CF_RIPPLE, "ripple"},
    {CF_LOOP, "loop"},
    {CF_TRIGGER, "trigger"},
    {CF_PREVIEW, "preview"},
    {CF_REMOTE_COMMAND, "remotecommand"},
    {CF_OVER_24_HOURS, "over24hours"},
    {CF_SECOND_FIELD, "secondfield"},
    {CF_SECOND_FIELD, "usenextfield"},
    {CF_INVERT, "invert"},
    {CF_TEST, "test"},
    {CF_OVERRIDE_DEFERRED, "ignore"},
    {CF_NO_RETURN, "noreturn"},
};
static_assert(kFlagWords[kFlagWordCount - 1].word[0] != 0, "36 words name the flags");

namespace {

constexpr uint32_t kFound = 0;
constexpr uint32_t kNotFound = 0xFFFFFFFFu;

constexpr std::string_view kUnknownCommand = "Unknown";

constexpr char kCommandWords[ctSwitch + 1][16] = {
    "Stop",           "Pause",  "Play",      "Record",     "RecStop",  "Eject",    "Transfer", "Insert",
    "Blank",          "Delete", "Trim",      "ChanSelect", "GetState", "SetState", "GetValue", "SetValue",
    "ValueSupported", "Error",  "Terminate", "Abort",      "Edit",     "Switch",
};

bool EqualIgnoringCase(std::string_view a, std::string_view b) {
  if (a.size() != b.size()) return false;
  for (size_t i = 0; i < a.size(); ++i) {
    if (AsciiLower(a[i]) != AsciiLower(b[i])) return false;
  }
  return true;
}

template <size_t N>
uint32_t ValueOf(const WordRow (&table)[N], const char* word, uint32_t* value) {
  if (word == nullptr) return kNotFound;
  const std::string_view wanted(word);
  for (const WordRow& row : table) {
    if (!EqualIgnoringCase(row.word, wanted)) continue;
    if (value != nullptr) *value = row.value;
    return kFound;
  }
  return kNotFound;
}

template <size_t N>
uint32_t WordOf(const WordRow (&table)[N], uint32_t value, char* word) {
  for (const WordRow& row : table) {
    if (row.value != value) continue;
    if (word != nullptr) std::memcpy(word, row.word, std::strlen(row.word) + 1);
    return kFound;
  }
  return kNotFound;
}

}  // namespace

std::string_view CommandWord(uint32_t cmd) {
  return cmd < std::size(kCommandWords) ? std::string_view(kCommandWords[cmd]) : kUnknownCommand;
}

bool CommandFromText(std::string_view text, uint32_t& cmd) {
  for (uint32_t i = ctStop; i < ctSwitch; ++i) {
    const std::string_view word(kCommandWords[i]);
    if (!EqualIgnoringCase(text.substr(0, word.size()), word)) continue;
    cmd = i;
    return true;
  }
  return false;
}

}  // namespace qln

uint32_t cfFromString(const char* word, uint32_t* value) {
  return qln::ValueOf(qln::kFlagWords, word, value);
}
uint32_t cfToString(uint32_t value, char* word) { return qln::WordOf(qln::kFlagWords, value, word); }
uint32_t gsFromString(const char* word, uint32_t* value) {
  return qln::ValueOf(qln::kStateValues, word, value);
}
uint32_t gsToString(uint32_t value, char* word) { return qln::WordOf(qln::kStateValues, value, word); }
