// What user data messages say: ITU-T T.35 messages by name, and the settings that encoders leave in a stream.
#ifndef MEDIA_INSPECT_USER_DATA_H
#define MEDIA_INSPECT_USER_DATA_H

#include <string>

#include "base/report.h"
#include "inspect/coded_frames.h"

namespace qlnmedia {

// What a registered user data message (payloadType 4) is called, as "HDR10+ (SMPTE ST 2094-40)"; for one that
// is not known its country and provider codes.
std::string T35Name(ByteSpan payload);

// The frame's registered user data, one row a message.
void AddT35Messages(Section& frame, Codec codec, const UnitRun& run);

// The text of the first unregistered user data message that is one, in private data or packets: what encoders
// say of themselves and of their settings.
void AddEncoderSettings(Section& section, const CodedStream& stream);

}  // namespace qlnmedia

#endif
