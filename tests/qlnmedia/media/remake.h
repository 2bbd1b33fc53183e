// Media files made anew with something planted: other length fields, other units, other private data.
#ifndef TESTS_QLNMEDIA_MEDIA_REMAKE_H
#define TESTS_QLNMEDIA_MEDIA_REMAKE_H

#include <functional>
#include <string>
#include <vector>

#include "container/libav_handles.h"
#include "support/test_support.h"

namespace qln::test {

struct Remake {
  // Bytes of the length fields in the output's first video stream; 4 as the encoders' files have it.
  int lengthBytes = 4;
  // Changes the units of each of that stream's packets, counted from 0 in coding order.
  std::function<void(std::vector<Bytes>& units, int packet)> units;
  // Changes that stream's private data, and whatever else its description holds.
  std::function<void(Bytes& extradata)> privateData;
  std::function<void(AVStream& stream)> description;
};

// Copies a file whose video has length fields of 4 bytes (MP4, MOV, MKV), changed as told. Fails the running
// test where a unit does not fit.
void RemakeFile(const std::string& in, const std::string& out, const Remake& remake);

}  // namespace qln::test

#endif
