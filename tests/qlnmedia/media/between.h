// A program between two pipes, which is fed a piece at a time.
#ifndef TESTS_QLNMEDIA_MEDIA_BETWEEN_H
#define TESTS_QLNMEDIA_MEDIA_BETWEEN_H

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdint>
#include <string>
#include <vector>

namespace qln::test {

class Between {
 public:
  // qlnmedia with these words; what it says on standard error goes to a file, or away.
  explicit Between(std::vector<std::string> words, const std::string& errors = "/dev/null") {
    std::signal(SIGPIPE, SIG_IGN);
    int in[2], out[2];
    EXPECT_EQ(pipe2(in, O_CLOEXEC), 0);
    EXPECT_EQ(pipe2(out, O_CLOEXEC), 0);
    words.insert(words.begin(), QLNMEDIA_PROGRAM);
    child_ = fork();
    if (child_ == 0) {
      std::vector<char*> arguments;
      for (std::string& word : words) arguments.push_back(word.data());
      arguments.push_back(nullptr);
      dup2(in[0], 0);
      dup2(out[1], 1);
      dup2(open(errors.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0666), 2);
      execv(arguments[0], arguments.data());
      _exit(127);
    }
    close(in[0]);
    close(out[1]);
    to_ = in[1];
    from_ = out[0];
  }
  ~Between() {
    Close();
    close(from_);
    waitpid(child_, nullptr, 0);
  }
  Between(const Between&) = delete;
  Between& operator=(const Between&) = delete;

  void Feed(const std::vector<uint8_t>& bytes) const {
    EXPECT_EQ(write(to_, bytes.data(), bytes.size()), static_cast<ssize_t>(bytes.size()));
  }
  // No more comes.
  void Close() {
    if (to_ >= 0) close(to_);
    to_ = -1;
  }
  // What comes out until nothing does for a while, a second if nothing else is said; the input stays open.
  std::vector<uint8_t> Drain(int milliseconds = 1000) const {
    std::vector<uint8_t> all, part(65536);
    for (pollfd one{from_, POLLIN, 0}; poll(&one, 1, milliseconds) > 0;) {
      const ssize_t got = read(from_, part.data(), part.size());
      if (got <= 0) break;
      all.insert(all.end(), part.begin(), part.begin() + got);
    }
    return all;
  }
  // The next line that comes out, with its end; waits for it for ten seconds.
  std::string Line() const {
    constexpr int kPatience = 10000;
    std::string line;
    for (pollfd one{from_, POLLIN, 0}; poll(&one, 1, kPatience) > 0;) {
      char next = 0;
      if (read(from_, &next, 1) != 1) break;
      line += next;
      if (next == '\n') break;
    }
    return line;
  }

 private:
  pid_t child_ = -1;
  int to_ = -1, from_ = -1;
};

}  // namespace qln::test

#endif
