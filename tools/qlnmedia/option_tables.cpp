// Prints the option tables of qlnmedia as JSON: what manual pages and completions are made from, so that they
// cannot say anything else than --help. A program of the build, which is not installed.

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstdio>
#include <exception>
#include <nlohmann/json.hpp>
#include <set>
#include <string>

#include "application.h"
#include "value_hints.h"

namespace qlnmedia {

namespace {

using Json = nlohmann::ordered_json;

// "--name", or the name of a positional.
std::string NameOf(const CLI::Option& option) { return option.get_name(option.get_positional()); }

Json NamesOf(const std::set<CLI::Option*>& options) {
  Json names = Json::array();
  for (const CLI::Option* option : options) names.push_back(NameOf(*option));
  std::sort(names.begin(), names.end());
  return names;
}

// What stands for the value in texts; empty of a flag.
std::string ArgumentOf(const CLI::Option& option) {
  if (option.get_items_expected_max() == 0) return {};
  if (!option.get_option_text().empty()) return option.get_option_text();
  const std::string type = option.get_type_name();
  return type.substr(0, type.find(':'));
}

Json TableOf(CLI::Option& option) {
  Json names = Json::array();
  for (const std::string& name : option.get_snames()) names.push_back("-" + name);
  for (const std::string& name : option.get_lnames()) names.push_back("--" + name);
  if (option.get_positional()) names.push_back(NameOf(option));
  const ValueHints hints = HintsOf(option);
  return {{"names", names},
          {"positional", option.get_positional()},
          {"argument", ArgumentOf(option)},
          {"description", option.get_description()},
          {"default", option.get_default_str()},
          {"required", option.get_required()},
          {"most", option.get_expected_max()},
          {"repeats", option.get_multi_option_policy() == CLI::MultiOptionPolicy::TakeAll},
          {"needs", NamesOf(option.get_needs())},
          {"excludes", NamesOf(option.get_excludes())},
          {"words", hints.words},
          {"files", hints.files},
          {"endings", hints.endings}};
}

Json TableOf(CLI::App& command) {
  Json options = Json::array();
  for (CLI::Option* option : command.get_options()) options.push_back(TableOf(*option));
  Json commands = Json::array();
  for (CLI::App* sub : command.get_subcommands({})) commands.push_back(TableOf(*sub));
  return {{"name", command.get_name()},
          {"description", command.get_description()},
          {"footer", command.get_footer()},
          {"options", options},
          {"commands", commands}};
}

}  // namespace

}  // namespace qlnmedia

int main() {
  try {
    const auto application = qlnmedia::MakeApplication();
    const std::string text = qlnmedia::TableOf(*application).dump(1) + "\n";
    return std::fputs(text.c_str(), stdout) < 0 || std::fflush(stdout) != 0 ? 1 : 0;
  } catch (const std::exception& error) {
    std::fprintf(stderr, "option_tables: %s\n", error.what());
    return 1;
  }
}
