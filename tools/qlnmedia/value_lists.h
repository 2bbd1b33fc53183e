// The names that --colour and --hdr know, as tables and in the help.
#ifndef TOOLS_QLNMEDIA_VALUE_LISTS_H
#define TOOLS_QLNMEDIA_VALUE_LISTS_H

#include <string>

namespace qlnmedia {

// What prints the table in place of a name.
inline constexpr const char* kListWord = "list";

// Tables with codes and their names, and with points and luminances.
std::string ColourTable();
std::string DisplayTable();

// "bt709 (1:1:1), bt601-525 (6:6:6), ..."; "p3, bt2020 (1000 and 0.0001 cd/m2)".
std::string ColourNames();
std::string DisplayNames();

}  // namespace qlnmedia

#endif
