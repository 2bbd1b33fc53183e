// Matroska files of every shape, by a number.
#ifndef TESTS_MKV_RANDOM_FILE_H
#define TESTS_MKV_RANDOM_FILE_H

#include <random>
#include <string>
#include <utility>
#include <vector>

#include "mkv/build_elements.h"

namespace qln::test::mkv {

inline Bytes Noise(size_t size, uint32_t seed) {
  std::mt19937 random(seed);
  Bytes bytes(size);
  for (uint8_t& byte : bytes) byte = static_cast<uint8_t>(random());
  return bytes;
}

// Track 1 is the one that changes; it strips kStripped off its frames in some of the files.
inline const Bytes kStripped = {0x00, 0x00, 0x01};

class RandomFile {
 public:
  explicit RandomFile(uint32_t seed) : random_(seed) {
    stripped_ = One(5);
    std::vector<Part> file;
    const size_t segments = One(4) ? 2 : 1;
    for (size_t i = 0; i < segments; ++i) {
      if (i == 0 || One(2)) file.push_back(Head());
      const bool last = i + 1 == segments;
      file.push_back(Segment(static_cast<int>(i + 1) * 1000, last));
    }
    bytes = Build(file);
    // Behind a segment without a size nothing ends it but the file.
    if (!open_ && One(5)) {
      const Bytes tail = Noise(Up(40), seed);
      bytes.push_back(0);  // no element
      bytes.insert(bytes.end(), tail.begin(), tail.end());
    }
  }

  Bytes bytes;

 private:
  size_t Up(size_t most) { return std::uniform_int_distribution<size_t>(0, most)(random_); }
  bool One(size_t in) { return Up(in - 1) == 0; }

  // As muxers do and as they do not.
  Part Dressed(Part part) {
    if (One(3)) part.sizeBytes = 1 + Up(7);
    if (One(3)) part.checksum = true;
    return part;
  }

  void PutIdle(std::vector<Part>& parts) {
    if (One(5)) parts.push_back(Leaf(0xEC, Bytes(Up(30))));
    if (One(9)) parts.push_back(Leaf(0x4FFE, Noise(Up(12), 5)));  // nobody knows it
  }

  Bytes Frame() {
    Bytes frame = Noise(One(6) ? 100 + Up(100) : 1 + Up(30), static_cast<uint32_t>(random_()));
    return frame;
  }

  Bytes Body(uint64_t track, int16_t time, uint8_t flags) {
    const size_t kind = One(2) ? 0 : 1 + Up(1);
    constexpr Lacing kKinds[] = {Lacing::kNone, Lacing::kXiph, Lacing::kFixed};
    const Lacing lacing = kind == 1 && One(2) ? Lacing::kEbml : kKinds[kind];
    std::vector<Bytes> frames{Frame()};
    if (lacing != Lacing::kNone) {
      const size_t more = Up(3);
      for (size_t i = 0; i < more; ++i) {
        frames.push_back(Frame());
        if (lacing == Lacing::kFixed) frames.back().resize(frames.front().size());
      }
    }
    return BlockBytes(track, time, flags, frames, lacing);
  }

  Part BlockOf(int label) {
    const uint64_t track = One(3) ? 2 : One(6) ? 300 : 1;
    const auto time = static_cast<int16_t>(static_cast<int>(Up(200)) - 100);
    Part part;
    if (One(3)) {
      part = Master(0xA0, {Leaf(0xA1, Body(track, time, 0))});
      if (One(2)) part.parts.push_back(Number(0xFB, 200));
      if (One(2)) part.parts.push_back(Number(0x9B, Up(50)));
      if (One(3))
        part.parts.push_back(Master(0x75A1, {Master(0xA6, {Number(0xEE, 4), Leaf(0xA5, Noise(9, 1))})}));
      part = Dressed(part);
    } else {
      part = Leaf(0xA3, Body(track, time, One(2) ? 0x80 : 0));
      if (One(3)) part.sizeBytes = 1 + Up(7);
    }
    part.label = label;
    return part;
  }

  Part Cluster(int label, int before, bool open) {
    Part cluster = Master(0x1F43B675, {Number(0xE7, Up(5000))});
    cluster.label = label;
    PutIdle(cluster.parts);
    if (One(2)) cluster.parts.push_back(Place(0xA7, label, 1 + Up(2)));
    Part size;
    size.id = 0xAB;
    size.sizeOf = before;
    const bool told = before != 0 && One(2);
    const bool first = One(2);
    if (told && first) cluster.parts.push_back(size);
    const size_t blocks = Up(6);
    for (size_t i = 0; i < blocks; ++i) {
      cluster.parts.push_back(BlockOf(label + static_cast<int>(i) + 1));
      PutIdle(cluster.parts);
    }
    if (told && !first) cluster.parts.push_back(size);
    cluster = Dressed(cluster);
    if (open) {
      cluster.open = true;
      cluster.sizeBytes = One(2) ? 1 : 8;
    }
    return cluster;
  }

  Part Cues(const std::vector<std::pair<int, size_t>>& clusters) {
    Part cues = Master(0x1C53BB6B, {});
    for (const auto& [label, blocks] : clusters) {
      if (One(4)) continue;
      Part positions = Master(0xB7, {Number(0xF7, 1), Place(0xF1, label, 1 + Up(3))});
      if (blocks != 0 && One(2)) {
        Part relative = Place(0xF0, label + 1 + static_cast<int>(Up(blocks - 1)), 1 + Up(1));
        relative.from = Part::From::kCluster;
        relative.cluster = label;
        positions.parts.insert(positions.parts.begin() + static_cast<long>(Up(2)), relative);
      }
      if (One(6)) positions.parts.push_back(Master(0xDB, {Number(0x96, 1), Place(0x97, label)}));
      cues.parts.push_back(Dressed(Master(0xBB, {Number(0xB3, Up(9000)), Dressed(positions)})));
    }
    return Dressed(cues);
  }

  Part Segment(int label, bool last) {
    const int tracks = label + 900, cuesLabel = label + 901, tagsLabel = label + 902;
    std::vector<std::pair<int, size_t>> named;
    std::vector<Part> clusters;
    const size_t count = Up(5);
    const bool live = One(4);
    for (size_t i = 0; i < count; ++i) {
      const int own = label + 10 + static_cast<int>(i) * 20;
      clusters.push_back(Cluster(own, i == 0 ? 0 : own - 20, live && One(2)));
      size_t blocks = 0;
      for (const Part& part : clusters.back().parts) blocks += part.id == 0xA3 || part.id == 0xA0 ? 1U : 0U;
      named.emplace_back(own, blocks);
    }
    Part cues = Cues(named);
    cues.label = cuesLabel;
    Part entry = Track(1);
    if (stripped_) {
      entry.parts.push_back(
          Master(0x6D80, {Master(0x6240, {Number(0x5031, 0),
                                          Master(0x5034, {Number(0x4254, 3), Leaf(0x4255, kStripped)})})}));
    }
    Part trackList = Dressed(Master(0x1654AE6B, {Dressed(entry), Track(2), Track(300)}));
    trackList.label = tracks;
    Part tags = Dressed(Master(0x1254C367, {Text(0x7373, "tags that nobody reads")}));
    tags.label = tagsLabel;
    Part seek = Master(0x114D9B74, {});
    for (const auto& [id, target] :
         {std::pair<uint32_t, int>{0x1654AE6B, tracks}, {0x1C53BB6B, cuesLabel}, {0x1254C367, tagsLabel}})
      seek.parts.push_back(Dressed(Master(0x4DBB, {Number(0x53AB, id), Place(0x53AC, target, 1 + Up(2))})));
    Part segment = Master(0x18538067, {});
    segment.label = label;
    std::vector<Part>& parts = segment.parts;
    if (One(4) == false) parts.push_back(Dressed(seek));
    PutIdle(parts);
    parts.push_back(Info());
    parts.push_back(trackList);
    const bool front = One(2);
    if (front) parts.push_back(cues);
    for (Part& cluster : clusters) {
      parts.push_back(std::move(cluster));
      // Nothing that an open cluster would hold.
      if (!parts.back().open) PutIdle(parts);
    }
    if (!front) parts.push_back(cues);
    parts.push_back(tags);
    if (live && last) {
      segment.open = open_ = true;
      segment.sizeBytes = One(2) ? 1 : 8;
    } else {
      segment = Dressed(segment);
    }
    return segment;
  }

  std::mt19937 random_;
  bool stripped_ = false;
  bool open_ = false;
};

}  // namespace qln::test::mkv

#endif
