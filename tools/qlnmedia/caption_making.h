// The options of where captions come from.
#ifndef TOOLS_QLNMEDIA_CAPTION_MAKING_H
#define TOOLS_QLNMEDIA_CAPTION_MAKING_H

#include "qlnmedia/captions.h"

namespace CLI {
class App;
class Option;
}  // namespace CLI

namespace qlnmedia {

// Adds --fit and --transliterate, which need the option `with` if it is given. What is to be known about the
// text goes to standard error.
void AddMakingOptions(CLI::App& command, CaptionSourceOptions& options, CLI::Option* with = nullptr);

}  // namespace qlnmedia

#endif
