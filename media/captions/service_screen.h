// What a digital caption service (CTA-708) shows: its windows, as far as their text goes.
#ifndef CAPTIONS_SERVICE_SCREEN_H
#define CAPTIONS_SERVICE_SCREEN_H

#include <array>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "captions/cdp.h"

namespace qlnmedia::captions {

// Carries out the commands of one service. Colours, fonts, effects and delays are passed over: they do not
// change the text.
class ServiceScreen {
 public:
  // Carries out the commands and characters of a service block. A command that the block cuts off waits for
  // the next one.
  void Add(std::span<const uint8_t> block);

  // The text in all visible windows as UTF-8, from the top of the screen to the bottom, lines separated by
  // '\n', without blanks at their ends and without empty lines.
  std::string Text() const;

 private:
  struct Window {
    bool defined = false;
    bool visible = false;
    int top = 0;   // of the anchor point, in percent of the picture's height
    int left = 0;  // in percent of its width
    int rows = 0;
    int columns = 0;
    int row = 0;  // of the pen
    int column = 0;
    std::vector<std::u16string> text;  // a row each, '\0' where nothing was written
  };

  size_t Take(std::span<const uint8_t> bytes);
  size_t TakeExtended(std::span<const uint8_t> bytes);
  void Command(std::span<const uint8_t> command);
  void Define(int number, std::span<const uint8_t> parameters);
  void Put(char16_t character);
  void Control(uint8_t code);
  void ForEach(uint8_t mask, void (*change)(Window&));
  Window* current();

  std::array<Window, 8> windows_;
  int current_ = -1;
  Bytes waiting_;  // the beginning of a command that was cut off
};

}  // namespace qlnmedia::captions

#endif
