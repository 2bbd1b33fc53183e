// Boxes put into MP4 and MOV files whose index stands at the end, so that nothing points behind it.
#ifndef TESTS_QLNMEDIA_MEDIA_BOX_SURGERY_H
#define TESTS_QLNMEDIA_MEDIA_BOX_SURGERY_H

#include <string>
#include <vector>

#include "support/test_support.h"

namespace qln::test {

using BoxPath = std::vector<std::string>;

// A box with its size and type in front.
Bytes Box(const std::string& type, const Bytes& body);

// Offset of a box, reached from the top by the first box of each type; fails the test where there is none.
// The first sample description counts as a box of stsd.
size_t FindBox(const Bytes& file, const BoxPath& path);

// Puts bytes in at `offset` of the box's body and makes the box and all around it as much larger.
void InsertIntoBox(Bytes& file, const BoxPath& path, size_t offset, const Bytes& bytes);

// Puts a box behind all others inside a box.
void AppendToBox(Bytes& file, const BoxPath& path, const Bytes& box);

}  // namespace qln::test

#endif
