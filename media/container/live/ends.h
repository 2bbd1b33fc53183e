// The two ends of work on a stream that never is a whole file: bytes that are read as they come, once and
// from front to back, and bytes that go out at once.
#ifndef MEDIA_CONTAINER_LIVE_ENDS_H
#define MEDIA_CONTAINER_LIVE_ENDS_H

#include <cstdint>
#include <functional>
#include <optional>
#include <string>

#include "container/live/arriving_source.h"
#include "container/mp4/splices.h"

namespace qlnmedia {

// What a descriptor brings. Memory: what was read and not let go. For one thread at a time.
class LiveSource final : public ArrivingSource {
 public:
  // The descriptor is the caller's. `beforeWait` is called before each time that more is read: who holds back
  // bytes for others sends them then.
  LiveSource(int descriptor, std::string name, std::function<void()> beforeWait);

  const std::string& name() const override { return name_; }
  // Where the source ended; before that, more than any has.
  uint64_t size() const override { return ended_ ? read_ : UINT64_MAX; }
  // Waits until they are there; throws Error where the source ends before, or they were let go.
  void Read(uint64_t at, std::span<uint8_t> to) const override;
  uint64_t Available(uint64_t at, uint64_t least) const override;
  // Bytes in front of a place will not be asked for any more.
  void LetGo(uint64_t at);
  // Bytes that came so far.
  uint64_t came() const { return read_; }

 private:
  bool ReadMore() const;

  int descriptor_;
  std::string name_;
  std::function<void()> beforeWait_;
  mutable mp4::Bytes window_;
  size_t dropped_ = 0;         // bytes of the window that were let go
  uint64_t at_ = 0;            // of the first byte that was not
  mutable uint64_t read_ = 0;  // bytes that came
  mutable bool ended_ = false;
};

// Thrown where whoever reads the output has gone: it has what it wanted.
struct ReaderGone {};

// What goes into a descriptor. Bytes wait until Flush, or there are many.
class LiveSink final : public mp4::Sink {
 public:
  // The descriptor is the caller's; `name` is what failures call it.
  LiveSink(int descriptor, std::string name) : descriptor_(descriptor), name_(std::move(name)) {}

  void Write(mp4::ByteSpan bytes) override;
  void Copy(const mp4::Source& source, uint64_t at, uint64_t bytes) override;
  // Throws ReaderGone, and Error where the bytes are not taken for another reason.
  void Flush();

 private:
  void Send(mp4::ByteSpan bytes);

  int descriptor_;
  std::string name_;
  mp4::Bytes waiting_;
};

}  // namespace qlnmedia

#endif
