// Help at the width of the terminal.
#ifndef TOOLS_QLNMEDIA_HELP_TEXT_H
#define TOOLS_QLNMEDIA_HELP_TEXT_H

#include <cstddef>
#include <memory>

namespace CLI {
class FormatterBase;
}

namespace qlnmedia {

// Lays help out for `width` columns: descriptions stand in a column of their own and are broken at blanks.
// Without a width, for the terminal on standard output, or 80 columns where that is none.
std::shared_ptr<CLI::FormatterBase> MakeHelpFormatter(size_t width = 0);

}  // namespace qlnmedia

#endif
