// Orders the pictures of packets by their times or counts.

#include "edit/picture_order.h"

#include <utility>

#include "base/error.h"

namespace qlnmedia {

PictureOrder::PictureOrder(const StreamDescription& stream, const StreamChanges& changes, std::string where)
    : where_(std::move(where)), keys_(stream), order_(changes.reorder) {}

void PictureOrder::Announce(const PacketView& packet, const std::vector<PictureUnits>& parts) {
  std::vector<CodedPicture> pictures;
  for (const PictureUnits& part : parts) {
    if (part.picture && part.picture->head && !part.picture->secondField) pictures.push_back(*part.picture);
  }
  if (!pictures.empty() && keys_.timed() && packet.pts == kNoTime)
    throw Error(where_, "has a picture without a presentation time", "remux it with times first");
  begins_.push_back(!pictures.empty());
  if (!pictures.empty() && !order_.Add(keys_.Next(packet, pictures).value()))
    throw Error(where_,
                "has a picture that comes later than the reorder depth allows that the stream declares",
                "patch a file of it");
}

bool PictureOrder::Ready() const { return order_.ready() || (!begins_.empty() && !begins_.front()); }

std::optional<uint32_t> PictureOrder::Take() {
  const bool begins = begins_.front();
  begins_.pop_front();
  if (!begins) return {};
  return order_.Take();
}

}  // namespace qlnmedia
