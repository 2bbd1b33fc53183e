// Carries out the commands of a digital caption service.

#include "captions/service_screen.h"

#include <algorithm>
#include <tuple>

#include "captions/service_codes.h"

namespace qlnmedia::captions {
namespace {

// Codes of C0, C1 and the pages behind EXT1.
constexpr uint8_t kErase = 0x08;
constexpr uint8_t kFormFeed = 0x0C;
constexpr uint8_t kHorizontalReturn = 0x0E;
constexpr uint8_t kExtension = 0x10;
constexpr uint8_t kTwoByteCharacter = 0x18;
constexpr uint8_t kFirstC1 = 0x80;
constexpr uint8_t kClearWindows = 0x88;
constexpr uint8_t kDisplayWindows = 0x89;
constexpr uint8_t kHideWindows = 0x8A;
constexpr uint8_t kToggleWindows = 0x8B;
constexpr uint8_t kReset = 0x8F;
constexpr uint8_t kSetPenLocation = 0x92;
constexpr uint8_t kFirstG1 = 0xA0;

constexpr char16_t kMusicNote = u'\u266A';
constexpr char16_t kNoSuchCharacter = u'_';
constexpr int kMostRows = 15;
constexpr int kMostColumns = 42;

// Bytes of a command of C1, its code included.
constexpr uint8_t kC1Sizes[32] = {1, 1, 1, 1, 1, 1, 1, 1, 2, 2, 2, 2, 2, 2, 1, 1,
                                  3, 4, 3, 1, 1, 1, 1, 5, 7, 7, 7, 7, 7, 7, 7, 7};

// The characters of G2, from 0x20 on; 0 where there is none.
constexpr char16_t kG2[96] = {
    u' ',      0xA0,      0,         0,         0,         u'\u2026', 0,         0,         0,
    0,         u'\u0160', 0,         u'\u0152', 0,         0,         0,         u'\u2588', u'\u2018',
    u'\u2019', u'\u201C', u'\u201D', u'\u2022', 0,         0,         0,         u'\u2122', u'\u0161',
    0,         u'\u0153', u'\u2120', 0,         u'\u0178', 0,         0,         0,         0,
    0,         0,         0,         0,         0,         0,         0,         0,         0,
    0,         0,         0,         0,         0,         0,         0,         0,         0,
    0,         0,         0,         0,         0,         0,         0,         0,         0,
    0,         0,         0,         0,         0,         0,         0,         0,         0,
    0,         0,         0,         0,         0,         0,         0,         0,         0,
    0,         0,         0,         0,         0,         u'\u215B', u'\u215C', u'\u215D', u'\u215E',
    u'\u2502', u'\u2510', u'\u2514', u'\u2500', u'\u2518', u'\u250C'};

void AppendCharacter(char16_t c, std::string* text) {
  if (c < 0x80) {
    *text += static_cast<char>(c);
  } else if (c < 0x800) {
    *text += static_cast<char>(0xC0 | c >> 6);
    *text += static_cast<char>(0x80 | (c & 0x3F));
  } else {
    *text += static_cast<char>(0xE0 | c >> 12);
    *text += static_cast<char>(0x80 | (c >> 6 & 0x3F));
    *text += static_cast<char>(0x80 | (c & 0x3F));
  }
}

}  // namespace

void ServiceScreen::Add(std::span<const uint8_t> block) {
  waiting_.insert(waiting_.end(), block.begin(), block.end());
  size_t at = 0;
  while (at < waiting_.size()) {
    const size_t size = Take(std::span<const uint8_t>(waiting_).subspan(at));
    if (size == 0) break;
    at += size;
  }
  waiting_.erase(waiting_.begin(), waiting_.begin() + static_cast<std::ptrdiff_t>(at));
}

// Each Take gives the bytes that it took; 0 where more must come.
size_t ServiceScreen::Take(std::span<const uint8_t> bytes) {
  const uint8_t code = bytes[0];
  if (code == kExtension) return TakeExtended(bytes);
  if (code < 0x20) {
    const size_t size = code < 0x10 ? 1 : code < kTwoByteCharacter ? 2 : 3;
    if (size > bytes.size()) return 0;
    if (code == kTwoByteCharacter)
      Put(static_cast<char16_t>(bytes[1] << 8 | bytes[2]));
    else
      Control(code);
    return size;
  }
  if (code >= kFirstC1 && code < kFirstG1) {
    const size_t size = kC1Sizes[code - kFirstC1];
    if (size > bytes.size()) return 0;
    Command(bytes.first(size));
    return size;
  }
  // G0 is ASCII but for its last place, G1 is Latin 1.
  Put(code == 0x7F ? kMusicNote : code);
  return 1;
}

size_t ServiceScreen::TakeExtended(std::span<const uint8_t> bytes) {
  if (bytes.size() < 2) return 0;
  const uint8_t code = bytes[1];
  size_t size = 2;
  if (code < 0x20) {
    size += code / 8;  // C2: 0 to 3 bytes follow
  } else if (code >= 0x80 && code < 0x90) {
    size += code < 0x88 ? 4 : 5;  // C3
  } else if (code >= 0x90 && code < 0xA0) {
    if (bytes.size() < 3) return 0;
    size += 1 + (bytes[2] & 0x3F);  // C3 of any length
  }
  if (size > bytes.size()) return 0;
  if (code >= 0x20 && code < 0x80) Put(kG2[code - 0x20] != 0 ? kG2[code - 0x20] : kNoSuchCharacter);
  if (code >= 0xA0) Put(kNoSuchCharacter);  // G3: a picture
  return size;
}

void ServiceScreen::Control(uint8_t code) {
  Window* const window = current();
  if (window == nullptr) return;
  if (code == kErase && window->column > 0) {
    --window->column;
    window->text[static_cast<size_t>(window->row)][static_cast<size_t>(window->column)] = 0;
  } else if (code == kFormFeed) {
    for (std::u16string& row : window->text) row.assign(row.size(), 0);
    window->row = window->column = 0;
  } else if (code == kHorizontalReturn) {
    std::u16string& row = window->text[static_cast<size_t>(window->row)];
    row.assign(row.size(), 0);
    window->column = 0;
  } else if (code == kCarriageReturn) {
    window->column = 0;
    if (++window->row < window->rows) return;
    window->row = window->rows - 1;
    std::rotate(window->text.begin(), window->text.begin() + 1, window->text.end());
    window->text.back().assign(window->text.back().size(), 0);
  }
}

void ServiceScreen::Command(std::span<const uint8_t> command) {
  const uint8_t code = command[0];
  if (code < kFirstC1 + 8) {
    current_ = code - kFirstC1;
  } else if (code >= kDefineWindow0) {
    Define(code - kDefineWindow0, command.subspan(1));
  } else if (code == kReset) {
    windows_ = {};
    current_ = -1;
  } else if (code == kClearWindows) {
    ForEach(command[1], [](Window& w) {
      for (std::u16string& row : w.text) row.assign(row.size(), 0);
    });
  } else if (code == kDisplayWindows) {
    ForEach(command[1], [](Window& w) { w.visible = true; });
  } else if (code == kHideWindows) {
    ForEach(command[1], [](Window& w) { w.visible = false; });
  } else if (code == kToggleWindows) {
    ForEach(command[1], [](Window& w) { w.visible = !w.visible; });
  } else if (code == kDeleteWindows) {
    ForEach(command[1], [](Window& w) { w = Window(); });
  } else if (code == kSetPenLocation && current() != nullptr) {
    Window& window = *current();
    window.row = std::min(command[1] & 0x0F, window.rows - 1);
    window.column = std::min(command[2] & 0x3F, window.columns - 1);
  }
}

void ServiceScreen::Define(int number, std::span<const uint8_t> p) {
  current_ = number;
  Window& window = windows_[static_cast<size_t>(number)];
  window.visible = (p[0] & 0x20) != 0;
  const bool relative = (p[1] & 0x80) != 0;  // else 75 rows, and 210 columns of a wide picture
  window.top = relative ? p[1] & 0x7F : (p[1] & 0x7F) * 100 / 75;
  window.left = relative ? p[2] : p[2] * 100 / 210;
  const int rows = std::min((p[3] & 0x0F) + 1, kMostRows);
  const int columns = std::min((p[4] & 0x3F) + 1, kMostColumns);
  if (!window.defined) window.row = window.column = 0;
  window.defined = true;
  window.rows = rows;
  window.columns = columns;
  window.row = std::min(window.row, rows - 1);
  window.column = std::min(window.column, columns);
  window.text.resize(static_cast<size_t>(rows));
  for (std::u16string& row : window.text) row.resize(static_cast<size_t>(columns), 0);
}

void ServiceScreen::Put(char16_t character) {
  Window* const window = current();
  if (window == nullptr || window->column >= window->columns) return;
  window->text[static_cast<size_t>(window->row)][static_cast<size_t>(window->column++)] = character;
}

void ServiceScreen::ForEach(uint8_t mask, void (*change)(Window&)) {
  for (size_t i = 0; i < windows_.size(); ++i) {
    if ((mask >> i & 1) != 0 && windows_[i].defined) change(windows_[i]);
  }
}

ServiceScreen::Window* ServiceScreen::current() {
  if (current_ < 0 || !windows_[static_cast<size_t>(current_)].defined) return nullptr;
  return &windows_[static_cast<size_t>(current_)];
}

std::string ServiceScreen::Text() const {
  std::vector<const Window*> shown;
  for (const Window& window : windows_) {
    if (window.defined && window.visible) shown.push_back(&window);
  }
  std::stable_sort(shown.begin(), shown.end(), [](const Window* a, const Window* b) {
    return std::tie(a->top, a->left) < std::tie(b->top, b->left);
  });
  std::string text;
  for (const Window* window : shown) {
    for (const std::u16string& row : window->text) {
      const size_t begin = row.find_first_not_of(std::u16string_view(u"\0 ", 2));
      if (begin == std::u16string::npos) continue;
      const size_t end = row.find_last_not_of(std::u16string_view(u"\0 ", 2)) + 1;
      if (!text.empty()) text += '\n';
      for (const char16_t c : row.substr(begin, end - begin)) AppendCharacter(c == 0 ? u' ' : c, &text);
    }
  }
  return text;
}

}  // namespace qlnmedia::captions
