// The bytes of a media file, cut where a test looks at them.
#ifndef TESTS_QLNMEDIA_MEDIA_BYTE_FACTS_H
#define TESTS_QLNMEDIA_MEDIA_BYTE_FACTS_H

#include <string>
#include <vector>

#include "support/test_support.h"

namespace qln::test {

// The coded bytes of the first video stream as its packets hold them.
Bytes CodedBytes(const std::string& file);

// A byte stream cut in front of each 00 00 01, so that zeros behind a unit and long start codes are seen:
// each piece holds its start code, its unit, and every zero up to the next one.
std::vector<Bytes> StartCodePieces(const Bytes& stream);

// The types of the boxes that an MP4 or MOV file holds one behind the other.
std::vector<std::string> TopLevelBoxes(const std::string& file);

}  // namespace qln::test

#endif
