// The option --html of commands that read files: a page about the one file that is named.
#ifndef TOOLS_QLNMEDIA_PAGE_OPTION_H
#define TOOLS_QLNMEDIA_PAGE_OPTION_H

#include <string>
#include <vector>

#include "inputs.h"

namespace CLI {
class App;
}

namespace qlnmedia {

struct PageOption {
  std::string path;  // empty where no page is asked for
  bool force = false;
  bool asked() const { return !path.empty(); }
};

// Adds --html and --force.
void AddPageOption(CLI::App& command, PageOption& option);

// Returns where the page that is asked for may be written, or none is. Throws CLI::ValidationError for
// several inputs, and Error as RequireMayReplace does.
void RequirePage(const PageOption& option, const Inputs& inputs);

// The folder that is written to for the page; none where none is asked for.
std::vector<std::string> WrittenFor(const PageOption& option);

}  // namespace qlnmedia

#endif
