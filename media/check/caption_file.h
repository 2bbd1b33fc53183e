// Checks of caption files: .scc, .mcc, .srt and .vtt.
#ifndef MEDIA_CHECK_CAPTION_FILE_H
#define MEDIA_CHECK_CAPTION_FILE_H

#include <string>
#include <string_view>

#include "check/finding_list.h"

namespace qlnmedia {

// Adds what is wrong with the text of a caption file, each kind of fault once with the line that shows it
// first and how often it does. Reading goes on behind faults: of .scc and .mcc labels, parity and pairs that
// line 21 has not, captions that come before those in front of them are sent, ANC packets and CDPs with their
// sections, checksums and counters. Of timed text (`path` ends in .srt or .vtt) what the reader refuses, and
// what cannot be sent as pop-on captions of 29.97 pictures a second as it stands.
void CheckCaptionFile(const std::string& path, std::string_view text, FindingList& findings);

}  // namespace qlnmedia

#endif
