// Puts streams of coded fields into containers.
#ifndef TESTS_QLNMEDIA_MEDIA_FIELD_MUX_H
#define TESTS_QLNMEDIA_MEDIA_FIELD_MUX_H

#include <string>
#include <vector>

#include "support/field_stream.h"

namespace qln::test {

// Writes the pictures of `frames` to `path`, whose extension says the container (.mp4, .mov, .mkv, .ts), with
// times of 25 frames a second: both fields of a frame in one packet, or each in its own. The frames' places
// must be whole numbers from 0 behind each IDR picture. Fails the running test where it cannot.
void MuxFields(const std::string& path, const std::vector<CodedFrame>& frames, bool bothInOnePacket,
               const FieldStreamOptions& options = {});

// Groups of pictures of 13 frames, coded I B B P ..., some of the frames between coded whole; `bottomFirst`
// for all of them.
std::vector<CodedFrame> FieldGroups(int groups, bool bottomFirst = false);

}  // namespace qln::test

#endif
