// Blocks of the file, and packets found again behind bytes that are none.

#include "container/ts/row_reader.h"

#include <algorithm>
#include <utility>

#include "container/live/arriving_source.h"

namespace qlnmedia::ts {

namespace {

constexpr uint64_t kBlockBytes = 1 << 20;

}  // namespace

RowReader::RowReader(const mp4::Source& source, bool keep) : source_(source), keep_(keep) {
  const std::optional<PacketForm> form = FindPacketForm(source);
  if (!form) throw Error(source.name(), "has no transport packets of 188, 192 or 204 bytes in a row");
  form_ = *form;
}

void RowReader::ReadBlock(uint64_t there) {
  if (!keep_ && !blocks_.empty()) {
    spare_ = std::move(blocks_.back().bytes);
    blocks_.clear();
  }
  Block block{at_, std::exchange(spare_, {})};
  block.bytes.resize(static_cast<size_t>(std::min<uint64_t>(kBlockBytes, there)));
  source_.Read(at_, block.bytes);
  blocks_.push_back(std::move(block));
}

size_t RowReader::Fetch(size_t least) {
  const auto left = [this] {
    return blocks_.empty() ? 0 : static_cast<size_t>(blocks_.back().at + blocks_.back().bytes.size() - at_);
  };
  const size_t had = left();
  if (had >= least) return had;
  const uint64_t there = AvailableOf(source_, at_, least);
  if (there > had) ReadBlock(there);
  return left();
}

void RowReader::Forget(uint64_t place) {
  // Rows of a block end where the next one begins.
  while (blocks_.size() > 1 && blocks_[1].at <= place) {
    spare_ = std::move(blocks_.front().bytes);
    blocks_.pop_front();
  }
}

bool RowReader::Next(Row& row) {
  size_t left = Fetch(form_.row);
  if (left == 0) return false;
  const bool packet =
      at_ >= form_.begin && left >= form_.row &&
      blocks_.back().bytes[static_cast<size_t>(at_ - blocks_.back().at) + form_.front] == kSync;
  // What is none takes a look at what follows.
  if (!packet) left = Fetch(2 * kLongestRow);
  Bytes& bytes = blocks_.back().bytes;
  const size_t from = static_cast<size_t>(at_ - blocks_.back().at);
  const auto isSync = [&](size_t offset) {
    const size_t place = offset + form_.front;
    return place < left && bytes[from + place] == kSync;
  };
  row = {bytes.data() + from, 0, 0, false};
  if (packet) {
    row.size = static_cast<uint8_t>(form_.row);
    row.front = static_cast<uint8_t>(form_.front);
    row.isPacket = true;
  } else if (at_ < form_.begin) {
    row.size = static_cast<uint8_t>(std::min<uint64_t>(form_.begin - at_, kPacketBytes));
  } else {
    // Two in a row begin packets again; at the file's end one does.
    size_t skipped = 1;
    const auto begins = [&](size_t offset) {
      return isSync(offset) && (isSync(offset + form_.row) || offset + form_.row >= left);
    };
    while (skipped < std::min(left, kPacketBytes) && !begins(skipped)) ++skipped;
    row.size = static_cast<uint8_t>(skipped);
  }
  at_ += row.size;
  return true;
}

}  // namespace qlnmedia::ts
