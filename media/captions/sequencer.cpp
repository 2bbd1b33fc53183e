// The share of each picture.

#include "captions/sequencer.h"

namespace qlnmedia::captions {

int64_t Sequencer::FieldsBefore(int64_t picture, Rate rate) {
  return picture * kFieldsPerSecond / InfoOf(rate).nominal;
}

void Sequencer::AddPairs(int field, const std::vector<Pair>& pairs) {
  std::deque<Pair>& queue = pairs_[field == 2 ? 1 : 0];
  queue.insert(queue.end(), pairs.begin(), pairs.end());
}

void Sequencer::AddService(const std::vector<Triplet>& triplets) {
  service_.insert(service_.end(), triplets.begin(), triplets.end());
}

std::vector<Triplet> Sequencer::NextPicture() {
  std::vector<Triplet> triplets;
  const auto count = static_cast<size_t>(InfoOf(rate_).triplets);
  for (int64_t field = FieldsBefore(picture_, rate_); field < FieldsBefore(picture_ + 1, rate_); ++field) {
    std::deque<Pair>& queue = pairs_[field % 2];
    Pair pair = kNullPair;
    if (!queue.empty()) {
      pair = queue.front();
      queue.pop_front();
    }
    triplets.push_back({true, field % 2 == 0 ? CcType::kField1 : CcType::kField2,
                        static_cast<uint8_t>(pair >> 8), static_cast<uint8_t>(pair)});
  }
  while (triplets.size() < count && !service_.empty()) {
    triplets.push_back(service_.front());
    service_.pop_front();
  }
  triplets.resize(count, Triplet{});
  ++picture_;
  return triplets;
}

CaptionPacket Sequencer::NextPacket() {
  CaptionPacket packet;
  packet.rate = rate_;
  packet.counter = counter_++;
  packet.triplets = NextPicture();
  return packet;
}

}  // namespace qlnmedia::captions
