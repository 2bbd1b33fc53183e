// The option --html.

#include "page_option.h"

#include <CLI/CLI.hpp>

#include "replace.h"
#include "sandbox.h"
#include "value_hints.h"

namespace qlnmedia {

void AddPageOption(CLI::App& command, PageOption& option) {
  auto* const page = command.add_option("--html", option.path,
                                        "Write a page to FILE besides, for any browser: findings, a time "
                                        "line over all pictures, parameter sets, "
                                        "captions; reads the whole file");
  page->option_text("FILE")->check(OffersFiles({".html"}));
  command.add_flag("--force", option.force, kForceHelp)->needs(page);
}

void RequirePage(const PageOption& option, const Inputs& inputs) {
  if (!option.asked()) return;
  if (inputs.several) throw CLI::ValidationError("--html is for one file");
  RequireMayReplace(option.path, option.force);
}

std::vector<std::string> WrittenFor(const PageOption& option) {
  if (!option.asked()) return {};
  return {FolderOfPath(option.path)};
}

}  // namespace qlnmedia
