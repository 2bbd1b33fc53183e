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

INSTANTIATE_TEST_SUITE_P(All, Interrupted, testing::Values(SIGINT, SIGTERM, SIGHUP),
                         [](const auto& test) { return "signal" + std::to_string(test.param); });

}  // namespace
}  // namespace qlnmedia
