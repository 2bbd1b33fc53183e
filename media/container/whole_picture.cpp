// Decodes a picture twice under different surroundings and compares what comes out.

#include "container/whole_picture.h"

#include <cstring>
#include <map>
#include <new>

#include "container/libav_handles.h"

namespace qlnmedia {

namespace {

constexpr int64_t kReferenceTime = 1;
constexpr int64_t kPictureTime = 2;

// What differs between the two decodings. Samples of the fill are legal at every bit depth.
struct Surroundings {
  uint8_t fill;    // the byte that buffers hold before they are decoded into
  uint8_t turned;  // the bits that are turned over in the bytes behind the last slice
  int only = -1;   // the one buffer that gets the fill, by order of request; -1 for all
  int asked = 0;   // buffers that were asked for
};

// A decoder's pictures as plain samples, by the time of the data that they came from.
using Pictures = std::map<int64_t, Bytes>;

int FilledBuffer(AVCodecContext* context, AVFrame* frame, int flags) {
  const int result = avcodec_default_get_buffer2(context, frame, flags);
  if (result < 0) return result;
  Surroundings& surroundings = *static_cast<Surroundings*>(context->opaque);
  const int number = surroundings.asked++;
  const int fill = surroundings.only < 0 || surroundings.only == number ? surroundings.fill : 0;
  for (AVBufferRef* const buffer : frame->buf) {
    if (buffer != nullptr) std::memset(buffer->data, fill, buffer->size);
  }
  return result;
}

// Bytes that hold no start code and do not read as emulation prevention.
void AppendGarbage(Bytes& data, uint8_t turned) {
  constexpr int kCount = 4096;
  uint32_t state = 0x2F6E2B1;
  for (int i = 0; i < kCount; ++i) {
    state = state * 1664525u + 1013904223u;
    data.push_back(static_cast<uint8_t>((state >> 24 ^ turned) | 4));
  }
}

CodecContextHandle OpenDecoder(Codec codec, Surroundings& surroundings) {
  const AVCodec* const decoder =
      avcodec_find_decoder(codec == Codec::kH264 ? AV_CODEC_ID_H264 : AV_CODEC_ID_HEVC);
  if (decoder == nullptr) return nullptr;
  CodecContextHandle context(avcodec_alloc_context3(decoder));
  if (context == nullptr) throw std::bad_alloc();
  context->opaque = &surroundings;
  context->get_buffer2 = FilledBuffer;
  context->thread_count = 1;
  context->thread_type = FF_THREAD_SLICE;  // of frames it would warn, for the sake of our own buffers
  context->error_concealment = 0;          // nobody writes what the data does not give
  // Pictures in between are left out, so that the order count of the last one may come out lower than that of
  // the one in front; the decoder drops such a picture unless it keeps all of them up to the end.
  constexpr int kMostWaiting = 16;
  if (codec == Codec::kH264) context->has_b_frames = kMostWaiting;
  context->flags |= AV_CODEC_FLAG_OUTPUT_CORRUPT;
  context->flags2 |= AV_CODEC_FLAG2_SHOW_ALL;
  if (avcodec_open2(context.get(), decoder, nullptr) < 0) return nullptr;
  return context;
}

void TakePictures(AVCodecContext& context, Pictures& pictures) {
  const FrameHandle frame(av_frame_alloc());
  if (frame == nullptr) throw std::bad_alloc();
  while (avcodec_receive_frame(&context, frame.get()) >= 0) {
    const auto format = static_cast<AVPixelFormat>(frame->format);
    const int size = av_image_get_buffer_size(format, frame->width, frame->height, 1);
    if (size <= 0) continue;
    Bytes samples(static_cast<size_t>(size));
    av_image_copy_to_buffer(samples.data(), size, frame->data, frame->linesize, format, frame->width,
                            frame->height, 1);
    pictures[frame->pts] = std::move(samples);
  }
}

// Failures are no concern here: a picture that does not come out is missing from the result.
void Send(AVCodecContext& context, const Bytes& data, int64_t time, Pictures& pictures) {
  const PacketHandle packet(av_packet_alloc());
  if (packet == nullptr || av_new_packet(packet.get(), static_cast<int>(data.size())) < 0)
    throw std::bad_alloc();
  std::memcpy(packet->data, data.data(), data.size());
  packet->pts = packet->dts = time;
  avcodec_send_packet(&context, packet.get());
  TakePictures(context, pictures);
}

Bytes Join(const Bytes& first, const Bytes& second) {
  Bytes all = first;
  all.insert(all.end(), second.begin(), second.end());
  return all;
}

Pictures Decode(const PictureTrial& trial, Surroundings& surroundings) {
  Pictures pictures;
  const CodecContextHandle context = OpenDecoder(trial.codec, surroundings);
  if (context == nullptr) return pictures;
  Bytes picture = trial.reference.empty() ? Join(trial.sets, trial.picture) : trial.picture;
  AppendGarbage(picture, surroundings.turned);
  if (!trial.reference.empty()) Send(*context, Join(trial.sets, trial.reference), kReferenceTime, pictures);
  Send(*context, picture, kPictureTime, pictures);
  avcodec_send_packet(context.get(), nullptr);
  TakePictures(*context, pictures);
  return pictures;
}

bool Same(const Pictures& a, const Pictures& b, int64_t time) {
  const auto one = a.find(time);
  const auto other = b.find(time);
  return one != a.end() && other != b.end() && one->second == other->second;
}

}  // namespace

Wholeness TryPicture(const PictureTrial& trial) {
  Surroundings one{0, 0};
  const Pictures first = Decode(trial, one);
  // Behind a gap in frame_num, and for references that are missing, the H.264 decoder makes frames up, and
  // predicts from what their memory holds: only the picture's own memory, asked for last, may differ.
  Surroundings other{1, 0xFF};
  if (trial.codec == Codec::kH264) other.only = one.asked - 1;
  const Pictures second = Decode(trial, other);
  const bool known =
      trial.reference.empty() ? first.contains(kPictureTime) : Same(first, second, kReferenceTime);
  if (!known) return Wholeness::kUnknown;
  // Neither of the two: the decoder does not take the picture, whole or not.
  if (!first.contains(kPictureTime) && !second.contains(kPictureTime)) return Wholeness::kUnknown;
  return Same(first, second, kPictureTime) ? Wholeness::kWhole : Wholeness::kCutOff;
}

}  // namespace qlnmedia
