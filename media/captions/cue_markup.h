// The markup in the text of cues: what it says of looks and places, and the text without it.
#ifndef CAPTIONS_CUE_MARKUP_H
#define CAPTIONS_CUE_MARKUP_H

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "captions/line21_look.h"

namespace qlnmedia::captions {

// Goes through the lines of one cue; tags that stay open go on in the next line.
class CueMarkup {
 public:
  explicit CueMarkup(bool vtt) : vtt_(vtt) {}

  // A line's text with its looks, without tags, with the characters of its entities.
  StyledText Take(std::u32string_view line);
  // What the last line's markup asks for that line 21 cannot hold, as "bold is left out"; each once a cue.
  std::vector<std::string> TakeLosses();
  // The place that a command of .srt asks for ({\an8}), by the digits of a keypad; 0 where none does.
  int place() const { return place_; }

 private:
  struct Open {
    std::u32string name;
    Look before;
  };

  void Tag(std::u32string_view tag);
  void Start(std::u32string_view name, std::u32string_view rest);
  void End(std::u32string_view name);
  void Classes(std::u32string_view list);
  void Font(std::u32string_view attributes);
  void Colour(std::u32string_view value);
  void Command(std::u32string_view command);
  void Lose(const std::string& what);

  bool vtt_;
  Look look_;
  std::vector<Open> open_;
  std::vector<std::string> losses_, told_;
  int place_ = 0;
};

}  // namespace qlnmedia::captions

#endif
