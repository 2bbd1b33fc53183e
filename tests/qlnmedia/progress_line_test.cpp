// The line about work on several files, as a terminal gets it.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <pty.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <functional>
#include <string>
#include <vector>

#include "progress_bar.h"

namespace qlnmedia {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;

// What `work` writes to standard error, which is a terminal of that many columns.
std::string OnTerminal(int columns, const std::function<void()>& work) {
  winsize size{50, static_cast<unsigned short>(columns), 0, 0};
  int screen = -1;
  const pid_t child = forkpty(&screen, nullptr, nullptr, &size);
  if (child == 0) {
    work();
    std::fflush(stderr);
    _exit(0);
  }
  std::string text;
  char bytes[4096];
  for (ssize_t got = 0; (got = read(screen, bytes, sizeof bytes)) > 0;)
    text.append(bytes, static_cast<size_t>(got));
  close(screen);
  waitpid(child, nullptr, 0);
  return text;
}

// What stands in a line after each time that it is drawn anew.
std::vector<std::string> Drawn(const std::string& text) {
  const std::string again = "\r\x1b[K";
  std::vector<std::string> lines;
  for (size_t at = text.find(again); at != std::string::npos;) {
    const size_t next = text.find(again, at + again.size());
    lines.push_back(
        text.substr(at + again.size(), next == std::string::npos ? next : next - at - again.size()));
    at = next;
  }
  return lines;
}

ProgressStep Half() { return {"checking", 50, 100, false}; }

TEST(ProgressLineOnATerminal, SaysHowFarTheWorkIs) {
  const std::string text = OnTerminal(80, [] {
    ProgressLine line(12);
    line.Step("a.mp4", Half());
    line.FileDone();
  });
  EXPECT_THAT(Drawn(text), ElementsAre("0 of 12 files done, checking a.mp4  50%", "1 of 12 files done", ""));
}

TEST(ProgressLineOnATerminal, KeepsTheEndOfLongPathsAndItsOwn) {
  const std::string path = "/a" + std::string(300, 'x') + "/\u00fcber/clip.mp4";
  for (const int columns : {60, 80, 200}) {
    const std::string text = OnTerminal(columns, [&path] { ProgressLine(3).Step(path, Half()); });
    const std::vector<std::string> lines = Drawn(text);
    ASSERT_EQ(lines.size(), 2u);
    // One column stays free, and the character of two bytes takes one.
    EXPECT_EQ(lines[0].size(), static_cast<size_t>(columns - 1 + 1));
    EXPECT_THAT(lines[0], testing::EndsWith("/\u00fcber/clip.mp4  50%"));
    EXPECT_EQ(lines[1], "");
  }
  // Cut between characters and not in one of them.
  for (const int columns : {44, 45, 46, 47}) {
    const std::string text = OnTerminal(
        columns, [] { ProgressLine(3).Step("\u00fc\u00fc\u00fc\u00fc\u00fc\u00fc\u00fc\u00fc", Half()); });
    EXPECT_THAT(Drawn(text)[0], HasSubstr("checking \u00fc"));
  }
}

TEST(ProgressLineOnATerminal, DoesNotSteerIt) {
  const std::string text = OnTerminal(80, [] { ProgressLine(3).Step("a\x1b[31m\n.mp4", Half()); });
  EXPECT_THAT(text, HasSubstr("a\\x1B[31m\\x0A.mp4"));
}

TEST(ProgressLineOnATerminal, IsAwayWhilePeopleRead) {
  const std::string text = OnTerminal(80, [] {
    ProgressLine line(2);
    line.Step("a.mp4", Half());
    line.Around([] { std::fputs("result\n", stderr); });
    line.FileDone();
    line.FileDone();
    line.Around([] { std::fputs("last\n", stderr); });
  });
  EXPECT_THAT(Drawn(text),
              ElementsAre("0 of 2 files done, checking a.mp4  50%", "result\r\n", "0 of 2 files done",
                          "1 of 2 files done", "2 of 2 files done", "last\r\n"));
}

TEST(ProgressLineOnATerminal, IsNowhereElse) {
  int ends[2];
  ASSERT_EQ(pipe(ends), 0);
  const pid_t child = fork();
  if (child == 0) {
    dup2(ends[1], STDERR_FILENO);
    ProgressLine line(2);
    line.Step("a.mp4", Half());
    line.FileDone();
    line.Around([] {});
    _exit(0);
  }
  close(ends[1]);
  char bytes[16];
  EXPECT_EQ(read(ends[0], bytes, sizeof bytes), 0);
  close(ends[0]);
  waitpid(child, nullptr, 0);
}

}  // namespace
}  // namespace qlnmedia
