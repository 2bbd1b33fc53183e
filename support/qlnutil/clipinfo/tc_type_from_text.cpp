// Looks for the attribute's name as text, then compares the word behind its quote.

#include "qlnutil/clipinfo/tc_type_from_text.h"

#include <cstring>

#include "timecode/timecode_types.h"

namespace qln {
namespace {

// In this order: the first whose word the value begins with counts.
constexpr uint8_t kTypes[] = {kTcFrames,    kTc23_98,        kTcFilmDrop, kTcFilm,  kTcPal,
                              kTcDropFrame, kTcNonDropFrame, kTc50,       kTc59_94, kTc60};

constexpr const char* kSpellings[] = {"TcType=", "tctype=", "TCTYPE="};
constexpr size_t kValueOffset = 8;  // the spelling and its quote

const char* FindAttribute(const char* text) {
  for (const char* const spelling : kSpellings) {
    if (const char* const found = std::strstr(text, spelling)) return found;
  }
  return nullptr;
}

char Lower(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; }

bool BeginsWith(const char* text, std::string_view lowerWord) {
  for (const char c : lowerWord) {
    if (Lower(*text++) != c) return false;
  }
  return true;
}

}  // namespace

uint32_t QLNInfoTcTypeFromText(const char* text) {
  if (text == nullptr) return 0;
  const char* const attribute = FindAttribute(text);
  if (attribute == nullptr || attribute[kValueOffset - 1] == '\0') return 0;
  for (const uint8_t type : kTypes) {
    if (!BeginsWith(attribute + kValueOffset, FindTimecodeType(type)->word)) continue;
    return type == kTcNonDropFrame ? kTcDropFrame : type;
  }
  return 0;
}

}  // namespace qln
