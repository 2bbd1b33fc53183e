// Reads H.264 and HEVC pictures.
#ifndef MEDIA_HTML_NAL_READER_H
#define MEDIA_HTML_NAL_READER_H

#include <deque>
#include <map>
#include <memory>

#include "hdr/stream_hdr.h"
#include "html/picture_reader.h"
#include "pictures/slice_head.h"

namespace qlnmedia::html {

class NalReader final : public PictureReader {
 public:
  NalReader(Codec codec, const StreamDescription& stream, bool encrypted);

  const ShownPicture& Take(const PacketView& packet) override;
  std::vector<int> setsInForce() const override { return inForce_; }
  std::string look() const override { return look_; }
  const SetList* sets() const override { return &sets_; }
  std::vector<std::optional<CpbState>> Buffer(bool end) override;
  const Hrd* hrd() const override { return firstHrd_ ? &*firstHrd_ : nullptr; }

 private:
  void TakeSet(ByteSpan unit, int64_t packet);
  void TakeSlices(const std::vector<CodedPicture>& pictures);
  void TakeMessages();
  uint64_t BitsOf(size_t begin, size_t end, const Hrd& hrd) const;
  void TakeBuffer(const std::vector<CodedPicture>& pictures);
  void TakeLook();
  void ShowUnits();
  unsigned KindOf(const CodedPicture& picture) const;
  Entry EntryOf() const;

  Codec codec_;
  bool encrypted_;
  ConfigRecord config_;
  PictureTracker tracker_;
  SliceHeadReader slices_;
  SetList sets_;
  int64_t packets_ = 0;
  ShownPicture picture_;
  UnitRun run_;  // of the last packet

  // Of the last picture: its SPS, the units' messages, and what they say.
  std::shared_ptr<const SpsFacts> sps_;
  int spsPlace_ = -1;
  std::vector<std::vector<SeiMessage>> messages_;  // of each unit
  std::vector<int> inForce_;

  StreamHdr hdr_;
  std::string look_;
  std::shared_ptr<const SpsFacts> lookOf_;  // the SPS that `look_` was made by

  // The HRD of each SPS that was met, by its place in `sets_`.
  std::map<int, std::optional<Hrd>> hrds_;
  std::map<uint32_t, Bytes> spsBytes_;  // the last one of each number
  const Hrd* inForceHrd_ = nullptr;
  std::optional<Hrd> firstHrd_;
  RemovalDelays delays_;
  CpbModel buffer_;
  std::deque<uint8_t> accessUnits_;             // of the packets whose states are not known yet
  std::deque<std::optional<CpbState>> states_;  // of their access units
};

}  // namespace qlnmedia::html

#endif
