// Pictures of H.264 and HEVC out of the PES packets of a transport stream, where each picture begins one.
#ifndef MEDIA_PATCH_PES_PICTURES_H
#define MEDIA_PATCH_PES_PICTURES_H

#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <optional>
#include <string>

#include "container/ts/carrier.h"
#include "patch/cut_picture.h"
#include "patch/edited_streams.h"
#include "patch/patch_input.h"

namespace qlnmedia {

// Whether bytes of an elementary stream begin with the start code of a unit that may begin a picture.
bool BeginsWithPicture(Codec codec, ByteSpan bytes);
// Pictures of a run that begins with one, and whether decoding can start at the first.
struct CountedPictures {
  int pictures = 0;
  bool key = false;
};
CountedPictures CountPictures(Codec codec, ByteSpan bytes);
// How many pictures may share a PES packet: two fields may.
int MostPictures(Codec codec);
// stream_id of pictures (ISO/IEC 13818-1 table 2-22), the extended one included.
bool IsVideoId(uint8_t streamId);
// Time stamps have 33 bits, and go on behind their wrap: `time` near the last one, as far as that was counted
// on.
int64_t CountOn(std::optional<int64_t>& last, uint64_t time);

class PesPictures {
 public:
  // Whether the streams are of codecs whose pictures this finds, each in packets of its own identifier.
  static bool Knows(const PatchInput& in, const EditedStreams& streams);

  // All are kept by the caller.
  PesPictures(const PatchInput& in, EditedStreams& streams, ts::Carrier& carrier);

  // Puts all pictures through their editors. False as soon as the pictures cannot be told by PES packets
  // alone: editors and carrier are of no use then. `progress` hears how far the file was read.
  bool Carry(const std::function<void(uint64_t at)>& progress);

 private:
  struct Waiting {
    Bytes picture;
    CutPicture cut;
    size_t packets = 0;  // PES packets of it
  };
  struct Stream {
    EditedStream* edited = nullptr;
    Codec codec = Codec::kH264;
    Bytes picture;       // that more may come of; empty where there is none
    size_t packets = 0;  // PES packets of it
    int64_t pts = kNoTime;
    int64_t dts = kNoTime;
    std::optional<int64_t> last;  // time stamp, as far as it was counted on
    std::deque<Waiting> waiting;  // those that its editor has
  };

  bool Take(ts::PesView& pes);
  bool Push(Stream& stream, uint16_t identifier);
  void Send(Stream& stream, uint16_t identifier);

  const PatchInput& in_;
  ts::Carrier& carrier_;
  std::map<uint16_t, Stream> streams_;  // by packet identifier
};

}  // namespace qlnmedia

#endif
