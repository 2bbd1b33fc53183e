// Pictures taken out of a file, and what files put together by hand have in common.

#include <stdexcept>

#include "mp4/hand_made.h"
#include "mp4/list_file.h"

namespace qln::test::mp4 {

CodedPictures TakePictures(const Bytes& file, bool hevc) {
  CodedPictures out;
  out.hevc = hevc;
  const Listing listing = ListFile(file);
  for (const Node& node : listing.boxes) {
    if (node.type != (hevc ? "hvcC" : "avcC")) continue;
    out.record.assign(file.begin() + static_cast<std::ptrdiff_t>(node.at),
                      file.begin() + static_cast<std::ptrdiff_t>(node.at + node.size));
  }
  const auto& samples = listing.samples.at(1);
  for (uint32_t i = 0; i < samples.size(); ++i) {
    out.samples.push_back(samples[i].data);
    if (samples[i].flags != 0) out.sync.push_back(i + 1);
  }
  if (out.record.empty() || out.samples.empty()) throw std::runtime_error("no pictures");
  return out;
}

TrackSpec PictureTrack(const CodedPictures& pictures, const std::vector<size_t>& chunks) {
  TrackSpec track;
  track.format = pictures.hevc ? "hvc1" : "avc1";
  track.samples = pictures.samples;
  track.sync = pictures.sync;
  track.chunks = chunks;
  track.entryBoxes = pictures.record;
  track.durations.assign(track.samples.size(), 40);
  return track;
}

TrackSpec DataTrack(uint32_t id, const std::string& handler, const std::string& format) {
  TrackSpec track;
  track.id = id;
  track.handler = handler;
  track.format = format;
  for (uint32_t i = 0; i < 30; ++i) track.samples.push_back(Noise(i % 7 == 3 ? 1 : 20 + i, i));
  track.chunks = {4, 1, 2};
  return track;
}

Bytes ItemsAt(uint64_t place, uint64_t bytes, uint8_t version) {
  const size_t idBytes = version < 2 ? 2 : 4;
  const auto item = [&](uint64_t id, uint64_t method, uint64_t base, uint64_t offset, uint64_t length) {
    return Joined({Number(id, idBytes), version == 0 ? Bytes{} : Number(method, 2), Number(0, 2),
                   Number(base, 8), Number(1, 2), Number(offset, 4), Number(length, 4)});
  };
  std::vector<Bytes> items = {item(1, 0, place, 0, bytes), item(2, 0, 0, place, bytes),
                              item(3, 0, place, 2, 3)};
  if (version != 0) items.push_back(item(4, 1, 0, 1, 3));
  const Bytes locations =
      Full("iloc", version, 0, {Number(0x4480, 2), Number(items.size(), idBytes), Joined(items)});
  return Full(
      "meta", 0, 0,
      {Full("hdlr", 0, 0, {Bytes(4), Text("abcd"), Bytes(13)}), locations, Box("idat", Text("inside"))});
}

}  // namespace qln::test::mp4
