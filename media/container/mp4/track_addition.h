// A movie that gets a track behind its others, as pieces of the file and new bytes between them.
//
//   TrackAddition movie(file, videoTrack, "timecode track");
//   movie.Add("tmcd", movie.FreshId(), make, samples);
//   Read(*movie.Joined());
//
// All else stays byte for byte, but that data behind a `moov` that grows moves with it, and the places that
// tracks name follow. Everything throws Error, naming the file. For one thread at a time.
#ifndef MEDIA_CONTAINER_MP4_TRACK_ADDITION_H
#define MEDIA_CONTAINER_MP4_TRACK_ADDITION_H

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <utility>

#include "container/mp4/movie.h"
#include "container/mp4/source.h"

namespace qlnmedia::mp4 {

class TrackAddition {
 public:
  // `file` is kept by the caller as long as this and what Joined gives. `what` is what messages call the
  // track that comes in. Throws for a file in fragments, and for one without the video track.
  TrackAddition(const Source& file, uint32_t videoTrack, std::string what);

  Reader& reader() { return reader_; }
  const Layout& layout() const { return layout_; }
  const Movie& movie() const { return *movie_; }
  const Track& video() const { return *video_; }
  [[noreturn]] void Refuse(const std::string& what) const;

  // An identifier that no track has.
  uint32_t FreshId();
  // Writes over bytes that are no part of what Add changes.
  void Overwrite(uint64_t at, Bytes fresh);

  // Makes the `trak` whose samples stand in a row from `place` on; its size may hang on `wide` alone, which
  // says that places need 64 bits.
  using MakeTrack = std::function<Bytes(uint64_t place, bool wide)>;
  // Puts a track in, which the video track then refers to by `reference` (a type of `tref`): in the place of
  // `replaced`, whose identifier it has then, else behind all others. Its samples stand in a media data box
  // of their own at the end of the file. Called once.
  void Add(const char* reference, uint32_t id, const MakeTrack& make, const Bytes& samples,
           const Track* replaced = nullptr);

  // The whole file; this is of no use afterwards.
  std::unique_ptr<Source> Joined();

 private:
  // How many bytes go, and which come.
  using Piece = std::pair<uint64_t, Bytes>;

  void Insert(uint64_t at, const Bytes& bytes, uint64_t removed = 0);
  void Grow(const Box& box, int64_t bytes);
  int64_t Refer(const char* type, uint32_t id);
  bool RequireLastBox();
  bool HasPlaces(const Box& meta);
  void MoveData(int64_t growth, const Track* gone);
  void MoveChunks(const Track& track, int64_t growth);

  const Source& file_;
  std::string what_;
  Reader reader_;
  Layout layout_;
  const Movie* movie_ = nullptr;
  const Track* video_ = nullptr;
  std::map<uint64_t, Piece> pieces_;  // by place
};

}  // namespace qlnmedia::mp4

#endif
