// Reads digital captions (CTA-708) out of triplets: caption channel packets and their service blocks.
#ifndef CAPTIONS_SERVICE_READER_H
#define CAPTIONS_SERVICE_READER_H

#include <functional>
#include <span>

#include "captions/service_block.h"

namespace qlnmedia::captions {

// Gathers the triplets of a stream, in presentation order, to caption channel packets.
class ServiceReader {
 public:
  // Takes a service block: its service, 1 to 63, and its bytes.
  using Take = std::function<void(int, std::span<const uint8_t>)>;

  // Hands over the blocks of each packet that becomes whole with this triplet. What is not valid, of line 21,
  // or stands in front of the first packet's start is passed over; a packet that another one cuts off is
  // lost, since nobody can say where its blocks break off.
  void Add(const Triplet& triplet, const Take& take);

 private:
  void Close(const Take& take);

  Bytes packet_;  // while it is gathered
};

}  // namespace qlnmedia::captions

#endif
