// Finds units by their start codes, and access units by their units.

#include "patch/live/raw.h"

#include <fmt/format.h>

#include <algorithm>
#include <deque>
#include <optional>
#include <utility>

#include "base/error.h"
#include "patch/cut_picture.h"
#include "patch/live/head.h"
#include "pictures/access_unit_bounds.h"
#include "units/coded_stream.h"

namespace qlnmedia {

namespace {

// No picture is longer; bytes without a start code pass on as they came.
constexpr size_t kLongestPicture = size_t{64} << 20;
constexpr size_t kReadAtOnce = size_t{64} << 10;

// Waits for the sets of the stream.
StreamDescription DescribeLiveRaw(const LiveWork& work) {
  Bytes bytes;
  LiveHead head;
  for (uint64_t wanted = 1; !head.whole;) {
    const uint64_t there = std::min(work.source.Available(0, wanted), kMostBeforeSets);
    bytes.resize(static_cast<size_t>(there));
    work.source.Read(0, bytes);
    head = ReadLiveHead(bytes, {});
    if (there < wanted || there == kMostBeforeSets) break;
    wanted = there + 1;
  }
  if (!head.codec || head.sets.empty())
    throw Error(work.options.in, "has no parameter sets of H.264 or HEVC where it begins",
                "a live stream has to be raw H.264 or HEVC, a transport stream, or Matroska");
  StreamDescription stream;
  stream.codec = *head.codec;
  stream.privateData = std::move(head.sets);
  stream.raw = true;
  stream.ownMarks = false;
  return stream;
}

class RawPatch {
 public:
  RawPatch(const LiveWork& work, StreamDescription stream)
      : work_(work),
        stream_(0, std::move(stream), work.options, work.captions, work.report),
        bounds_(stream_.codec()) {}

  std::vector<std::string> Run() {
    if (const std::string note = stream_.OrderNote(); !note.empty()) work_.report(note);
    uint64_t at = 0;
    while (const uint64_t there = work_.source.Available(at, 1)) {
      const auto size = static_cast<size_t>(std::min<uint64_t>(there, kReadAtOnce));
      const size_t had = bytes_.size();
      bytes_.resize(had + size);
      work_.source.Read(at, std::span(bytes_).subspan(had));
      at += size;
      work_.source.LetGo(at);
      work_.progress(at);
      Scan(false);
    }
    Scan(true);
    if (!bytes_.empty()) Take(bytes_.size());
    stream_.Finish();
    Send();
    return stream_.Summary();
  }

 private:
  struct Waiting {
    Bytes picture;
    CutPicture cut;
  };

  // Looks at the unit that is open and at those behind it.
  void Scan(bool ended) {
    for (;;) {
      const std::optional<size_t> next = NextStartCode(bytes_, searched_);
      const size_t end = next ? *next : bytes_.size();
      if (unit_ && !decided_ && Decide(end, next || ended)) continue;
      if (!next) break;
      if (unit_) bounds_.Take(ByteSpan(bytes_).subspan(*unit_, *next - *unit_));
      // Readers of files leave the zero in front of a start code of HEVC with the picture before.
      const bool zero = stream_.codec() == Codec::kH264 && *next > 0 && bytes_[*next - 1] == 0;
      code_ = *next - (zero ? 1 : 0);
      unit_ = searched_ = *next + kStartCodeBytes;
      decided_ = false;
    }
    // A start code may have begun.
    searched_ = std::max(unit_.value_or(0), bytes_.size() - std::min(bytes_.size(), kStartCodeBytes - 1));
    if (bytes_.size() > kLongestPicture) Overflow();
  }

  // True where bytes went away with what is in front of the unit.
  bool Decide(size_t end, bool whole) {
    const std::optional<bool> begins = bounds_.Begins(ByteSpan(bytes_).subspan(*unit_, end - *unit_), whole);
    decided_ = begins.has_value();
    if (!begins.value_or(false)) return false;
    Take(code_);
    return true;
  }

  // The bytes in front of a place are an access unit.
  void Take(size_t end) {
    Waiting waiting;
    waiting.picture.assign(bytes_.begin(), bytes_.begin() + static_cast<std::ptrdiff_t>(end));
    waiting.cut = CutPicture(stream_.codec(), waiting.picture);
    const Bytes& given = waiting.cut.given();
    const bool key = IsKeyPicture(stream_.codec(), given, Framing{});
    stream_.Push(given, kNoTime, kNoTime, key, place_);
    waiting_.push_back(std::move(waiting));
    Send();
    Forget(end);
  }

  void Forget(size_t end) {
    bytes_.erase(bytes_.begin(), bytes_.begin() + static_cast<std::ptrdiff_t>(end));
    place_ += end;
    code_ -= std::min(code_, end);
    searched_ -= std::min(searched_, end);
    if (unit_) unit_ = *unit_ - std::min(*unit_, end);
  }

  // What is too long to be a picture is none, and goes out with what waits in front of it.
  void Overflow() {
    work_.report(fmt::format("{}: {} bytes at byte {} have no end of a picture: passed on as they came",
                             work_.options.in, bytes_.size(), place_));
    stream_.Break();
    Send();
    work_.sink.Write(bytes_);
    unit_.reset();
    decided_ = false;
    Forget(bytes_.size());
  }

  void Send() {
    for (; !waiting_.empty(); waiting_.pop_front()) {
      const std::optional<LiveStream::Picture> picture = stream_.Pull();
      if (!picture) return;
      const Waiting& waiting = waiting_.front();
      if (!picture->changed) {
        work_.sink.Write(waiting.picture);
        continue;
      }
      for (const CutPicture::Part& part : waiting.cut.PartsOf(picture->data, work_.options.in)) {
        work_.sink.Write(part.is);
        work_.sink.Write(ByteSpan(waiting.picture).subspan(part.at + part.was.size(), part.rest));
      }
    }
  }

  const LiveWork& work_;
  LiveStream stream_;
  AccessUnitBounds bounds_;
  Bytes bytes_;                 // from the present access unit on
  uint64_t place_ = 0;          // of the first of them
  size_t code_ = 0;             // where the start code of the open unit begins
  std::optional<size_t> unit_;  // where that unit begins
  bool decided_ = false;        // whether it begins an access unit
  size_t searched_ = 0;         // no start code stands in front
  std::deque<Waiting> waiting_;
};

}  // namespace

std::vector<std::string> PatchLiveRaw(const LiveWork& work) {
  return RawPatch(work, DescribeLiveRaw(work)).Run();
}

}  // namespace qlnmedia
