// libavcodec's stream parser as a peer: it takes a unit or a whole picture and reads the parameter sets, and
// of the first slice what it needs.
#ifndef BENCH_LIBAV_PARSER_H
#define BENCH_LIBAV_PARSER_H

extern "C" {
#include <libavcodec/avcodec.h>
}

#include <cstring>

#include "bench_support.h"

namespace qln::bench {

class LibavParser {
 public:
  // Whole pictures are handed over where `isComplete`; otherwise it looks for where they end.
  LibavParser(AVCodecID codec, bool isComplete, const Bytes& configuration = {})
      : parser_(av_parser_init(codec)), context_(avcodec_alloc_context3(avcodec_find_decoder(codec))) {
    Require(parser_ != nullptr && context_ != nullptr, "libavcodec's parser");
    av_log_set_level(AV_LOG_QUIET);
    if (isComplete) parser_->flags |= PARSER_FLAG_COMPLETE_FRAMES;
    if (!configuration.empty()) {
      const size_t room = configuration.size() + AV_INPUT_BUFFER_PADDING_SIZE;
      context_->extradata = static_cast<uint8_t*>(av_mallocz(room));
      std::memcpy(context_->extradata, configuration.data(), configuration.size());
      context_->extradata_size = static_cast<int>(configuration.size());
    }
  }
  ~LibavParser() {
    av_parser_close(parser_);
    avcodec_free_context(&context_);
  }
  LibavParser(const LibavParser&) = delete;
  LibavParser& operator=(const LibavParser&) = delete;

  // The bytes as the parser asks for them.
  static Bytes Padded(Bytes bytes) {
    bytes.resize(bytes.size() + AV_INPUT_BUFFER_PADDING_SIZE);
    return bytes;
  }

  // Hands over padded bytes once. Returns how many the parser took.
  int Parse(const uint8_t* bytes, size_t size, bool* endsPicture = nullptr) {
    uint8_t* picture = nullptr;
    int pictureSize = 0;
    const int taken = av_parser_parse2(parser_, context_, &picture, &pictureSize, bytes,
                                       static_cast<int>(size), AV_NOPTS_VALUE, AV_NOPTS_VALUE, 0);
    if (endsPicture != nullptr) *endsPicture = pictureSize != 0;
    return taken;
  }
  int ParsePadded(const Bytes& padded) {
    return Parse(padded.data(), padded.size() - AV_INPUT_BUFFER_PADDING_SIZE);
  }

  // The coded size that the last picture came with; 0 while none has.
  int codedWidth() const { return parser_->coded_width; }
  int codedHeight() const { return parser_->coded_height; }

 private:
  AVCodecParserContext* parser_;
  AVCodecContext* context_;
};

}  // namespace qln::bench

#endif
