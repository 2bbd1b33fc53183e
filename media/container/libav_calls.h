// libavformat, libavcodec and libavutil, which are loaded when one of their functions is first called: a host
// that edits streams in memory, and a command that reads no media, does without them. Each function stands
// here as an object of its own name, so that code in this namespace calls it as ever.
#ifndef MEDIA_CONTAINER_LIBAV_CALLS_H
#define MEDIA_CONTAINER_LIBAV_CALLS_H

extern "C" {
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wconversion"
#pragma GCC diagnostic ignored "-Wpedantic"
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/avutil.h>
#include <libavutil/display.h>
#include <libavutil/dovi_meta.h>
#include <libavutil/imgutils.h>
#include <libavutil/mastering_display_metadata.h>
#include <libavutil/pixdesc.h>
#include <libavutil/stereo3d.h>
#pragma GCC diagnostic pop
}

// What is called of each library. A function that is missing here is one that the linker does not find.
#define QLNMEDIA_LIBAVUTIL_CALLS(CALL) \
  CALL(av_channel_layout_describe)     \
  CALL(av_dict_free)                   \
  CALL(av_dict_get)                    \
  CALL(av_dict_set)                    \
  CALL(av_dict_set_int)                \
  CALL(av_display_rotation_get)        \
  CALL(av_frame_alloc)                 \
  CALL(av_frame_free)                  \
  CALL(av_free)                        \
  CALL(av_freep)                       \
  CALL(av_image_copy_to_buffer)        \
  CALL(av_image_get_buffer_size)       \
  CALL(av_log_default_callback)        \
  CALL(av_log_set_callback)            \
  CALL(av_malloc)                      \
  CALL(av_mallocz)                     \
  CALL(av_pix_fmt_desc_get)            \
  CALL(av_rescale_q)                   \
  CALL(av_strerror)
#define QLNMEDIA_LIBAVCODEC_CALLS(CALL) \
  CALL(av_get_bits_per_sample)          \
  CALL(av_grow_packet)                  \
  CALL(av_new_packet)                   \
  CALL(av_packet_alloc)                 \
  CALL(av_packet_free)                  \
  CALL(av_packet_get_side_data)         \
  CALL(av_packet_move_ref)              \
  CALL(av_packet_unref)                 \
  CALL(avcodec_alloc_context3)          \
  CALL(avcodec_decode_subtitle2)        \
  CALL(avcodec_default_get_buffer2)     \
  CALL(avcodec_find_decoder)            \
  CALL(avcodec_free_context)            \
  CALL(avcodec_get_name)                \
  CALL(avcodec_open2)                   \
  CALL(avcodec_profile_name)            \
  CALL(avcodec_receive_frame)           \
  CALL(avcodec_send_packet)             \
  CALL(avsubtitle_free)
#define QLNMEDIA_LIBAVFORMAT_CALLS(CALL) \
  CALL(av_disposition_to_string)         \
  CALL(av_find_input_format)             \
  CALL(av_index_search_timestamp)        \
  CALL(av_read_frame)                    \
  CALL(av_stream_get_side_data)          \
  CALL(av_stream_new_side_data)          \
  CALL(avformat_close_input)             \
  CALL(avformat_find_stream_info)        \
  CALL(avformat_free_context)            \
  CALL(avformat_index_get_entries_count) \
  CALL(avformat_index_get_entry)         \
  CALL(avformat_new_stream)              \
  CALL(avformat_open_input)              \
  CALL(avformat_alloc_context)           \
  CALL(avio_alloc_context)               \
  CALL(avio_context_free)
#define QLNMEDIA_LIBAV_CALLS(CALL) \
  QLNMEDIA_LIBAVUTIL_CALLS(CALL)   \
  QLNMEDIA_LIBAVCODEC_CALLS(CALL)  \
  QLNMEDIA_LIBAVFORMAT_CALLS(CALL)

#include <cerrno>

namespace qlnmedia {

// Where each function stands.
struct LibavCalls {
#define QLNMEDIA_MEMBER(name) decltype(&::name) name = nullptr;
  QLNMEDIA_LIBAV_CALLS(QLNMEDIA_MEMBER)
#undef QLNMEDIA_MEMBER
};

// Loads the libraries with the first call, whichever thread makes it; they then stay. Throws Error where one
// of them is missing or is not the version that this was built with; the next call tries again.
const LibavCalls& Libav();

// While one lives, what libav logs in its thread is about the engine's work, and nobody hears it: failures
// are told by Error. The decoders here start no threads of their own; what a thread of libav's says, as of a
// host's own use of it, goes where libav sends it.
class LibavSilence {
 public:
  LibavSilence() { ++depth; }
  ~LibavSilence() { --depth; }
  LibavSilence(const LibavSilence&) = delete;
  LibavSilence& operator=(const LibavSilence&) = delete;
  static bool Holds() { return depth > 0; }

 private:
  static inline constinit thread_local int depth = 0;
};

// Whether memory ran out within libav in this thread: it leaves out what it finds none for, a tag, a packet,
// a stream's private data, and mostly says nothing.
class LibavMemory {
 public:
  static bool RanOut() { return ranOut; }
  static void Forget() { ranOut = false; }
  // Around a call; the C library's allocator says so in errno, which nothing sets back.
  LibavMemory() : before_(errno) { errno = 0; }
  ~LibavMemory() {
    if (errno == ENOMEM) ranOut = true;
    if (errno == 0) errno = before_;
  }
  LibavMemory(const LibavMemory&) = delete;
  LibavMemory& operator=(const LibavMemory&) = delete;

 private:
  static inline constinit thread_local bool ranOut = false;
  int before_;
};

// One of the functions.
template <auto kPlace, typename Type = decltype(kPlace)>
class LibavCall;
template <auto kPlace, typename Result, typename... Arguments>
class LibavCall<kPlace, Result (*LibavCalls::*)(Arguments...)> {
 public:
  Result operator()(Arguments... arguments) const {
    const LibavSilence silence;
    const LibavMemory memory;
    return (Libav().*kPlace)(arguments...);
  }
};

// A type does not hold that a result must be looked at.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wignored-attributes"
#define QLNMEDIA_OBJECT(name) inline constexpr LibavCall<&LibavCalls::name> name{};  // NOLINT: libav's name
QLNMEDIA_LIBAV_CALLS(QLNMEDIA_OBJECT)
#undef QLNMEDIA_OBJECT
#pragma GCC diagnostic pop

}  // namespace qlnmedia

#endif
