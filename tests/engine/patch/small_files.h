// Files of few bytes that libavformat opens: MP4 of H.264 pictures that are written bit by bit, no encoder at
// work.
#ifndef TESTS_ENGINE_PATCH_SMALL_FILES_H
#define TESTS_ENGINE_PATCH_SMALL_FILES_H

#include <string>
#include <vector>

#include "engine/edit/stream_builder.h"
#include "mp4/build_boxes.h"
#include "support/temporary_folder.h"

namespace qlnmedia::test {

namespace boxes = qln::test::mp4;

// Frames in their order of presentation, a key frame every three.
inline std::vector<CodedFrame> FramesOf(size_t count) {
  std::vector<CodedFrame> frames;
  for (size_t i = 0; i < count; ++i)
    frames.push_back({.place = static_cast<int>(i % 3), .idr = i % 3 == 0, .fields = false});
  return frames;
}

// The samples of `stream` as the track of an MP4 at 25 frames a second. `more` stands behind its avcC.
inline boxes::TrackSpec PictureTrack(const Stream& stream, const Bytes& more = {}) {
  boxes::TrackSpec track;
  for (size_t i = 0; i < stream.packets.size(); ++i) {
    track.samples.push_back(stream.packets[i].data);
    if (stream.packets[i].key) track.sync.push_back(static_cast<uint32_t>(i + 1));
  }
  track.chunks = {track.samples.size()};
  track.durations.assign(track.samples.size(), 40);
  track.entryBoxes = boxes::Box("avcC", stream.description.privateData);
  track.entryBoxes.insert(track.entryBoxes.end(), more.begin(), more.end());
  return track;
}

inline Bytes PictureFile(const Stream& stream, const Bytes& more = {}, const std::string& brand = "isom") {
  boxes::MovieSpec movie;
  movie.brand = brand;
  movie.tracks = {PictureTrack(stream, more)};
  return boxes::BuildMovie(movie);
}

inline Stream PictureStream(size_t count = 6, int lengthBytes = 4) {
  return MakeStream(FramesOf(count), lengthBytes);
}

// Files of a test, gone with it.
class Files {
 public:
  std::string Put(const std::string& name, const Bytes& bytes) {
    const std::string path = folder_ / name;
    qln::test::WriteFile(path, bytes);
    return path;
  }
  std::string Put(const std::string& name, const std::string& text) {
    return Put(name, Bytes(text.begin(), text.end()));
  }
  std::string operator/(const std::string& name) const { return folder_ / name; }
  const std::string& path() const { return folder_.path(); }

 private:
  qln::test::TemporaryFolder folder_;
};

// What a call says that fails; nothing where it does not.
template <class Work>
std::string RefusalOf(Work work) {
  try {
    work();
  } catch (const Error& error) {
    return error.what();
  }
  return {};
}

}  // namespace qlnmedia::test

#endif
