// Bit reads and writes through the exported functions, beside GStreamer's bit reader and writer.

#include <benchmark/benchmark.h>

#include "bench_support.h"
#include "qlnutil/qlnbits.h"

#ifdef QLN_HAVE_GSTREAMER
#include <gst/base/gstbitreader.h>
#include <gst/base/gstbitwriter.h>
#endif

namespace {

using qln::bench::Bytes;
using qln::bench::Require;

// Field widths as they come in headers, mostly flags and short fields, for the mix; the u(n) rows take every
// n from 1 to 32 alike.
constexpr int kWidths[] = {1, 1, 3, 1, 5, 8, 1, 2, 4, 1, 1, 16, 1, 6, 1, 32, 1, 1, 10, 7};
constexpr size_t kFields = 20000;

struct Field {
  bool isUe;
  int width;
  uint32_t value;
};

std::vector<Field> MakeFields(bool withUnsigned, bool withUe) {
  std::vector<Field> fields;
  uint64_t state = 88172645463325252u;
  for (size_t i = 0; i < kFields; ++i) {
    state ^= state << 13;
    state ^= state >> 7;
    state ^= state << 17;
    const bool isUe = withUe && (!withUnsigned || i % 3 == 0);
    const int width = withUe ? kWidths[i % std::size(kWidths)] : 1 + static_cast<int>(state >> 33) % 32;
    // ue(v) values of headers are small; one in sixteen is not.
    const uint32_t value =
        isUe ? static_cast<uint32_t>(state >> 40) & ((state & 15) == 0 ? 0xFFFFu : 7u)
             : static_cast<uint32_t>(state >> 20) & static_cast<uint32_t>((uint64_t{1} << width) - 1);
    fields.push_back({isUe, width, value});
  }
  return fields;
}

Bytes WriteAll(const std::vector<Field>& fields) {
  Bytes bytes(kFields * 8);
  QLNBitState state{bytes.data(), static_cast<int32_t>(bytes.size()), 0, 0};
  for (const Field& field : fields) {
    if (field.isUe) {
      WriteExponentialGolombCode(&state, static_cast<int32_t>(field.value));
    } else {
      WriteBits(&state, field.width, field.value);
    }
  }
  bytes.resize(state.bitPos / 8 + 16);
  return bytes;
}

// One bit at a time, with ue(v) as the standard has it.
void RequireFields(const Bytes& bytes, const std::vector<Field>& fields) {
  size_t at = 0;
  const auto bit = [&] {
    const uint32_t value = bytes[at / 8] >> (7 - at % 8) & 1u;
    ++at;
    return value;
  };
  for (const Field& field : fields) {
    int zeros = 0;
    while (field.isUe && bit() == 0) ++zeros;
    uint64_t value = field.isUe ? 1 : 0;
    for (int left = field.isUe ? zeros : field.width; left > 0; --left) value = value << 1 | bit();
    Require(value - (field.isUe ? 1 : 0) == field.value, "bit writes");
  }
}

void ReadOurs(benchmark::State& run, const std::vector<Field>& fields) {
  Bytes bytes = WriteAll(fields);
  QLNBitState state{bytes.data(), static_cast<int32_t>(bytes.size()),
                    static_cast<uint32_t>(bytes.size() - 1) * 8, 0};
  for (const Field& field : fields) {
    const uint32_t value = field.isUe ? ReadExponentialGolombCode(&state) : ReadBits(&state, field.width);
    Require(value == field.value, "bit reads");
  }
  for (auto _ : run) {
    state.bitPos = 0;
    uint32_t sum = 0;
    for (const Field& field : fields) {
      sum += field.isUe ? ReadExponentialGolombCode(&state) : ReadBits(&state, field.width);
    }
    benchmark::DoNotOptimize(sum);
  }
}

void WriteOurs(benchmark::State& run, const std::vector<Field>& fields) {
  Bytes bytes(kFields * 8);
  QLNBitState state{bytes.data(), static_cast<int32_t>(bytes.size()), 0, 0};
  RequireFields(WriteAll(fields), fields);
  for (auto _ : run) {
    state.bitPos = 0;
    for (const Field& field : fields) {
      if (field.isUe) {
        WriteExponentialGolombCode(&state, static_cast<int32_t>(field.value));
      } else {
        WriteBits(&state, field.width, field.value);
      }
    }
    benchmark::DoNotOptimize(bytes.data());
    benchmark::ClobberMemory();
  }
}

#ifdef QLN_HAVE_GSTREAMER
// ue(v) by the usual loop over the public calls.
uint32_t GstReadUe(GstBitReader* reader) {
  guint32 zeros = 0;
  guint8 bit = 0;
  while (gst_bit_reader_get_bits_uint8(reader, &bit, 1) && bit == 0) ++zeros;
  guint32 suffix = 0;
  if (zeros != 0) gst_bit_reader_get_bits_uint32(reader, &suffix, zeros);
  return (1u << zeros) - 1 + suffix;
}

void ReadGStreamer(benchmark::State& run, const std::vector<Field>& fields) {
  const Bytes bytes = WriteAll(fields);
  for (auto _ : run) {
    GstBitReader reader;
    gst_bit_reader_init(&reader, bytes.data(), static_cast<guint>(bytes.size()));
    uint32_t sum = 0;
    for (const Field& field : fields) {
      guint32 value = 0;
      if (field.isUe) {
        value = GstReadUe(&reader);
      } else {
        gst_bit_reader_get_bits_uint32(&reader, &value, static_cast<guint>(field.width));
      }
      sum += value;
    }
    benchmark::DoNotOptimize(sum);
  }
}

void WriteGStreamer(benchmark::State& run, const std::vector<Field>& fields) {
  GstBitWriter writer;
  gst_bit_writer_init_with_size(&writer, kFields * 8, FALSE);
  for (auto _ : run) {
    gst_bit_writer_set_pos(&writer, 0);
    for (const Field& field : fields) {
      if (field.isUe) {
        const uint32_t code = field.value + 1;
        const guint length = 32 - static_cast<guint>(__builtin_clz(code));
        if (length > 1) gst_bit_writer_put_bits_uint32(&writer, 0, length - 1);
        gst_bit_writer_put_bits_uint32(&writer, code, length);
      } else {
        gst_bit_writer_put_bits_uint32(&writer, field.value, static_cast<guint>(field.width));
      }
    }
    benchmark::DoNotOptimize(gst_bit_writer_get_data(&writer));
    benchmark::ClobberMemory();
  }
  gst_bit_writer_reset(&writer);
}
#define QLN_BESIDE_GSTREAMER(row, function, ...)                           \
  BENCHMARK_CAPTURE(function##Ours, row, __VA_ARGS__)->Name(#row "/ours"); \
  BENCHMARK_CAPTURE(function##GStreamer, row, __VA_ARGS__)->Name(#row "/gstreamer");
#else
#define QLN_BESIDE_GSTREAMER(row, function, ...) \
  BENCHMARK_CAPTURE(function##Ours, row, __VA_ARGS__)->Name(#row "/ours");
#endif

QLN_BESIDE_GSTREAMER(bit_reads_mix, Read, MakeFields(true, true))
QLN_BESIDE_GSTREAMER(bit_reads_u, Read, MakeFields(true, false))
QLN_BESIDE_GSTREAMER(bit_reads_ue, Read, MakeFields(false, true))
QLN_BESIDE_GSTREAMER(bit_writes_mix, Write, MakeFields(true, true))
QLN_BESIDE_GSTREAMER(bit_writes_u, Write, MakeFields(true, false))
QLN_BESIDE_GSTREAMER(bit_writes_ue, Write, MakeFields(false, true))

}  // namespace
