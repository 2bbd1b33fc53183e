// What values an option takes, said where the option is declared: for the completions of shells, which offer
// them. It has no part in how a value is read.
#ifndef TOOLS_QLNMEDIA_VALUE_HINTS_H
#define TOOLS_QLNMEDIA_VALUE_HINTS_H

#include <CLI/CLI.hpp>
#include <functional>
#include <string>
#include <vector>

namespace qlnmedia {

struct ValueHints {
  std::vector<std::string> words;    // that the value may be
  bool files = false;                // the value is a path
  std::vector<std::string> endings;  // of the files to offer first, ".mp4"; empty for all
};

// Checks that let every text pass and carry a hint with the option that they are added to. The words are made
// when somebody asks for them.
CLI::Validator Offers(std::function<std::vector<std::string>()> words);
CLI::Validator Offers(std::vector<std::string> words);
CLI::Validator OffersFiles(std::function<std::vector<std::string>()> endings);
CLI::Validator OffersFiles(std::vector<std::string> endings = {});

// What was said of an option's value; nothing of one without a hint.
ValueHints HintsOf(CLI::Option& option);

// Words that several commands offer: ways to count timecodes, and pictures a second.
std::vector<std::string> TimecodeTypeNames();
std::vector<std::string> RateNames();

}  // namespace qlnmedia

#endif
