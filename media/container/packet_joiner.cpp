// Appends packets without times to those in front of them.

#include "container/packet_joiner.h"

#include <cstring>
#include <new>
#include <utility>

namespace qlnmedia {

PacketHandle PacketJoiner::Take(AVPacket* packet) {
  PacketHandle taken(av_packet_alloc());
  if (taken == nullptr) throw std::bad_alloc();
  av_packet_move_ref(taken.get(), packet);
  const auto index = static_cast<unsigned>(taken->stream_index);
  if (!transport_ || index >= context_.nb_streams ||
      context_.streams[index]->codecpar->codec_id != AV_CODEC_ID_H264)
    return taken;
  PacketHandle& waiting = waiting_[taken->stream_index];
  if (waiting == nullptr || taken->pts != AV_NOPTS_VALUE || taken->dts != AV_NOPTS_VALUE) {
    std::swap(waiting, taken);
    return taken;
  }
  const int size = waiting->size;
  if (av_grow_packet(waiting.get(), taken->size) < 0) throw std::bad_alloc();
  std::memcpy(waiting->data + size, taken->data, static_cast<size_t>(taken->size));
  waiting->duration += taken->duration;
  return nullptr;
}

PacketHandle PacketJoiner::Finish() {
  for (auto& [stream, waiting] : waiting_) {
    if (waiting != nullptr) return std::exchange(waiting, nullptr);
  }
  return nullptr;
}

}  // namespace qlnmedia
