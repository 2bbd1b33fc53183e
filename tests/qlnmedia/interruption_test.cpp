// What is not finished goes when a signal ends the process.

#include "interruption.h"

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

#include "qlnmedia/captions.h"

namespace qlnmedia {
namespace {

namespace fs = std::filesystem;

class Interrupted : public testing::TestWithParam<int> {
 protected:
  void SetUp() override {
    std::string name = testing::TempDir() + "interruptedXXXXXX";
    ASSERT_NE(mkdtemp(name.data()), nullptr);
    folder_ = name;
  }
  void TearDown() override { fs::remove_all(folder_); }

  static void Write(const fs::path& path) { std::ofstream(path) << "text"; }

  // Runs `work` in a process of its own; its status as waitpid has it.
  template <typename Work>
  static int StatusOf(const Work& work) {
    const pid_t child = fork();
    if (child == 0) {
      work();
      _exit(0);
    }
    int status = 0;
    waitpid(child, &status, 0);
    return status;
  }

  fs::path folder_;
};

TEST_P(Interrupted, RemovesWhatIsThereAndEndsByTheSignal) {
  const int status = StatusOf([this] {
    std::signal(GetParam(), SIG_DFL);  // whoever started the tests may ignore it
    Interruption interruption;
    const UnfinishedCallback unfinished = interruption.callback();
    unfinished(folder_ / "parts", true);
    fs::create_directories(folder_ / "parts" / "low");
    Write(folder_ / "parts" / "low" / "named");
    unfinished(folder_ / "parts" / "low" / "half", true);
    Write(folder_ / "parts" / "low" / "half");
    unfinished(folder_ / "file", true);
    Write(folder_ / "file");
    Write(folder_ / "finished");
    unfinished(folder_ / "finished", true);
    unfinished(folder_ / "finished", false);
    unfinished(folder_ / "never made", true);
    kill(getpid(), GetParam());
    for (;;) pause();
  });
  EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == GetParam()) << status;
  EXPECT_TRUE(fs::exists(folder_ / "finished"));
  EXPECT_EQ(std::distance(fs::directory_iterator(folder_), fs::directory_iterator()), 1);
}

TEST_P(Interrupted, StaysIgnoredWhereItWas) {
  const int status = StatusOf([this] {
    std::signal(GetParam(), SIG_IGN);
    Interruption interruption;
    interruption.callback()(folder_ / "file", true);
    Write(folder_ / "file");
    kill(getpid(), GetParam());
    usleep(20000);
  });
  EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << status;
  EXPECT_TRUE(fs::exists(folder_ / "file"));
}

TEST_P(Interrupted, DoesAsBeforeWhenTheWorkIsDone) {
  const int status = StatusOf([] {
    std::signal(GetParam(), SIG_DFL);
    { Interruption interruption; }
    std::signal(GetParam(), [](int) { _exit(7); });
    kill(getpid(), GetParam());
    usleep(20000);
  });
  EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 7) << status;
}

// A caption file that is half written.
TEST_P(Interrupted, RemovesACaptionFileThatIsNotWhole) {
  const fs::path in = folder_ / "in.scc";
  std::ofstream(in) << "Scenarist_SCC V1.0\n\n00:00:00:00\t9420 9420 c1c2 942f 942f\n";
  const auto write = [this, &in](int signal) {
    std::signal(signal == 0 ? SIGTERM : signal, SIG_DFL);
    Interruption interruption;
    const auto end = [&](const ProgressStep& step) {
      if (!step.finished) return true;
      if (std::distance(fs::directory_iterator(folder_), fs::directory_iterator()) != 2) _exit(3);
      if (signal == 0) Interruption::EndUnfinished([] { _exit(4); });  // as the end of the time does
      kill(getpid(), signal);
      for (;;) pause();
    };
    WriteCaptionFile(in, folder_ / "out.mcc", {}, end, {}, {}, interruption.callback());
  };
  const int status = StatusOf([&] { write(GetParam()); });
  EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == GetParam()) << status;
  const int atTheEnd = StatusOf([&] { write(0); });
  EXPECT_TRUE(WIFEXITED(atTheEnd) && WEXITSTATUS(atTheEnd) == 4) << atTheEnd;
  EXPECT_EQ(std::distance(fs::directory_iterator(folder_), fs::directory_iterator()), 1);
}

INSTANTIATE_TEST_SUITE_P(All, Interrupted, testing::Values(SIGINT, SIGTERM, SIGHUP),
                         [](const auto& test) { return "signal" + std::to_string(test.param); });

}  // namespace
}  // namespace qlnmedia
