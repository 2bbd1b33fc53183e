// Carries hints in the descriptions of checks that are switched off, which neither help nor parser looks at.

#include "value_hints.h"

#include <utility>

namespace qlnmedia {

namespace {

constexpr char kWords[] = "offered words";
constexpr char kFiles[] = "offered files";

class Hint final : public CLI::Validator {
 public:
  Hint(const char* kind, std::function<std::vector<std::string>()> items) {
    name_ = kind;
    active_ = false;
    desc_function_ = [items = std::move(items)] {
      std::string text;
      for (const std::string& item : items()) text += item + "\n";
      return text;
    };
  }
};

std::vector<std::string> LinesOf(const std::string& text) {
  std::vector<std::string> lines;
  for (size_t at = 0; at < text.size();) {
    const size_t end = text.find('\n', at);
    lines.push_back(text.substr(at, end - at));
    at = end + 1;
  }
  return lines;
}

}  // namespace

CLI::Validator Offers(std::function<std::vector<std::string>()> words) {
  return Hint(kWords, std::move(words));
}

CLI::Validator Offers(std::vector<std::string> words) {
  return Hint(kWords, [words = std::move(words)] { return words; });
}

CLI::Validator OffersFiles(std::function<std::vector<std::string>()> endings) {
  return Hint(kFiles, std::move(endings));
}

CLI::Validator OffersFiles(std::vector<std::string> endings) {
  return Hint(kFiles, [endings = std::move(endings)] { return endings; });
}

ValueHints HintsOf(CLI::Option& option) {
  const auto textOf = [&](const char* kind) -> const CLI::Validator* {
    try {
      return option.get_validator(kind);
    } catch (const CLI::OptionNotFound&) {
      return nullptr;
    }
  };
  ValueHints hints;
  if (const CLI::Validator* const words = textOf(kWords))
    hints.words = LinesOf(words->active().get_description());
  if (const CLI::Validator* const files = textOf(kFiles)) {
    hints.files = true;
    hints.endings = LinesOf(files->active().get_description());
  }
  return hints;
}

std::vector<std::string> TimecodeTypeNames() {
  return {"film", "23.98", "pal", "non-drop-frame", "drop-frame", "50", "59.94", "60"};
}

std::vector<std::string> RateNames() {
  return {"23.976", "24", "25", "29.97", "30", "50", "59.94", "60", "nominal"};
}

}  // namespace qlnmedia
