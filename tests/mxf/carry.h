// Files in memory, carried with their pictures edited.
#ifndef TESTS_MXF_CARRY_H
#define TESTS_MXF_CARRY_H

#include <functional>
#include <optional>
#include <random>
#include <vector>

#include "container/mp4/memory_sink.h"
#include "container/mxf/carrier.h"
#include "container/mxf/layout_check.h"
#include "mxf/list_triplets.h"
#include "mxf/made_file.h"

namespace qln::test {

using qlnmedia::Codec;
using qlnmedia::mp4::MemorySink;
using qlnmedia::mp4::MemorySource;
using qlnmedia::mxf::Carrier;
using qlnmedia::mxf::DescriptorFacts;
using qlnmedia::mxf::FactsByTrack;
using qlnmedia::mxf::Picture;
using qlnmedia::mxf::PictureReader;

// Bytes that look like an access unit with one slice.
inline Bytes Unit(size_t size, uint32_t seed) {
  std::mt19937 random(seed);
  Bytes bytes = {0, 0, 0, 1, 0x65};
  while (bytes.size() < size) bytes.push_back(static_cast<uint8_t>(1 + random() % 250));
  return bytes;
}

inline std::vector<Bytes> Units(size_t count, uint32_t seed, size_t size = 0) {
  std::mt19937 random(seed);
  std::vector<Bytes> units;
  for (size_t i = 0; i < count; ++i)
    units.push_back(Unit(size != 0 ? size : 20 + random() % 700, seed * 100 + static_cast<uint32_t>(i)));
  return units;
}

using Edit = std::function<Bytes(size_t, Bytes)>;

inline Bytes Carry(const Bytes& file, const Edit& edit, const FactsByTrack& facts = {},
                   std::optional<Codec> codec = Codec::kH264) {
  const MemorySource source(file, "in.mxf");
  Carrier carrier(source);
  PictureReader pictures(source, carrier.layout(), carrier.tracks());
  for (Picture picture; pictures.Next(picture);)
    carrier.Replace(picture, edit(static_cast<size_t>(picture.number), picture.bytes), codec);
  carrier.Prepare(facts);
  MemorySink sink;
  carrier.Write(sink);
  CheckLayout(source, carrier.layout(), MemorySource(sink.bytes(), "out.mxf"), "out.mxf");
  return sink.bytes();
}

inline Bytes Same(size_t, Bytes unit) { return unit; }

inline std::vector<Bytes> Edited(const std::vector<Bytes>& units, const Edit& edit) {
  std::vector<Bytes> edited;
  for (size_t i = 0; i < units.size(); ++i) edited.push_back(edit(i, units[i]));
  return edited;
}

// Puts `more` bytes in behind the start code.
inline Bytes Longer(Bytes unit, size_t more) {
  unit.insert(unit.begin() + 5, more, 0x33);
  return unit;
}

inline FactsByTrack Facts(const DescriptorFacts& facts) { return {{{1, kPictureNumber}, facts}}; }

}  // namespace qln::test

#endif
