// Frames that stand in their block as they are become splices at once; laced and encoded ones wait until all
// of their block have come back.

#include "container/mkv/frame_pass.h"

#include <fmt/format.h>

#include <algorithm>
#include <deque>
#include <memory>
#include <optional>

namespace qlnmedia::mkv {

namespace {

// A block that is put together anew.
struct Pending {
  BlockView view;
  std::vector<std::optional<Bytes>> fresh;  // frames that change, as the editor has them
  uint64_t last = 0;                        // number of its last frame
  bool changed = false;
};

class Returns final : public mp4::SampleReturns {
 public:
  Returns(const Source& source, mp4::Splices& contents, uint64_t track)
      : source_(source), contents_(contents), track_(track) {}

  // A block's frames are going to be given, from a number on.
  void Begin(const BlockView& view, uint64_t number) {
    view_ = &view;
    open_ = nullptr;
    if (!view.block.laced() && !view.entry->encodings.touchesFrames()) return;
    pending_.push_back(std::make_unique<Pending>());
    open_ = pending_.back().get();
    open_->view = view;
    open_->fresh.resize(view.block.frames.size());
    open_->last = number + view.block.frames.size() - 1;
  }

  void Given(uint64_t number, size_t frame, const Bytes& bytes) {
    const FramePlace& place = view_->block.frames[frame];
    waiting_.push_back(
        {number, place.at, static_cast<uint32_t>(place.size), static_cast<uint32_t>(frame), open_});
    current_ = &bytes;
    currentNumber_ = number;
  }
  void NoCurrent() { current_ = nullptr; }

  void Replace(uint64_t number, ByteSpan bytes) override {
    const Waiting waiting = TakeBack(number);
    const Bytes& old = OldOf(waiting);
    if (!std::equal(old.begin(), old.end(), bytes.begin(), bytes.end())) {
      if (old.empty() || bytes.empty())
        throw source_.Fault(waiting.at, Name(number) + " is empty, or would become so");
      ++changed_;
      if (waiting.block == nullptr) {
        contents_.AddDifference(waiting.at, old, bytes);
      } else {
        waiting.block->fresh[waiting.frame].emplace(bytes.begin(), bytes.end());
        waiting.block->changed = true;
      }
    }
    Settle(next_);
  }

  void ReplaceParts(uint64_t number, std::span<const mp4::SamplePart> parts) override {
    const Waiting waiting = TakeBack(number);
    if (waiting.block != nullptr) {
      ReplacePartsOf(waiting, parts);
      return Settle(next_);
    }
    uint64_t end = 0;  // of the part before
    bool differs = false;
    for (const mp4::SamplePart& part : parts) {
      RequirePart(waiting, part, end, waiting.size);
      end = part.at + part.was.size();
      differs = contents_.AddDifference(waiting.at + part.at, part.was, part.is) || differs;
    }
    if (differs) ++changed_;
  }

  void Keep(uint64_t number) override {
    TakeBack(number);
    Settle(next_);
  }

  void Finish() { Settle(UINT64_MAX); }
  uint64_t changed() const { return changed_; }

 private:
  struct Waiting {
    uint64_t number;
    uint64_t at;
    uint32_t size;
    uint32_t frame;  // of its block
    Pending* block;  // null where the frame stands there as it is
  };

  Waiting TakeBack(uint64_t number) {
    while (!waiting_.empty() && waiting_.front().number < number) waiting_.pop_front();
    if (number < next_ || waiting_.empty() || waiting_.front().number != number)
      throw Error(source_.name(), Name(number) + " came back out of order");
    const Waiting waiting = waiting_.front();
    waiting_.pop_front();
    next_ = number + 1;
    return waiting;
  }

  const Bytes& OldOf(const Waiting& waiting) {
    if (current_ != nullptr && currentNumber_ == waiting.number) return *current_;
    if (waiting.block != nullptr) {
      loaded_ = ReadFrame(source_, waiting.block->view, waiting.frame);
    } else {
      loaded_.resize(waiting.size);
      source_.Read(waiting.at, loaded_);
    }
    return loaded_;
  }

  void RequirePart(const Waiting& waiting, const mp4::SamplePart& part, uint64_t end, uint64_t size) const {
    if (part.was.empty() || part.at < end || part.at > size || part.was.size() > size - part.at)
      throw source_.Fault(waiting.at, Name(waiting.number) + " came back in parts that it does not have");
  }

  void ReplacePartsOf(const Waiting& waiting, std::span<const mp4::SamplePart> parts) {
    const Bytes& old = OldOf(waiting);
    Bytes fresh;
    size_t end = 0;
    for (const mp4::SamplePart& part : parts) {
      RequirePart(waiting, part, end, old.size());
      const auto from = old.begin() + static_cast<std::ptrdiff_t>(end);
      fresh.insert(fresh.end(), from, old.begin() + static_cast<std::ptrdiff_t>(part.at));
      fresh.insert(fresh.end(), part.is.begin(), part.is.end());
      end = static_cast<size_t>(part.at) + part.was.size();
    }
    fresh.insert(fresh.end(), old.begin() + static_cast<std::ptrdiff_t>(end), old.end());
    if (fresh == old) return;
    waiting.block->fresh[waiting.frame] = std::move(fresh);
    waiting.block->changed = true;
    ++changed_;
  }

  // Blocks whose frames are all in front of a number do not change any more.
  void Settle(uint64_t number) {
    while (!pending_.empty() && pending_.front()->last < number) {
      if (pending_.front()->changed) Rebuild(*pending_.front());
      if (open_ == pending_.front().get()) open_ = nullptr;
      pending_.pop_front();
    }
  }

  void Rebuild(const Pending& pending) {
    const Block& block = pending.view.block;
    const Encodings& encodings = pending.view.entry->encodings;
    const Reader reader(source_);
    std::vector<Bytes> frames;
    for (size_t i = 0; i < block.frames.size(); ++i) {
      const FramePlace& place = block.frames[i];
      if (!pending.fresh[i]) {
        frames.push_back(reader.Run(place.at, place.size));
      } else if (encodings.touchesFrames()) {
        frames.push_back(encodings.Do(source_, place.at, *pending.fresh[i], false));
      } else {
        frames.push_back(*pending.fresh[i]);
      }
    }
    Bytes fresh{block.flags};
    if (block.laced()) {
      fresh = MakeLaced(block, frames);
    } else {
      fresh.insert(fresh.end(), frames.front().begin(), frames.front().end());
    }
    contents_.AddDifference(block.flagsAt, reader.Run(block.flagsAt, block.element.end - block.flagsAt),
                            fresh);
  }

  std::string Name(uint64_t number) const { return fmt::format("frame {} of track {}", number + 1, track_); }

  const Source& source_;
  mp4::Splices& contents_;
  uint64_t track_;
  const BlockView* view_ = nullptr;
  Pending* open_ = nullptr;  // the block whose frames are being given
  std::deque<Waiting> waiting_;
  std::deque<std::unique_ptr<Pending>> pending_;
  const Bytes* current_ = nullptr;
  uint64_t currentNumber_ = 0;
  Bytes loaded_;
  uint64_t next_ = 0;
  uint64_t changed_ = 0;
};

struct Edited {
  mp4::SampleEditor* editor;
  std::unique_ptr<Returns> returns;
  uint64_t next = 0;  // number of the next frame
};

}  // namespace

mp4::Sample SampleOf(const BlockView& view, size_t frame, uint64_t number) {
  const FramePlace& place = view.block.frames[frame];
  mp4::Sample sample;
  sample.number = number;
  sample.offset = place.at;
  sample.size = static_cast<uint32_t>(place.size);
  sample.decodeTime = kNoFrameTime;
  sample.compositionTime = view.TimeOf(frame);
  sample.sync = view.key;
  sample.description = view.entry->description;
  sample.inFile = !view.entry->encodings.touchesFrames();
  sample.encrypted = view.entry->encodings.encryptsFrames();
  return sample;
}

Bytes ReadFrame(const Source& source, const BlockView& view, size_t frame) {
  const FramePlace& place = view.block.frames[frame];
  Bytes bytes = Reader(source).Run(place.at, place.size);
  return view.entry->encodings.touchesFrames() ? view.entry->encodings.Undo(source, place.at, bytes, false)
                                               : bytes;
}

FrameCounts RunFrameEditors(const Source& source, const Layout& layout, const mp4::Change& change,
                            mp4::Splices& contents, const std::function<void(uint64_t)>& read) {
  std::map<uint64_t, Edited> edited;
  for (const mp4::TrackChange& track : change.tracks) {
    if (track.samples == nullptr) continue;
    edited[track.trackId] = {track.samples, std::make_unique<Returns>(source, contents, track.trackId)};
  }
  FrameCounts counts;
  if (edited.empty()) return counts;
  BlockCursor cursor(source, layout, [&](uint64_t number) { return edited.count(number) != 0; });
  for (BlockView view; cursor.Next(view);) {
    Edited& track = edited.at(view.block.track);
    const bool encrypted = view.entry->encodings.encryptsFrames();
    if (!encrypted) track.returns->Begin(view, track.next);
    for (size_t i = 0; i < view.block.frames.size(); ++i, ++counts.frames) {
      const mp4::Sample sample = SampleOf(view, i, track.next++);
      if (encrypted || !track.editor->Wants(source, sample)) continue;
      const Bytes bytes = ReadFrame(source, view, i);
      track.returns->Given(sample.number, i, bytes);
      track.editor->Take(sample, bytes, *track.returns);
      track.returns->NoCurrent();
    }
    read(view.block.element.end);
  }
  for (auto& [number, track] : edited) {
    track.editor->End(*track.returns);
    track.returns->Finish();
    counts.changed += track.returns->changed();
  }
  return counts;
}

}  // namespace qlnmedia::mkv
