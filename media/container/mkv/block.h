// Blocks of a Matroska cluster (RFC 9559 section 10): their heads, the frames that lacing puts into one, and
// blocks made anew around other frames.
#ifndef MEDIA_CONTAINER_MKV_BLOCK_H
#define MEDIA_CONTAINER_MKV_BLOCK_H

#include <vector>

#include "container/mkv/layout.h"

namespace qlnmedia::mkv {

// Bits of a block's flags.
inline constexpr uint8_t kKeyframe = 0x80, kLacing = 0x06;
inline constexpr uint8_t kNoLacing = 0x00, kXiphLacing = 0x02, kFixedLacing = 0x04, kEbmlLacing = 0x06;

struct FramePlace {
  uint64_t at = 0;
  uint64_t size = 0;
};

struct Block {
  Element element;  // SimpleBlock, or the Block of a BlockGroup
  uint64_t track = 0;
  int16_t time = 0;      // from the cluster's, in units of the segment
  uint64_t flagsAt = 0;  // what lacing says stands behind the flags
  uint8_t flags = 0;
  std::vector<FramePlace> frames;
  std::vector<uint8_t> sizeWidths;  // of EBML lacing, the bytes of each size
  bool laced() const { return (flags & kLacing) != kNoLacing; }
};

// The head alone, without frames. Throws Error for a block that has none.
Block ReadBlockHead(Reader& reader, const Element& element);
// Fills in frames. Throws Error for lacing that does not fit the block.
void ReadFrames(Reader& reader, Block& block);
// A laced block from its flags on, with frames of other sizes. Sizes keep their widths where they can;
// fixed sizes that are no longer equal become EBML lacing.
Bytes MakeLaced(const Block& block, const std::vector<Bytes>& frames);

// A block with what stands around it.
struct BlockView {
  Block block;
  const Entry* entry = nullptr;  // of its track
  size_t segment = 0;
  int64_t time = 0;  // of the first frame, in units of the segment; frames without a time: kNoFrameTime
  bool key = false;
  uint64_t duration = 0;  // in units of the segment, 0 where it is not known

  int64_t TimeOf(size_t frame) const;
};
inline constexpr int64_t kNoFrameTime = INT64_MIN;

// Goes over the blocks of some tracks in the order of the file. `layout` has to outlive it.
class BlockCursor {
 public:
  // `wants` is called with a track's number.
  template <typename Wants>
  BlockCursor(const Source& source, const Layout& layout, Wants wants) : reader_(source), layout_(layout) {
    for (const auto& [number, entries] : layout.tracks) {
      if (wants(number)) tracks_.push_back(number);
    }
  }
  // Throws Error, with the place, for what is no block.
  bool Next(BlockView& view);

 private:
  bool OpenCluster();
  bool TakeGroup(const Element& group, BlockView& view);
  bool TakeBlock(const Element& element, BlockView& view);

  Reader reader_;
  const Layout& layout_;
  std::vector<uint64_t> tracks_;
  size_t segment_ = 0;
  size_t cluster_ = 0;
  uint64_t clusterTime_ = 0;
  uint64_t at_ = 0;
  uint64_t end_ = 0;
};

}  // namespace qlnmedia::mkv

#endif
