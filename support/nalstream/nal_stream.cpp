// The stream object and its SEI reading, bounded by the unit that is read.

#include <cstdlib>
#include <cstring>

#include "nalstream/nalstream.h"

namespace {

// A stream object with its two records in one block.
struct StreamBlock {
  h264_stream_t stream;
  HevcNalHeader nal;
  sei_t sei;
};
static_assert(sizeof(sei_t) == 16, "the size that is reported for a parsed SEI");

// The payload as a run of bytes that is followed by zeros without end.
struct ByteRun {
  const uint8_t* data;
  int64_t size;
  int64_t position;
  int64_t lastSet;  // index of the last byte that is not 0, or -1

  uint32_t Next() {
    const int64_t p = position++;
    return p < size ? data[p] : 0u;
  }

  // Payload type and payload size: bytes are summed for as long as they are 255.
  uint32_t NextNumber() {
    uint32_t sum = 0;
    uint32_t byte;
    do {
      byte = Next();
      sum += byte;
    } while (byte == 255);
    return sum;
  }

  bool MoreMessages() const { return position < size && !(position == lastSet && data[position] == 0x80); }
};

}  // namespace

h264_stream_t* h264_new() {
  auto* const block = static_cast<StreamBlock*>(std::calloc(1, sizeof(StreamBlock)));
  if (block == nullptr) return nullptr;
  block->stream.nal = &block->nal;
  block->stream.sei = &block->sei;
  return &block->stream;
}

void h264_free(h264_stream_t* stream) {
  if (stream == nullptr) return;
  std::free(stream->sei->data);
  std::free(stream);
}

int64_t read_sei_rbsp(h264_stream_t* stream, const uint8_t* rbsp, int size) {
  sei_t* const sei = stream->sei;
  std::free(sei->data);
  *sei = {0, 0, nullptr};

  ByteRun run{rbsp, size < 0 ? 0 : size, 0, -1};
  for (int64_t i = run.size - 1; i >= 0 && run.lastSet < 0; --i) {
    if (rbsp[i] != 0) run.lastSet = i;
  }

  int64_t payload = 0;
  do {
    sei->payloadType = static_cast<int>(run.NextNumber());
    const uint32_t coded = run.NextNumber();
    payload = run.position;
    const int64_t left = payload < run.size ? run.size - payload : 0;
    sei->payloadSize = static_cast<int>(coded < left ? coded : left);
    run.position += coded;
  } while (run.MoreMessages());
  ++run.position;  // the stop bit and its alignment

  if (sei->payloadSize != 0) {
    sei->data = static_cast<uint8_t*>(std::malloc(static_cast<size_t>(sei->payloadSize)));
    if (sei->data == nullptr) {
      *sei = {0, 0, nullptr};
      return -1;
    }
    std::memcpy(sei->data, rbsp + payload, static_cast<size_t>(sei->payloadSize));
  }
  return run.position;
}
