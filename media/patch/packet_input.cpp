// Opens the file once more for each pass.

#include "patch/packet_input.h"

#include <new>

#include "base/progress.h"
#include "container/coded_stream.h"
#include "container/packet_joiner.h"

namespace qlnmedia {

StreamDescription PacketInput::Describe(unsigned stream) const { return DescribeStream(in_, stream); }

void PacketInput::Read(const std::set<unsigned>& streams, const ProgressCallback& progress,
                       const Take& take) const {
  MediaFile file(in_.path());
  PacketJoiner joiner(file);
  const auto give = [&](const PacketHandle& packet) {
    const auto index = static_cast<unsigned>(packet->stream_index);
    if (streams.count(index) != 0) take(index, ViewOf(*packet));
  };
  const PacketHandle packet(av_packet_alloc());
  if (packet == nullptr) throw std::bad_alloc();
  Progress meter(progress, "reading", file.sizeBytes());
  while (file.Read(packet.get())) {
    meter.At(packet->pos);
    if (const PacketHandle whole = joiner.Take(packet.get())) give(whole);
  }
  while (const PacketHandle whole = joiner.Finish()) give(whole);
  meter.Done();
}

}  // namespace qlnmedia
