// Copies what was edited into buffers of libav's.

#include "container/edited_stream.h"

#include <cstring>
#include <new>

#include "container/hdr_side_data.h"

namespace qlnmedia {

void SetParameters(AVStream* out, const OutputParameters& wanted) {
  AVCodecParameters& parameters = *out->codecpar;
  // The muxer counts what it writes. An older count would stay as the highest rate, and go in the next run.
  parameters.bit_rate = 0;
  if (wanted.interlaced) {
    const AVFieldOrder fields = wanted.bottomFirst ? AV_FIELD_BB : AV_FIELD_TT;
    parameters.field_order = *wanted.interlaced ? fields : AV_FIELD_PROGRESSIVE;
  }
  if (!wanted.privateData.empty()) {
    const Bytes& data = wanted.privateData;
    auto* const copy = static_cast<uint8_t*>(av_mallocz(data.size() + AV_INPUT_BUFFER_PADDING_SIZE));
    if (copy == nullptr) throw std::bad_alloc();
    std::memcpy(copy, data.data(), data.size());
    av_freep(&parameters.extradata);
    parameters.extradata = copy;
    parameters.extradata_size = static_cast<int>(data.size());
  }
  if (wanted.colour) {
    parameters.color_primaries = static_cast<AVColorPrimaries>(wanted.colour->primaries);
    parameters.color_trc = static_cast<AVColorTransferCharacteristic>(wanted.colour->transfer);
    parameters.color_space = static_cast<AVColorSpace>(wanted.colour->matrix);
  }
  if (wanted.fullRange) parameters.color_range = *wanted.fullRange ? AVCOL_RANGE_JPEG : AVCOL_RANGE_MPEG;
  if (wanted.sampleAspect) {
    out->sample_aspect_ratio = {static_cast<int>(wanted.sampleAspect->width),
                                static_cast<int>(wanted.sampleAspect->height)};
    parameters.sample_aspect_ratio = out->sample_aspect_ratio;
  }
  if (wanted.size) {
    parameters.width = static_cast<int>((*wanted.size)[0]);
    parameters.height = static_cast<int>((*wanted.size)[1]);
  }
  if (wanted.mastering) SetContainerMastering(out, *wanted.mastering);
  if (wanted.lightLevel) SetContainerLightLevel(out, *wanted.lightLevel);
}

void ReplacePacketData(AVPacket* packet, const Bytes& data) {
  AVBufferRef* const buffer = av_buffer_alloc(data.size() + AV_INPUT_BUFFER_PADDING_SIZE);
  if (buffer == nullptr) throw std::bad_alloc();
  if (!data.empty()) std::memcpy(buffer->data, data.data(), data.size());
  std::memset(buffer->data + data.size(), 0, AV_INPUT_BUFFER_PADDING_SIZE);
  av_buffer_unref(&packet->buf);
  packet->buf = buffer;
  packet->data = buffer->data;
  packet->size = static_cast<int>(data.size());
}

}  // namespace qlnmedia
