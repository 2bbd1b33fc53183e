// Compares a patched file with its source, packet by packet.

#include "patch/verify.h"

#include <fmt/format.h>

#include "base/error.h"

namespace qlnmedia {

namespace {

[[noreturn]] void Fail(const std::string& name, size_t stream, int64_t packet, const char* what) {
  throw Error(name, fmt::format("stream {}, packet {}: its {} is not the input's", stream, packet, what));
}

bool IsOf(TrackKinds kinds, const KeptReader& reader, size_t stream) {
  const uint32_t tag = reader.file().context()->streams[stream]->codecpar->codec_tag;
  return (kinds.timecode && tag == MKTAG('t', 'm', 'c', 'd')) ||
         (kinds.captions && (tag == MKTAG('c', '6', '0', '8') || tag == MKTAG('c', '7', '0', '8')));
}

// True where what `after` has more streams of is of the kinds, one of each at most.
bool CameIn(TrackKinds kinds, const KeptReader& before, const KeptReader& after) {
  for (size_t i = before.streams(); i < after.streams(); ++i) {
    if (!IsOf(kinds, after, i)) return false;
    (IsOf({true, false}, after, i) ? kinds.timecode : kinds.captions) = false;
  }
  return after.streams() >= before.streams();
}

// Calls `take` with each packet's stream, number, and what is kept of it in both files; `skip` tells streams
// that are left out. Throws where a stream has more packets in one of them. Returns how many there are.
template <class Skip, class Take>
uint64_t ForPairs(KeptReader& before, KeptReader& after, const std::string& name, const Skip& skip,
                  const Take& take) {
  std::vector<int64_t> counts(before.streams());
  uint64_t packets = 0;
  for (bool more = true; more;) {
    const bool beforeMore = before.Next();
    const bool afterMore = after.Next();
    more = beforeMore || afterMore;
    for (size_t i = 0; i < counts.size(); ++i) {
      auto& was = before.queue(i);
      auto& is = after.queue(i);
      if (skip(i)) {
        was.clear();
        is.clear();
      }
      for (; !was.empty() && !is.empty(); was.pop_front(), is.pop_front(), ++packets)
        take(i, counts[i]++, was.front(), is.front());
    }
  }
  for (size_t i = 0; i < counts.size(); ++i) {
    if (!before.queue(i).empty() || !after.queue(i).empty())
      throw Error(name, fmt::format("stream {} has not as many packets as the input", i));
  }
  return packets;
}

// Durations of one stream that came out otherwise.
struct OtherDurations {
  int64_t packets = 0;
  int64_t first = 0;
  int64_t was = 0;  // of that one, in nanoseconds
  int64_t is = 0;

  void Add(int64_t packet, int64_t before, int64_t after) {
    if (packets++ == 0) {
      first = packet;
      was = before;
      is = after;
    }
  }
  std::string Text(size_t stream) const {
    const auto milliseconds = [](int64_t time) {
      return fmt::format("{:g}", static_cast<double>(time) / 1e6);
    };
    return fmt::format(
        "stream {}: {} packets have another duration than in the input (packet {}: {} ms, was {} ms)", stream,
        packets, first, milliseconds(is), milliseconds(was));
  }
};

// Raw and transport streams have no marks but what pictures say of themselves.
bool MarkMayChange(const MediaFile& file, const EditOptions& changes, const KeptPacket& was) {
  const bool told = !file.isRawStream() && !file.isTransportStream();
  return was.key ? !told && changes.remove.any() : changes.recoveryPoints;
}

// The verification of one file that is no MP4 or MOV.
class MuxedComparison {
 public:
  MuxedComparison(KeptReader& before, KeptReader& after, const EditOptions& changes, const std::string& name)
      : before_(before), after_(after), changes_(changes), name_(name), durations_(before.streams()) {
    timed_ = !before.file().isRawStream();
  }

  MuxedVerified Run() {
    if (before_.streams() != after_.streams())
      throw Error(name_, fmt::format("has {} streams, the input {}", after_.streams(), before_.streams()));
    const uint64_t packets = ForPairs(
        before_, after_, name_, [](size_t) { return false; },
        [this](size_t stream, int64_t packet, const KeptPacket& was, const KeptPacket& is) {
          Compare(stream, packet, was, is);
        });
    MuxedVerified result;
    for (size_t i = 0; i < durations_.size(); ++i) {
      if (durations_[i].packets != 0) result.otherwise.push_back(durations_[i].Text(i));
    }
    result.text = Text(packets);
    return result;
  }

 private:
  void Compare(size_t stream, int64_t packet, const KeptPacket& was, const KeptPacket& is) {
    if (was.bytes != is.bytes) Fail(name_, stream, packet, "coded data");
    if (was.sideData != is.sideData) Fail(name_, stream, packet, "side data");
    if (was.key != is.key && !MarkMayChange(before_.file(), changes_, was))
      Fail(name_, stream, packet, "sync mark");
    if (!timed_) return;
    if (was.pts != is.pts) Fail(name_, stream, packet, "presentation time");
    if (was.dts != is.dts) Fail(name_, stream, packet, "decoding time");
    if (was.duration != is.duration) durations_[stream].Add(packet, was.duration, is.duration);
  }

  std::string Text(uint64_t packets) const {
    if (!timed_)
      return fmt::format(
          "verified: {} packets have the input's bytes and sync marks, but for what a patch changes; a raw "
          "stream holds nothing else",
          packets);
    size_t without = 0;
    size_t other = 0;
    for (size_t i = 0; i < durations_.size(); ++i) {
      without += before_.HasDurations(i) ? 0U : 1U;
      other += durations_[i].packets != 0 ? 1U : 0U;
    }
    std::string durations = "durations";
    if (other != 0) durations += fmt::format(" (but for {} streams, named above)", other);
    if (without != 0)
      durations += fmt::format(" (but for {} streams, where they follow from what is changed)", without);
    return fmt::format(
        "verified: {} packets of {} streams have the input's presentation and decoding times, {}, sync "
        "marks, side data and bytes, but for what a patch changes",
        packets, durations_.size(), durations);
  }

  KeptReader& before_;
  KeptReader& after_;
  const EditOptions& changes_;
  const std::string& name_;
  bool timed_ = true;
  std::vector<OtherDurations> durations_;
};

std::string Compared(uint64_t packets, size_t streams, bool boxes) {
  return fmt::format(
      "verified: {} packets of {} streams have the input's presentation and decoding times, durations, side "
      "data and bytes, but for what a patch changes{}",
      packets, streams, boxes ? "; boxes, edit lists and sync samples are the input's" : "");
}

}  // namespace

std::vector<StreamKept> KeptOf(const std::string& file, const EditOptions& changes) {
  KeptReader reader(file, changes, true);
  std::vector<StreamKept> kept(reader.streams());
  while (reader.Next()) {
    for (size_t i = 0; i < kept.size(); ++i) {
      for (auto& queue = reader.queue(i); !queue.empty(); queue.pop_front()) {
        const KeptPacket& packet = queue.front();
        for (const int64_t number :
             {packet.pts, packet.dts, packet.duration, static_cast<int64_t>(packet.sideData),
              static_cast<int64_t>(packet.bytes)})
          MixNumber(kept[i].digest, number);
        ++kept[i].packets;
      }
    }
  }
  return kept;
}

std::string RequireKept(const std::vector<StreamKept>& before, const std::vector<StreamKept>& after,
                        const std::string& name) {
  if (before.size() != after.size())
    throw Error(name, fmt::format("has {} streams, and had {}", after.size(), before.size()));
  uint64_t packets = 0;
  for (size_t i = 0; i < before.size(); ++i) {
    if (before[i].packets != after[i].packets || before[i].digest != after[i].digest)
      throw Error(name, fmt::format("stream {}: its packets are not what they were", i));
    packets += before[i].packets;
  }
  return Compared(packets, before.size(), false);
}

std::string VerifyPatched(const std::string& in, const std::string& out, const EditOptions& changes,
                          const std::string& name, TrackKinds kinds) {
  KeptReader before(in, changes, false);
  KeptReader after(out, changes, false);
  if (!CameIn(kinds, before, after))
    throw Error(name, fmt::format("has {} streams, the input {}", after.streams(), before.streams()));
  const uint64_t packets = ForPairs(
      before, after, name, [&](size_t i) { return IsOf(kinds, before, i); },
      [&](size_t stream, int64_t packet, const KeptPacket& was, const KeptPacket& is) {
        if (was.sideData != is.sideData) Fail(name, stream, packet, "side data");
        if (was.pts != is.pts) Fail(name, stream, packet, "presentation time");
        if (was.dts != is.dts) Fail(name, stream, packet, "decoding time");
        if (was.duration != is.duration) Fail(name, stream, packet, "duration");
      });
  return Compared(packets, before.streams(), true);
}

MuxedVerified VerifyMuxed(const std::string& in, const std::string& out, const EditOptions& changes,
                          const std::string& name) {
  KeptReader before(in, changes, true);
  // Some raw streams are only known by the end of their name, which the output does not have yet.
  KeptReader after(out, changes, true,
                   before.file().isRawStream() ? before.file().formatName() : std::string_view());
  return MuxedComparison(before, after, changes, name).Run();
}

std::string VerifiedText(uint64_t samples, uint64_t tracks) {
  return fmt::format(
      "verified: {} samples of {} tracks have the input's times, durations and sync marks; boxes are the "
      "input's",
      samples, tracks);
}

}  // namespace qlnmedia
