// The text forms without memory: every allocation on the way fails once.

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "kxutil/kxutil.h"
#include "kxutil/tinyxml_header.h"
#include "mediacmd/allocations.h"
#include "mediacmd/command_support.h"
#include "qlnutil/mediacmd/command_json.h"
#include "qlnutil/mediacmd/text_buffer.h"
#include "support/sanitizers.h"

#ifdef QLN_ADDRESS_SANITIZER
#include <sanitizer/lsan_interface.h>
#endif

namespace qln::test {
namespace {

// The XML library loses the element that it is at when memory runs out; nothing of ours is lost with it.
class ParserMayLeak {
#ifdef QLN_ADDRESS_SANITIZER
 public:
  ParserMayLeak() { __lsan_disable(); }
  ~ParserMayLeak() { __lsan_enable(); }
#endif
};

// Enough text to outgrow any buffer on the stack.
MediaCmd LongClip() {
  MediaCmd command = Command(ctPlay, CF_USE_CLIP_ID | CF_USE_START | CF_USE_END);
  Put(command, 76, "CLIP");
  Put(command, 85, std::string(4000, 'f'));
  return command;
}

MediaCmd FrameData(uint32_t flags) {
  MediaCmd command = ValueCommand(25, ctSetValue, CF_USE_CLIP_ID | flags);
  std::memset(command.ClipID, 0x5A, 4188 - 76);
  return command;
}

std::vector<MediaCmd> Commands() {
  MediaCmd escaped = LongClip();
  Put(escaped, 85, "<&>");
  return {Command(ctStop), LongClip(), escaped, FrameData(0), FrameData(CF_NO_TC_SPACES)};
}

// Runs `call` with the first, the second, ... allocation failing until none is left to fail; after each
// failure `check` looks at what is left. Returns how many there were.
template <class Call, class Check>
int FailEach(Call call, Check check) {
  for (int failing = 0;; ++failing) {
    {
      FailAllocation fail(failing);
      call();
      if (!fail.hasFailed()) return failing;
    }
    check();
  }
}

TEST(WithoutMemory, TheXmlTextPointerStaysAsItWas) {
  for (MediaCmd command : Commands()) {
    char before[] = "before";
    char* text = before;
    const int allocations = FailEach([&] { EXPECT_EQ(MediaCmdToXMLString(&text, &command, 4), 0u); },
                                     [&] { EXPECT_EQ(text, before); });
    EXPECT_GE(allocations, 1);
    EXPECT_NE(text, before);
    MediaCmdFreeXMLString(&text);
  }
}

TEST(WithoutMemory, TheJsonTextPointerIsNull) {
  for (MediaCmd command : Commands()) {
    char before[] = "before";
    char* text = before;
    const int allocations = FailEach([&] { EXPECT_EQ(MediaCmdToJSON(&text, &command, 4), 0u); },
                                     [&] {
                                       EXPECT_EQ(text, nullptr);
                                       text = before;
                                     });
    EXPECT_GE(allocations, 1);
    ASSERT_NE(text, nullptr);
    EXPECT_NE(text, before);
    MediaCmdFreeXMLString(&text);
  }
}

TEST(WithoutMemory, ADocumentKeepsWhatWasAddedUntilThen) {
  for (MediaCmd command : Commands()) {
    size_t most = 0;
    for (int failing = 0;; ++failing) {
      TiXmlDocument document;
      bool hasFailed = false;
      {
        FailAllocation fail(failing);
        EXPECT_EQ(MediaCmdToXML(&document, &command, 4), 0u);
        hasFailed = fail.hasFailed();
      }
      TiXmlPrinter printer;
      document.Accept(&printer);
      EXPECT_GE(printer.Size(), most) << failing;
      most = printer.Size();
      if (!hasFailed) break;
    }
  }
}

// Reads a text of channel 7 with each of its allocations failing, of which there are `least` at the least.
void ExpectNoRootWithoutMemory(const std::string& text, int least) {
  [[maybe_unused]] const ParserMayLeak parserMayLeak{};
  MediaCmd command;
  uint32_t result = 0;
  const int allocations = FailEach(
      [&] {
        std::memset(&command, 0x5A, sizeof command);
        result = MediaCmdFromXMLString(&command, nullptr, text.c_str());
      },
      [&] {
        EXPECT_EQ(result, 0xFFFFFFFEu);
        EXPECT_TRUE(SameRecord(command, Command(ctStop)));
      });
  EXPECT_GE(allocations, least);
  EXPECT_EQ(result, 0u);
  EXPECT_EQ(command.Channel, 7);
}

TEST(WithoutMemory, AnXmlTextGivesNoRootAndAnInitialisedRecord) {
  ExpectNoRootWithoutMemory("<MediaCmd><Channel Value='7'/><ClipID>CLIP</ClipID></MediaCmd>", 3);
}

// Of more than 2 KB, once for the flat reader and once for the parser.
TEST(WithoutMemory, ALongXmlTextGivesNoRootAndAnInitialisedRecord) {
  ExpectNoRootWithoutMemory("<MediaCmd>" + std::string(3000, ' ') + "<Channel Value='7'/></MediaCmd>", 5);
}

TEST(WithoutMemory, ATextThatLackedMemoryOnceIsLost) {
  TextBuffer text;
  const std::string piece(10000, 'a');
  {
    FailAllocation fail(0);
    text.Append(std::string_view(piece));
    EXPECT_TRUE(fail.hasFailed());
  }
  text.Append(std::string_view(piece));
  EXPECT_EQ(text.ToBlock(), nullptr);
}

TEST(WithoutMemory, TheRestNeedsNone) {
  MediaCmd command = LongClip();
  MediaCmd copy = Command(ctStop);
  FailAllocation fail(0);
  copyMediaCmd(&copy, &command, 0xFFFFFFFFu);
  fixMediaCmd(&copy, 0);
  EXPECT_EQ(MediaCmdFromJSON(&copy, nullptr, "{\"MediaCmd\" : {\"Channel\":2,}}"), 0);
  EXPECT_EQ(copy.Channel, 2);
  EXPECT_FALSE(fail.hasFailed());
}

}  // namespace
}  // namespace qln::test
