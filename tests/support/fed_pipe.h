// A named pipe that gets the bytes of a file, for what reads pipes in this process.
#ifndef TESTS_SUPPORT_FED_PIPE_H
#define TESTS_SUPPORT_FED_PIPE_H

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <csignal>
#include <fstream>
#include <string>
#include <thread>

#include "support/media.h"

namespace qln::test {

// While it lives somebody writes the file into the pipe, once.
class FedPipe {
 public:
  explicit FedPipe(const std::string& file) : path_(MediaPath("fed_pipe_" + std::to_string(getpid()))) {
    std::signal(SIGPIPE, SIG_IGN);
    unlink(path_.c_str());
    EXPECT_EQ(mkfifo(path_.c_str(), 0600), 0);
    writer_ = std::thread([this, file] { std::ofstream(path_) << std::ifstream(file).rdbuf(); });
  }
  ~FedPipe() {
    writer_.join();
    unlink(path_.c_str());
  }
  FedPipe(const FedPipe&) = delete;
  FedPipe& operator=(const FedPipe&) = delete;
  const std::string& path() const { return path_; }

 private:
  std::string path_;
  std::thread writer_;
};

}  // namespace qln::test

#endif
