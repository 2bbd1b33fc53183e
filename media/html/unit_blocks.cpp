// Packs units. A block is deflated: the number of its texts, each with its length in bytes in front; then for
// each picture the number of its units, and of each the type plus 1, how far it lies behind the end of the
// one before, its size, how many bytes of it are shown, these, and the place of its text plus 1, or 0. All
// numbers are as AppendNumber has them, the distance folded.

#include "html/unit_blocks.h"

#include <utility>

#include "html/packer.h"

namespace qlnmedia::html {

uint64_t UnitBlocks::PlaceOf(const std::string& text) {
  if (text.empty()) return 0;
  const auto [place, isNew] = places_.try_emplace(text, texts_.size() + 1);
  if (isNew) texts_.push_back(text);
  return place->second;
}

void UnitBlocks::Add(const std::vector<ShownUnit>& units) {
  AppendNumber(rows_, units.size());
  uint64_t end = 0;
  for (const ShownUnit& unit : units) {
    AppendNumber(rows_, static_cast<uint64_t>(unit.type + 1));
    AppendNumber(rows_, Folded(static_cast<int64_t>(unit.offset - end)));
    AppendNumber(rows_, unit.size);
    AppendNumber(rows_, unit.first.size());
    rows_.insert(rows_.end(), unit.first.begin(), unit.first.end());
    AppendNumber(rows_, PlaceOf(unit.text));
    end = unit.offset + unit.size;
  }
  if (++pictures_ == kPictures) Close();
}

void UnitBlocks::Close() {
  Bytes block;
  AppendNumber(block, texts_.size());
  for (const std::string& text : texts_) {
    AppendNumber(block, text.size());
    block.insert(block.end(), text.begin(), text.end());
  }
  block.insert(block.end(), rows_.begin(), rows_.end());
  blocks_.push_back(Base64(Deflated(block)));
  rows_.clear();
  texts_.clear();
  places_.clear();
  pictures_ = 0;
}

std::vector<std::string> UnitBlocks::Finish() {
  if (pictures_ > 0) Close();
  return std::exchange(blocks_, {});
}

}  // namespace qlnmedia::html
