// What allocates beside stores and files, with each allocation failing once: stream objects, long messages,
// and the table of blocks.

#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "faults/library_faults.h"
#include "kxutil/kxutil.h"
#include "qlnutil/hevc/nal_header.h"
#include "support/fault_layer.h"
#include "support/test_support.h"

namespace qln::test {
namespace {

TEST_F(LibraryFaults, AnSeiIsReadOrNot) {
  // Read from the second byte on: type 1, three bytes.
  const Bytes unit = Hex("4E 01 03 AA BB CC 80");
  bool made = false;
  int32_t result = 0;
  int payloadSize = 0;
  ForEachFault([] {},
               [&] {
                 h264_stream_t* const stream = h264_new();
                 made = stream != nullptr;
                 if (!made) return;
                 result = HevcReadNalUnit(stream, unit.data(), static_cast<int32_t>(unit.size()));
                 payloadSize = stream->sei->payloadSize;
                 EXPECT_EQ(stream->sei->data != nullptr, payloadSize != 0);
                 h264_free(stream);
               },
               [&](bool fired) {
                 if (made && result == 7) {
                   EXPECT_EQ(payloadSize, 3);
                   return;
                 }
                 EXPECT_TRUE(fired);
                 if (!made) return;
                 EXPECT_EQ(result, -1);
                 EXPECT_EQ(payloadSize, 0);
               });
}

// Without memory of its own, since it is called while there is none.
struct LastMessage {
  char text[8000] = {};
  int count = 0;
  static void Take(uint32_t, const char* text, void* message) {
    auto* const last = static_cast<LastMessage*>(message);
    std::strncpy(last->text, text, sizeof last->text - 1);
    ++last->count;
  }
};

TEST_F(LibraryFaults, ALongMessageIsWholeOrCut) {
  const std::string text(5000, 'm');
  static LastMessage message;
  ForEachFault(
      [&] {
        message = {};
        kxSetDiagnosticSink(LastMessage::Take, &message);
      },
      [&] { ErrOut("%s", text.c_str()); },
      [&](bool fired) {
        kxSetDiagnosticSink(nullptr, nullptr);
        EXPECT_EQ(message.count, 1);
        const std::string said = message.text;
        EXPECT_TRUE(said == text || fired);
        EXPECT_GE(said.size(), 500u);
        EXPECT_EQ(said, text.substr(0, said.size()));
      });
}

// A second allocation within the call is that of a larger table.
TEST_F(LibraryFaults, ABlockForWhichTheTableHasNoRoomIsNotThere) {
  std::vector<void*> blocks;
  blocks.reserve(200000);
  int refused = 0;
  while (refused < 3 && blocks.size() < blocks.capacity()) {
    const int64_t live = qlnFaultLiveBlocks();
    ASSERT_NE(qlnFaultArm("allocate", "ENOMEM", 2), 0);
    void* const block = KXAlloc(8);
    qlnFaultDisarm();
    if (qlnFaultFired() == 0) {
      ASSERT_NE(block, nullptr);
      blocks.push_back(block);
      continue;
    }
    ++refused;
    EXPECT_EQ(block, nullptr);
    EXPECT_EQ(qlnFaultLiveBlocks(), live);
  }
  EXPECT_EQ(refused, 3);
  for (void* const block : blocks) {
    EXPECT_EQ(KXAllocSize(block), 8u);
    KXFree(block);
  }
}

}  // namespace
}  // namespace qln::test
