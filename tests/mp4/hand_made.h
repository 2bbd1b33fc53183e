// Real pictures in files put together by hand, in every layout that no muxer at hand writes.
#ifndef TESTS_MP4_HAND_MADE_H
#define TESTS_MP4_HAND_MADE_H

#include <string>
#include <vector>

#include "mp4/build_boxes.h"

namespace qln::test::mp4 {

// 20 pictures in coding order without B pictures, a key frame every 5.
struct CodedPictures {
  bool hevc = false;
  std::vector<Bytes> samples;
  std::vector<uint32_t> sync;
  Bytes record;  // the box
};

// Out of a file with one track of such pictures.
CodedPictures TakePictures(const Bytes& file, bool hevc);

struct HandMade {
  std::string name;
  Bytes file;
  Bytes init = {};          // the initialization segment, where the file is a media segment alone
  std::string untrue = {};  // what a change of colour is refused with, since it would not be true
};

// Everything in a `moov`; everything in fragments; both.
std::vector<HandMade> PlainByHand(const CodedPictures& pictures);
std::vector<HandMade> FragmentsByHand(const CodedPictures& pictures);
inline std::vector<HandMade> AllByHand(const CodedPictures& pictures) {
  std::vector<HandMade> all = PlainByHand(pictures);
  for (HandMade& made : FragmentsByHand(pictures)) all.push_back(std::move(made));
  return all;
}

// What both make their files of.
TrackSpec PictureTrack(const CodedPictures& pictures, const std::vector<size_t>& chunks);
TrackSpec DataTrack(uint32_t id, const std::string& handler = "meta", const std::string& format = "abcd");
// A `meta` with items at places of the file: by base, by offsets, and one in its own `idat`.
Bytes ItemsAt(uint64_t place, uint64_t bytes, uint8_t version);

}  // namespace qln::test::mp4

#endif
