// Looks for the attribute's name as text, then compares the word behind its quote.

#include "qlnutil/clipinfo/tc_type_from_text.h"

#include <cstring>

namespace qln {
namespace {

struct TypeWord {
  const char* word;
  uint32_t type;
};

// In this order: the first that the value begins with counts.
constexpr TypeWord kTypeWords[] = {{"frames", 0}, {"23.98", 132},    {"film-drop", 128},    {"film", 1},
                                   {"pal", 8},    {"drop-frame", 4}, {"non-drop-frame", 4}, {"50", 16},
                                   {"59.94", 32}, {"60", 64}};

constexpr const char* kSpellings[] = {"TcType=", "tctype=", "TCTYPE="};
constexpr size_t kValueOffset = 8;  // the spelling and its quote

const char* FindAttribute(const char* text) {
  for (const char* const spelling : kSpellings) {
    if (const char* const found = std::strstr(text, spelling)) return found;
  }
  return nullptr;
}

char Lower(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; }

bool BeginsWith(const char* text, const char* lowerWord) {
  for (; *lowerWord != '\0'; ++text, ++lowerWord) {
    if (Lower(*text) != *lowerWord) return false;
  }
  return true;
}

}  // namespace

uint32_t QLNInfoTcTypeFromText(const char* text) {
  if (text == nullptr) return 0;
  const char* const attribute = FindAttribute(text);
  if (attribute == nullptr || attribute[kValueOffset - 1] == '\0') return 0;
  for (const TypeWord& candidate : kTypeWords) {
    if (BeginsWith(attribute + kValueOffset, candidate.word)) return candidate.type;
  }
  return 0;
}

}  // namespace qln
