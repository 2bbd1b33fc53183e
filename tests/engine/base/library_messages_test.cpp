// The diagnostics sink: whole lines, without their source location, each once.

#include "base/library_messages.h"

#include <gtest/gtest.h>

#include "kxutil/kxutil.h"

namespace qlnmedia {
namespace {

TEST(Messages, LocationIsTakenOff) {
  EXPECT_EQ(MessageLine("Not a sps NAL support/qlnutil/qlnvidutil 123"), "Not a sps NAL");
  EXPECT_EQ(MessageLine("Not a sps NAL support/qlnutil/qlnvidutil x1"),
            "Not a sps NAL support/qlnutil/qlnvidutil x1");
  EXPECT_EQ(MessageLine("\nfailed\nat 3\n"), "failed at 3");
}

TEST(Messages, AreTakenOnceAndDebugIsLeftOut) {
  MessageSink sink;
  ErrOut("one %d", 1);
  ErrOut("one %d", 1);
  OutputDebugStringA("debug");
  ErrFmtOut(KX_SEVERITY_WARNING, 0, 0, "WARNING: %s\n", "two");
  const std::vector<LibraryMessage> messages = sink.Take();
  ASSERT_EQ(messages.size(), 2u);
  EXPECT_EQ(messages[0].text, "one 1");
  EXPECT_EQ(messages[1].text, "WARNING: two");
  EXPECT_EQ(messages[1].severity, KX_SEVERITY_WARNING);
  EXPECT_TRUE(sink.Take().empty());
}

}  // namespace
}  // namespace qlnmedia
