// What a path leads to: a file that can be opened again and again, or a pipe that passes once.
#ifndef MEDIA_CONTAINER_MEDIA_INPUT_H
#define MEDIA_CONTAINER_MEDIA_INPUT_H

#include <chrono>
#include <cstdint>
#include <deque>
#include <memory>
#include <optional>
#include <string>

#include "container/mp4/source.h"
#include "units/units.h"

namespace qlnmedia {

// The bytes of a pipe, read as they are asked for. Those at the beginning are kept, so that several readers
// can go through them, one behind the other; so are the last ones, which tell how a stream ends. For one
// thread at a time.
class PipeTape {
 public:
  // Takes over a descriptor.
  PipeTape(int descriptor, std::string path);
  ~PipeTape();
  PipeTape(const PipeTape&) = delete;
  PipeTape& operator=(const PipeTape&) = delete;

  // Fills `to` with at least one of the bytes from `at` on and returns how many there are: 0 at the end,
  // where the time is over, and for bytes that have passed. Waits for whoever writes.
  size_t Read(uint64_t at, std::span<uint8_t> to);
  // Later reads do not wait beyond that time.
  void WaitUntil(std::chrono::steady_clock::time_point end) { end_ = end; }

  // What has been read so far: the beginning, how many bytes there were in all, and the last ones.
  const Bytes& head() const { return head_; }
  uint64_t size() const { return size_; }
  bool ended() const { return ended_; }
  Bytes Tail() const;

 private:
  bool AwaitBytes() const;
  void Keep(ByteSpan bytes);

  int descriptor_;
  std::string path_;
  Bytes head_;
  std::deque<Bytes> last_;  // pieces behind the head
  size_t lastBytes_ = 0;
  uint64_t size_ = 0;
  bool ended_ = false;
  std::optional<std::chrono::steady_clock::time_point> end_;
};

class MediaInput {
 public:
  // Opens a pipe, and waits a little for its writer; a file is opened by whoever reads it. Throws Error for a
  // pipe that nobody writes to, for a terminal, and for what does not open.
  MediaInput(const std::string& path);  // NOLINT(google-explicit-constructor): a path is an input

  const std::string& path() const { return path_; }
  bool isPipe() const { return tape_ != nullptr; }
  PipeTape& tape() const { return *tape_; }
  // The boxes of a file, or of what is kept of a pipe. Throws Error where there is none.
  std::unique_ptr<mp4::Source> Boxes() const;
  // Throws Error for a pipe: `what` needs a file.
  void RequireFile(const std::string& what) const;

 private:
  std::string path_;
  std::shared_ptr<PipeTape> tape_;
};

}  // namespace qlnmedia

#endif
