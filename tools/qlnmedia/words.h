// Words on the command line: numbers as options take them, and help for one that is not known.
#ifndef TOOLS_QLNMEDIA_WORDS_H
#define TOOLS_QLNMEDIA_WORDS_H

#include <CLI/CLI.hpp>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace qlnmedia {

// In small letters, without the locale.
std::string Lower(std::string_view text);

// "one, two, three".
std::string Listed(const std::vector<std::string>& words);

// The word that is nearest to one that is mistyped: it begins with it, or a letter or two are other ones.
// Empty where none is near.
std::string NearestWord(std::string_view typed, const std::vector<std::string>& words);

// "there are one, two, three", and in front of it the nearest one as a question where there is one.
std::string WordsThereAre(std::string_view typed, const std::vector<std::string>& words);

// For options that take a count up to `most`: says in one line what a text is that is none.
CLI::Validator CountUpTo(uint32_t most);

// Throws a usage error with this text.
[[noreturn]] void RefuseUsage(const std::string& text);

// Throws a usage error that names the subcommands, where the first word is none of them.
void RequireSubcommand(const CLI::App& app, int argc, const char* const* argv);

}  // namespace qlnmedia

#endif
