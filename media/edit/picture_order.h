// Places of pictures in presentation order, for edits of a stream that nobody surveyed.
#ifndef MEDIA_EDIT_PICTURE_ORDER_H
#define MEDIA_EDIT_PICTURE_ORDER_H

#include <deque>
#include <optional>
#include <string>
#include <vector>

#include "edit/picture_units.h"
#include "pictures/declared_order.h"
#include "qlnmedia/stream_editor.h"

namespace qlnmedia {

// Packets are announced in coding order, some ahead of being taken, so that the place of each is known when
// its turn comes. The second field of a frame has none.
class PictureOrder {
 public:
  PictureOrder(const StreamDescription& stream, const StreamChanges& changes, std::string where);

  // Throws Error for a picture without a time where times tell the order, and for one that the stream brings
  // later than it says.
  void Announce(const PacketView& packet, const std::vector<PictureUnits>& parts);
  // Whether enough is announced to take the next packet before the end of the stream.
  bool Ready() const;
  // The place of the next announced packet's picture, from 0; nothing where it begins none.
  std::optional<uint32_t> Take();

 private:
  std::string where_;
  PresentationKeys keys_;
  DeclaredOrder order_;
  std::deque<bool> begins_;  // whether each announced packet begins a picture
};

}  // namespace qlnmedia

#endif
