// A transport command as JSON that every parser takes.
#ifndef MEDIA_COMMAND_STRICT_JSON_H
#define MEDIA_COMMAND_STRICT_JSON_H

#include <cstdint>
#include <string>

struct MediaCmd;

namespace qlnmedia {

// The members of the library's own JSON form, in its order and with its values. The record may lose what the
// library's walk takes out of it. Throws std::bad_alloc where memory is missing.
std::string StrictCommandJson(MediaCmd& command, uint8_t timecodeType);

}  // namespace qlnmedia

#endif
