// Without memory: a long unit is not read and nothing is touched, and a walk over a configuration record has
// the outcome that it has with memory.

#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <new>

#include "hevc/unit_builders.h"
#include "kxutil/kxutil.h"
#include "qlnutil/hevc/nal_header.h"
#include "qlnutil/hevc/parameter_sets.h"

namespace {

bool nothrowIsOut = false;  // allocations that may fail by a null pointer
int64_t throwingLeft = -1;  // allocations that may throw, up to the first that does; below 0: all succeed

void* Allocate(std::size_t size) {
  if (throwingLeft == 0) throw std::bad_alloc();
  if (throwingLeft > 0) --throwingLeft;
  void* const block = std::malloc(size);
  if (block == nullptr) throw std::bad_alloc();
  return block;
}

}  // namespace

void* operator new(std::size_t size) { return Allocate(size); }
void* operator new[](std::size_t size) { return Allocate(size); }
void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
  return nothrowIsOut ? nullptr : std::malloc(size);
}
void* operator new[](std::size_t size, const std::nothrow_t&) noexcept {
  return nothrowIsOut ? nullptr : std::malloc(size);
}
void operator delete(void* block) noexcept { std::free(block); }
void operator delete[](void* block) noexcept { std::free(block); }
void operator delete(void* block, std::size_t) noexcept { std::free(block); }
void operator delete[](void* block, std::size_t) noexcept { std::free(block); }

namespace qln::test {
namespace {

class NoMemory {
 public:
  NoMemory() { nothrowIsOut = true; }
  ~NoMemory() { nothrowIsOut = false; }
};

// Messages are dropped without a trace: a capture would want memory, too.
class Silence {
 public:
  Silence() {
    kxSetDiagnosticSink([](uint32_t, const char*, void* count) { ++*static_cast<int*>(count); }, &messages_);
  }
  ~Silence() { kxSetDiagnosticSink(nullptr, nullptr); }
  int messages() const { return messages_; }

 private:
  int messages_ = 0;
};

template <class Record, class Inner>
void ExpectNothingWithoutMemory(Bytes unit, Reader<Record> reader, Inner inner) {
  unit.resize(3000, 0);  // longer than what copies on the stack hold
  const auto record = std::make_unique<Record>();
  std::memset(static_cast<void*>(record.get()), 0x5A, sizeof *record);
  const std::vector<uint32_t> before = Words(*record);
  HevcConfigRecord config{};
  for (const uint32_t bitPos : {0u, 8u}) {
    QLNBitState state{unit.data(), static_cast<int32_t>(unit.size()), static_cast<uint32_t>(unit.size() * 8),
                      bitPos};
    Silence silence;
    uint64_t result = 0;
    HevcRead read{HevcRead::End::kRead};
    {
      NoMemory none;
      result = reader(&state, record.get(), &config, 0);
      HevcReports reports;
      read = inner(&state, record.get(), &config, 0u, reports);
    }
    EXPECT_EQ(result, QLN_HEVC_REFUSED);
    EXPECT_EQ(read.end, HevcRead::End::kNoMemory);
    EXPECT_EQ(state.bitPos, bitPos);
    EXPECT_EQ(Words(*record), before);
    EXPECT_EQ(config.general_level_idc, 0u);
    EXPECT_EQ(silence.messages(), 0);
  }
  // With memory it is read, and a unit of another type is refused for what it is.
  QLNBitState state{unit.data(), static_cast<int32_t>(unit.size()), static_cast<uint32_t>(unit.size() * 8),
                    0};
  Silence silence;
  HevcReports reports;
  EXPECT_EQ(inner(&state, record.get(), &config, 0u, reports).end, HevcRead::End::kRead);
  unit[0] = 0;
  state.bitPos = 0;
  EXPECT_EQ(inner(&state, record.get(), &config, 0u, reports).end, HevcRead::End::kRefused);
}

TEST(HevcWithoutMemory, ALongUnitIsNotReadAndNothingIsTouched) {
  ExpectNothingWithoutMemory<HevcVpsRecord>(Vps(), qlnutilRead_HEVC_VPS, HevcReadVps);
  ExpectNothingWithoutMemory<HevcSpsRecord>(Sps(), qlnutilRead_HEVC_SPS, HevcReadSps);
  ExpectNothingWithoutMemory<HevcPpsRecord>(Pps(), qlnutilRead_HEVC_PPS, HevcReadPps);
}

TEST(HevcWithoutMemory, ALongConfigurationRecordIsNotWritten) {
  const Bytes unit(3000, 0x55);
  Bytes out(4000, 0xEE);
  QLNBitState state{out.data(), 4000, 0, 16};
  const auto write = [&] {
    return qlnutilWrite_HEVC_CR(&state, nullptr, unit.data(), nullptr, nullptr, 3000, 0, 0);
  };
  {
    NoMemory none;
    EXPECT_EQ(write(), 2u);
  }
  EXPECT_EQ(state.bitPos, 16u);
  EXPECT_EQ(out, Bytes(4000, 0xEE));
  EXPECT_EQ(write(), 2u + 3 * 5 + 3000);
}

TEST(HevcWithoutMemory, ALongSeiIsNotRead) {
  Bytes sei(3000, 0x55);
  sei[0] = 39 << 1;
  h264_stream_t* const stream = h264_new();
  {
    NoMemory none;
    EXPECT_EQ(HevcReadNalUnit(stream, sei.data(), static_cast<int32_t>(sei.size())), -1);
  }
  EXPECT_EQ(stream->nal->nal_unit_type, 39u);
  EXPECT_EQ(stream->nal->parsed, nullptr);
  HevcReadNalUnit(stream, sei.data(), static_cast<int32_t>(sei.size()));
  EXPECT_EQ(stream->nal->parsed, stream->sei);
  h264_free(stream);
}

TEST(HevcWithoutMemory, ALongConfigurationRecordIsNotRead) {
  Bytes box(3000, 0);
  HevcConfigRecord config{};
  QLNBitState state{box.data(), static_cast<int32_t>(box.size()), static_cast<uint32_t>(box.size() * 8), 5};
  Silence silence;
  NoMemory none;
  EXPECT_EQ(qlnutilRead_HEVC_CR(&state, &config, nullptr, nullptr, nullptr), QLN_HEVC_REFUSED);
  EXPECT_EQ(state.bitPos, 5u);
  EXPECT_EQ(silence.messages(), 0);
}

TEST(HevcWithoutMemory, AWalkThatCannotRememberHasTheSameOutcome) {
  // A PPS array whose first unit is refused at bit 7; in the header the walk finds a PPS of 34 bytes at byte
  // 2, and behind it one that is refused again.
  Bytes box(300, 0xFF);
  const Bytes head =
      Hex("00 00 44 00 FF FF FC FF 01 01 60 00 00 00 90 00 00 00 00 00 F0 F0 00 FC FD F8 F8 00 00 0F "
          "01 A2 03 E8 00 02 42 01 42");
  std::copy(head.begin(), head.end(), box.begin());
  struct Records {
    HevcConfigRecord config{};
    std::unique_ptr<HevcVpsRecord> vps = std::make_unique<HevcVpsRecord>();
    std::unique_ptr<HevcSpsRecord> sps = std::make_unique<HevcSpsRecord>();
    HevcPpsRecord pps{};
    uint32_t result = 0;
    uint32_t bitPos = 0;
  };
  const auto read = [&](int64_t allocations) {
    Records records;
    QLNBitState state{box.data(), static_cast<int32_t>(box.size()), static_cast<uint32_t>(box.size() * 8), 0};
    throwingLeft = allocations;
    records.result =
        qlnutilRead_HEVC_CR(&state, &records.config, records.vps.get(), records.sps.get(), &records.pps);
    throwingLeft = -1;
    records.bitPos = state.bitPos;
    return records;
  };
  Silence silence;
  const Records with = read(-1);
  EXPECT_EQ(with.bitPos, 7u + 16 + 34 * 8) << "999 rounds behind the first, of periods of two";
  EXPECT_EQ(with.pps.num_extra_slice_header_bits, 7u);
  for (int64_t allocations = 0; allocations < 120; ++allocations) {
    const Records without = read(allocations);
    EXPECT_EQ(without.result, with.result) << allocations;
    EXPECT_EQ(without.bitPos, with.bitPos) << allocations;
    EXPECT_EQ(Words(without.pps), Words(with.pps)) << allocations;
    EXPECT_EQ(std::memcmp(&without.config, &with.config, sizeof with.config), 0) << allocations;
  }
}

}  // namespace
}  // namespace qln::test
