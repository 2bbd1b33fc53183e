// The diagnostics: what reaches the sink, the default sink, long texts, and several threads at once.

#include <gtest/gtest.h>
#include <unistd.h>

#include <climits>
#include <cstdio>
#include <string>
#include <thread>
#include <vector>

#include "kxutil/kxutil.h"
#include "support/test_support.h"

namespace qln::test {
namespace {

TEST(Diagnostics, TextsAndSeveritiesReachTheSink) {
  MessageCapture capture;
  ErrOut("No Allocation for CC Data");
  ErrOut("Sei cc not added Length %d %s %d", 5, "path", 7);
  ErrFmtOut(0x80000000u, 0, 0, "WARNING(XMLmCmd): %s\n", "broken");
  OutputDebugStringA("debug\n");
  OutputDebugStringA(nullptr);
  const char* const noFormat = nullptr;
  ErrOut(noFormat);
  ErrFmtOut(0x80000000u, 0, 0, noFormat);
  ASSERT_EQ(capture.messages().size(), 4u);
  EXPECT_EQ(capture.messages()[0].text, "No Allocation for CC Data");
  EXPECT_EQ(capture.messages()[0].severity, KX_SEVERITY_ERROR);
  EXPECT_EQ(capture.messages()[1].text, "Sei cc not added Length 5 path 7");
  EXPECT_EQ(capture.messages()[2].text, "WARNING(XMLmCmd): broken\n");
  EXPECT_EQ(capture.messages()[2].severity, 0x80000000u);
  EXPECT_EQ(capture.messages()[3].text, "debug\n");
  EXPECT_EQ(capture.messages()[3].severity, KX_SEVERITY_DEBUG);
}

// What ErrOut makes of a format and its arguments is what the C library makes of them.
TEST(Diagnostics, FormatsAsTheCLibraryDoes) {
  MessageCapture capture;
  const auto expect = [&](const char* format, auto first, auto... arguments) {
    char expected[2048];
    std::snprintf(expected, sizeof expected, format, first, arguments...);
    capture.clear();
    ErrOut(format, first, arguments...);
    ASSERT_EQ(capture.messages().size(), 1u) << format;
    EXPECT_EQ(capture.messages()[0].text, expected);
  };
  for (const int value : {0, 7, -1, 99, -100, INT_MAX, INT_MIN}) {
    const unsigned bits = static_cast<unsigned>(value);
    expect("%d", value);
    expect("at %d of %u: 0x%08X \n", value, bits, bits);
    expect("%08X%08X", bits, 0x12ABCDEFu);
    expect("%8X|%x|%X|%5d|%08d|%i", bits, bits, bits, value, value, value);
    expect("%d %% of %d%%", value, value);
    expect("%ld %d", static_cast<long>(value), value);
    expect("%s%d%s", "", value, " behind");
  }
  expect("100%%%s", "");
  expect("%c%s", 'a', "b");
  expect("%.2f", 1.5);
  expect("%s", "");
  expect("\nfailed bit = %d padding = %d current bit %d bit length %d 0x%08X 0x%08X", 1, 0, 77, 80, 5u,
         0xFFFFFFFFu);
  // Where the text, with its terminator, just fits and just does not.
  for (const size_t length : {size_t{1011}, size_t{1012}, size_t{1013}, size_t{1014}, size_t{1024}}) {
    const std::string text(length, 'x');
    expect("%s%d", text.c_str(), INT_MIN);
    expect("%d%s", INT_MIN, text.c_str());
    expect("%08X%s-%d", 0xABCu, text.c_str(), 5);
  }
}

TEST(Diagnostics, LongTextsArriveWhole) {
  MessageCapture capture;
  for (const size_t length : {size_t{1023}, size_t{1024}, size_t{1025}, size_t{100000}}) {
    const std::string text(length, 'x');
    ErrOut("%s", text.c_str());
    ASSERT_FALSE(capture.messages().empty());
    EXPECT_EQ(capture.messages().back().text, text);
  }
}

// What goes to standard error while an action runs.
template <typename Action>
std::string StandardErrorOf(Action action) {
  testing::internal::CaptureStderr();
  action();
  return testing::internal::GetCapturedStderr();
}

TEST(Diagnostics, TheDefaultSinkWritesLinesAndDropsDebugTexts) {
  kxSetDiagnosticSink(nullptr, nullptr);
  EXPECT_EQ(StandardErrorOf([] { ErrOut("plain %d", 1); }), "plain 1\n");
  EXPECT_EQ(StandardErrorOf([] { ErrOut("ended\n"); }), "ended\n");
  EXPECT_EQ(StandardErrorOf([] { ErrOut("%s", ""); }), "\n");
  EXPECT_EQ(StandardErrorOf([] { ErrFmtOut(0x80000000u, 0, 0, "100%% %s", "%d"); }), "100% %d\n");
  EXPECT_EQ(StandardErrorOf([] { OutputDebugStringA("debug"); }), "");
}

void Keep(uint32_t, const char* text, void* context) {
  static_cast<std::vector<std::string>*>(context)->emplace_back(text);
}

TEST(Diagnostics, AThreadMayHaveASinkOfItsOwn) {
  MessageCapture capture;
  std::vector<std::string> own, inner;
  KXDiagnosticSink before = Keep;
  void* beforeContext = &own;
  kxSetThreadDiagnosticSink(Keep, &own, &before, &beforeContext);
  EXPECT_EQ(before, nullptr);
  EXPECT_EQ(beforeContext, nullptr);
  ErrOut("mine");
  std::thread([] { ErrOut("another's"); }).join();
  kxSetThreadDiagnosticSink(Keep, &inner, &before, &beforeContext);
  EXPECT_EQ(before, Keep);
  EXPECT_EQ(beforeContext, &own);
  ErrOut("inner");
  kxSetThreadDiagnosticSink(before, beforeContext, nullptr, nullptr);
  ErrOut("mine again");
  kxSetThreadDiagnosticSink(nullptr, nullptr, nullptr, nullptr);
  ErrOut("everybody's");
  EXPECT_EQ(own, (std::vector<std::string>{"mine", "mine again"}));
  EXPECT_EQ(inner, std::vector<std::string>{"inner"});
  ASSERT_EQ(capture.messages().size(), 2u);
  EXPECT_EQ(capture.messages()[0].text, "another's");
  EXPECT_EQ(capture.messages()[1].text, "everybody's");
}

struct Counter {
  int inside = 0;
  int overlaps = 0;
  std::vector<std::string> texts;
};

void Count(uint32_t, const char* text, void* context) {
  Counter& counter = *static_cast<Counter*>(context);
  if (++counter.inside != 1) ++counter.overlaps;
  counter.texts.push_back(text);
  --counter.inside;
}

TEST(Diagnostics, CallsOfTheSinkDoNotOverlap) {
  Counter counter;
  kxSetDiagnosticSink(Count, &counter);
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([t] {
      for (int i = 0; i < 500; ++i) {
        switch (i % 3) {
          case 0:
            ErrOut("%d-%d", t, i);
            break;
          case 1:
            ErrFmtOut(0x80000000u, 0, 0, "%d-%d", t, i);
            break;
          default:
            OutputDebugStringA("debug");
        }
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  kxSetDiagnosticSink(nullptr, nullptr);
  EXPECT_EQ(counter.overlaps, 0);
  ASSERT_EQ(counter.texts.size(), 2000u);
  // Of each thread, the texts come in the order in which it sent them.
  std::vector<int> last(4, -1);
  for (const std::string& text : counter.texts) {
    int t = 0, i = 0;
    if (std::sscanf(text.c_str(), "%d-%d", &t, &i) != 2) continue;
    EXPECT_GT(i, last[static_cast<size_t>(t)]);
    last[static_cast<size_t>(t)] = i;
  }
}

}  // namespace
}  // namespace qln::test
