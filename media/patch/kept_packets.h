// What must not change of the packets of a file, as an independent reader shows them.
#ifndef MEDIA_PATCH_KEPT_PACKETS_H
#define MEDIA_PATCH_KEPT_PACKETS_H

#include <cstdint>
#include <deque>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "container/libav_handles.h"
#include "container/media_file.h"
#include "qlnmedia/patch.h"

namespace qlnmedia {

// Whether a patch may put in, take out or change units of a type.
bool MayChange(Codec codec, int type, const EditOptions& changes);

inline constexpr uint64_t kEmptyHash = 0xCBF29CE484222325U;
// Adds a number to a hash.
void MixNumber(uint64_t& hash, int64_t number);

// Of one packet. Of H.264 and HEVC every unit counts but those that a patch puts in, takes out or changes, of
// MPEG-2 all but user data where captions go in, of other streams every byte.
struct KeptPacket {
  // In the units of MP4 and MOV files, else in nanoseconds; kNoTime where there is none.
  int64_t pts = 0;
  int64_t dts = 0;
  int64_t duration = 0;  // 0 where durations do not count
  bool key = false;
  uint64_t sideData = kEmptyHash;
  uint64_t bytes = kEmptyHash;
};

// The packets of one file, stream by stream, as they are read.
class KeptReader {
 public:
  // `bytes`: whether those of MP4 and MOV count as well. `changes` must outlive the reader.
  KeptReader(const std::string& path, const EditOptions& changes, bool bytes, std::string_view format = {});

  size_t streams() const { return streams_.size(); }
  const MediaFile& file() const { return file_; }
  // What has been read of a stream and not been taken yet.
  std::deque<KeptPacket>& queue(size_t stream) { return streams_[stream].queue; }
  // False where durations of a stream follow from what changes in it, so that they are not compared.
  bool HasDurations(size_t stream) const;

  // Reads the next packet of any stream; false at the end.
  bool Next();

 private:
  struct Stream {
    std::optional<Codec> codec;
    Framing framing;
    Bytes streamId;  // the last that a packet told
    std::deque<KeptPacket> queue;
  };

  void SetFraming(Stream& stream, const uint8_t* data, size_t size) const;
  uint64_t SideData(Stream& stream);
  uint64_t BytesOf(const Stream& stream) const;
  int64_t Time(int64_t timestamp, AVRational base) const;

  MediaFile file_;
  PacketHandle packet_;
  const EditOptions& changes_;
  bool bytes_;
  std::vector<Stream> streams_;
  std::vector<AVRational> rates_;  // that the container itself tells
};

}  // namespace qlnmedia

#endif
