// libavformat, libavcodec and libavutil (see libav_calls.h), and owners of their objects.
#ifndef MEDIA_CONTAINER_LIBAV_HANDLES_H
#define MEDIA_CONTAINER_LIBAV_HANDLES_H

#include <memory>
#include <string>

#include "container/libav_calls.h"
#include "units/coded_stream.h"

namespace qlnmedia {

struct InputCloser {
  void operator()(AVFormatContext* context) const { avformat_close_input(&context); }
};
struct PacketFreer {
  void operator()(AVPacket* packet) const { av_packet_free(&packet); }
};
struct CodecContextFreer {
  void operator()(AVCodecContext* context) const { avcodec_free_context(&context); }
};
struct FrameFreer {
  void operator()(AVFrame* frame) const { av_frame_free(&frame); }
};

using InputHandle = std::unique_ptr<AVFormatContext, InputCloser>;
using PacketHandle = std::unique_ptr<AVPacket, PacketFreer>;
using CodecContextHandle = std::unique_ptr<AVCodecContext, CodecContextFreer>;
using FrameHandle = std::unique_ptr<AVFrame, FrameFreer>;

inline Rational FromLibav(AVRational value) { return {value.num, value.den}; }
static_assert(AV_NOPTS_VALUE == kNoTime);

// The text of an error number of libav, as "No such file or directory".
std::string LibavErrorText(int error);

}  // namespace qlnmedia

#endif
