// Helps with words that are not known.

#include "words.h"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <utility>

namespace qlnmedia {

namespace {

// Letters that are put in, taken out, changed, or swapped with the next, to make one word the other.
size_t Distance(std::string_view a, std::string_view b) {
  std::vector<size_t> before;
  std::vector<size_t> row(b.size() + 1);
  for (size_t j = 0; j <= b.size(); ++j) row[j] = j;
  for (size_t i = 1; i <= a.size(); ++i) {
    std::vector<size_t> next(b.size() + 1, i);
    for (size_t j = 1; j <= b.size(); ++j) {
      next[j] = std::min({row[j] + 1, next[j - 1] + 1, row[j - 1] + (a[i - 1] == b[j - 1] ? 0 : 1)});
      const bool swapped = i > 1 && j > 1 && a[i - 1] == b[j - 2] && a[i - 2] == b[j - 1];
      if (swapped) next[j] = std::min(next[j], before[j - 2] + 1);
    }
    before = std::exchange(row, std::move(next));
  }
  return row[b.size()];
}

}  // namespace

std::string Lower(std::string_view text) {
  std::string lowered(text);
  for (char& c : lowered) c = c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
  return lowered;
}

std::string Listed(const std::vector<std::string>& words) {
  std::string text;
  for (const std::string& word : words) text += (text.empty() ? "" : ", ") + word;
  return text;
}

std::string NearestWord(std::string_view typed, const std::vector<std::string>& words) {
  const std::string wanted = Lower(typed);
  const std::string* nearest = nullptr;
  // Of a short word one letter is already much of it.
  size_t least = wanted.size() < 6 ? 2 : 3;
  for (const std::string& word : words) {
    const bool begins = wanted.size() >= 2 && Lower(word).starts_with(wanted);
    const size_t distance = begins ? 0 : Distance(wanted, Lower(word));
    if (distance >= least) continue;
    least = distance;
    nearest = &word;
  }
  return nearest == nullptr ? "" : *nearest;
}

std::string WordsThereAre(std::string_view typed, const std::vector<std::string>& words) {
  const std::string nearest = NearestWord(typed, words);
  return (nearest.empty() ? "" : nearest + "? ") + "there are " + Listed(words);
}

CLI::Validator CountUpTo(uint32_t most) {
  return {[most](std::string& text) {
            uint32_t count = 0;
            const char* const end = text.data() + text.size();
            const auto [stop, error] = std::from_chars(text.data(), end, count);
            if (error == std::errc() && stop == end && count <= most) return std::string();
            return fmt::format("{} is no count from 0 to {}", text, most);
          },
          "", "count"};
}

void RefuseUsage(const std::string& text) { throw CLI::ValidationError(text); }

void RequireSubcommand(const CLI::App& app, int argc, const char* const* argv) {
  const CLI::App* command = &app;
  for (int i = 1; i < argc; ++i) {
    const std::string word = argv[i];
    std::vector<std::string> names;
    const CLI::App* named = nullptr;
    for (const CLI::App* sub : command->get_subcommands({})) {
      names.push_back(sub->get_name());
      if (sub->get_name() == word) named = sub;
    }
    // Options stand behind the last subcommand, and what follows one is its own affair.
    if (names.empty() || word.starts_with('-')) return;
    if (named == nullptr) throw CLI::ValidationError(word + " is no command; " + WordsThereAre(word, names));
    command = named;
  }
}

}  // namespace qlnmedia
