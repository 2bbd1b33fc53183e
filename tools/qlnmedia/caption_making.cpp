// Adds the options of making captions.

#include "caption_making.h"

#include <CLI/CLI.hpp>
#include <string>

#include "output.h"

namespace qlnmedia {

void AddMakingOptions(CLI::App& command, CaptionSourceOptions& options, CLI::Option* with) {
  CLI::Option* const all[] = {
      command.add_option("--captions-from", options.stream,
                         "Of a media file with captions in several streams: the stream, by its index"),
      command.add_flag("--fit", options.fit,
                       "Text of .srt and .vtt: break lines that are too long, shift captions that cannot be "
                       "sent in time, cut those that overlap"),
      command.add_flag("--transliterate", options.transliterate,
                       "Text of .srt and .vtt: replace characters that line 21 lacks"),
  };
  for (CLI::Option* const option : all) {
    if (with != nullptr) option->needs(with);
  }
  options.told = [](const std::string& line) { PrintFailure(line); };
}

}  // namespace qlnmedia
