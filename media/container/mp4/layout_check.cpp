// Two walks side by side: over the boxes, and over the samples of each track.

#include "container/mp4/layout_check.h"

#include <algorithm>
#include <initializer_list>

#include "base/error.h"
#include "base/read_error.h"
#include "container/mp4/picture_size.h"
#include "container/mp4/sample_table.h"

namespace qlnmedia::mp4 {

namespace {

bool IsOneOf(uint32_t type, std::initializer_list<uint32_t> types) {
  return std::find(types.begin(), types.end(), type) != types.end();
}

// Boxes that hold boxes, as far as anything in them may change.
bool IsParent(uint32_t type) {
  return IsOneOf(type, {FourCc("moov"), FourCc("trak"), FourCc("mdia"), FourCc("minf"), FourCc("stbl"),
                        FourCc("moof"), FourCc("traf"), FourCc("mfra")});
}

// Boxes that name sizes and places of the file; samples show whether they do it rightly.
bool NamesPlaces(uint32_t type) {
  return IsOneOf(
      type, {FourCc("stsz"), FourCc("stz2"), FourCc("stco"), FourCc("co64"), FourCc("saio"), FourCc("subs"),
             FourCc("sidx"), FourCc("ssix"), FourCc("tfra"), FourCc("mfro"), FourCc("trun"), FourCc("tfhd")});
}

// Boxes of a sample description that may get another body, or come in.
bool IsFact(uint32_t type) {
  return IsOneOf(type, {FourCc("avcC"), FourCc("hvcC"), FourCc("colr"), FourCc("pasp"), FourCc("clap"),
                        FourCc("fiel"), FourCc("mdcv"), FourCc("clli"), FourCc("btrt")});
}

// What QuickTime says of a track's size, in `tapt`: 4 bytes and the size.
bool IsAperture(uint32_t type) { return IsOneOf(type, {FourCc("clef"), FourCc("prof"), FourCc("enof")}); }

bool SameType(uint32_t was, uint32_t is) {
  return was == is || (was == FourCc("stco") && is == FourCc("co64")) ||
         (was == FourCc("stz2") && is == FourCc("stsz"));
}

class BoxCheck {
 public:
  // `resized`: the sizes of pictures may be others.
  BoxCheck(const Source& in, const Source& out, std::string name, bool resized)
      : in_(in), out_(out), name_(std::move(name)), inReader_(in), outReader_(out), resized_(resized) {}

  // Boxes of the outermost level stay where they are, but for the movie and free space.
  uint64_t RunInPlace() {
    BoxLevel was = BoxLevel::Top(inReader_);
    BoxLevel is = BoxLevel::Top(outReader_);
    Box before, after, movieBefore, movieAfter;
    for (bool more = true; more;) {
      more = NextThatStays(was, before, movieBefore);
      const bool also = NextThatStays(is, after, movieAfter);
      if (!more && also) throw Error(name_, BoxName(after) + " came in at byte " + std::to_string(after.at));
      if (!more) break;
      if (!also) Fail(before, "is missing");
      ++boxes_;
      if (after.type != before.type || after.at != before.at || after.size() != before.size())
        Fail(before, "does not stand where it was");
      Compare(before, after, false);
    }
    if (movieBefore.type == 0) return boxes_;
    if (movieAfter.type == 0) Fail(movieBefore, "is missing");
    Compare(movieBefore, movieAfter, false);
    return boxes_;
  }

  uint64_t Run() {
    Level(BoxLevel::Top(inReader_), in_.size(), BoxLevel::Top(outReader_), out_.size(), false);
    return boxes_;
  }

 private:
  [[noreturn]] void Fail(const Box& box, const std::string& what) const {
    throw Error(name_, BoxName(box) + ", at byte " + std::to_string(box.at) + " of the input, " + what);
  }

  static bool NextThatStays(BoxLevel& level, Box& box, Box& movie) {
    while (level.Next(box)) {
      if (box.type == FourCc("moov")) {
        movie = box;
      } else if (box.type != FourCc("free") && box.type != FourCc("skip")) {
        return true;
      }
    }
    return false;
  }

  void Inside(const Box& before, const Box& after, bool video) {
    Level(BoxLevel::Inside(inReader_, before), before.end, BoxLevel::Inside(outReader_, after), after.end,
          video);
  }

  void Level(BoxLevel was, uint64_t end, BoxLevel is, uint64_t outEnd, bool video) {
    Box before;
    Box after;
    while (was.Next(before)) {
      ++boxes_;
      if (!is.Next(after)) Fail(before, "is missing");
      if (!SameType(before.type, after.type)) Fail(before, "became " + BoxName(after));
      if (before.toEnd != after.toEnd) Fail(before, "has another kind of size");
      Compare(before, after, video);
    }
    if (is.Next(after)) throw Error(name_, BoxName(after) + " came in at byte " + std::to_string(after.at));
    // What is behind the last box, and none itself.
    RequireSame(before, was.at(), end, is.at(), outEnd);
  }

  void Compare(const Box& before, const Box& after, bool video) {
    if (before.type == FourCc("mdat") || NamesPlaces(before.type)) return;
    if (IsParent(before.type)) {
      const bool ofVideo = video || (before.type == FourCc("trak") && ReadTrack(inReader_, before).video());
      return Inside(before, after, ofVideo);
    }
    if (before.type == FourCc("stsd") && video) return CompareDescriptions(before, after);
    if (resized_ && video && before.type == FourCc("tkhd") && before.bodySize() > kHeaderSizeBytes) {
      return RequireSame(before, before.at, before.end - kHeaderSizeBytes, after.at,
                         after.end - std::min(kHeaderSizeBytes, after.bodySize()));
    }
    if (resized_ && video && before.type == FourCc("tapt")) return Inside(before, after, video);
    if (resized_ && video && IsAperture(before.type) && before.bodySize() == 12)
      return RequireSame(before, before.at, before.body + 4, after.at, after.end - 8);
    // Items may be named by place.
    if (before.type == FourCc("meta") && HasPlaces(before)) return;
    std::vector<Box> metas;
    TakeMetas(inReader_, before, metas);
    if (std::any_of(metas.begin(), metas.end(), [this](const Box& meta) { return HasPlaces(meta); }))
      return Inside(before, after, video);
    RequireSame(before, before.at, before.end, after.at, after.end);
  }

  bool HasPlaces(const Box& meta) {
    return FindBox(inReader_, meta, FourCc("iloc"), MetaHeadBytes(inReader_, meta)).has_value();
  }

  void RequireSame(const Box& box, uint64_t begin, uint64_t end, uint64_t outBegin, uint64_t outEnd) const {
    if (end - begin != outEnd - outBegin) Fail(box, "is of another size");
    constexpr uint64_t kPiece = uint64_t{1} << 16;
    Bytes was;
    Bytes is;
    for (uint64_t at = begin; at < end; at += was.size()) {
      was.resize(static_cast<size_t>(std::min(kPiece, end - at)));
      is.resize(was.size());
      in_.Read(at, was);
      out_.Read(outBegin + (at - begin), is);
      if (was != is) Fail(box, "holds other bytes");
    }
  }

  void CompareDescriptions(const Box& before, const Box& after) {
    if (before.bodySize() < 8) return RequireSame(before, before.at, before.end, after.at, after.end);
    RequireSame(before, before.body, before.body + 8, after.body, after.body + 8);
    BoxLevel was = BoxLevel::Inside(inReader_, before, 8);
    BoxLevel is = BoxLevel::Inside(outReader_, after, 8);
    Box entry;
    Box other;
    while (was.Next(entry)) {
      if (!is.Next(other) || other.type != entry.type) Fail(entry, "is missing");
      const uint64_t fields = std::min(kVisualSampleEntryBytes, entry.bodySize());
      RequireSameFields(entry, other, fields);
      CompareFacts(entry, other, fields);
    }
  }

  void RequireSameFields(const Box& entry, const Box& other, uint64_t fields) const {
    const uint64_t end = other.body + std::min(fields, other.bodySize());
    if (!resized_ || fields < kVisualSampleEntryBytes || end - other.body != fields)
      return RequireSame(entry, entry.body, entry.body + fields, other.body, end);
    constexpr uint64_t kBehind = kEntrySizeAt + kEntrySizeBytes;
    RequireSame(entry, entry.body, entry.body + kEntrySizeAt, other.body, other.body + kEntrySizeAt);
    RequireSame(entry, entry.body + kBehind, entry.body + fields, other.body + kBehind, end);
  }

  void CompareFacts(const Box& entry, const Box& other, uint64_t fields) {
    BoxLevel was(inReader_, entry.body + fields, entry.end);
    BoxLevel is(outReader_, other.body + fields, other.end);
    Box before;
    Box after;
    while (was.Next(before)) {
      ++boxes_;
      if (!is.Next(after) || after.type != before.type) Fail(before, "is missing");
      if (!IsFact(before.type)) RequireSame(before, before.at, before.end, after.at, after.end);
    }
    while (is.Next(after)) {
      if (!IsFact(after.type)) Fail(entry, "got " + BoxName(after));
    }
    RequireSame(entry, was.at(), entry.end, is.at(), other.end);
  }

  const Source& in_;
  const Source& out_;
  std::string name_;
  Reader inReader_;
  Reader outReader_;
  bool resized_;
  uint64_t boxes_ = 0;
};

class SampleCheck {
 public:
  SampleCheck(const Carrier& carrier, const Source& output, const Layout& written, std::string name,
              bool inPlace)
      : carrier_(carrier), output_(output), written_(written), name_(std::move(name)), inPlace_(inPlace) {}

  // The number of samples; what cannot be relied on in the input is not judged.
  uint64_t Run(uint32_t trackId) const {
    TrackSamples was(carrier_.source(), carrier_.layout(), trackId);
    TrackSamples is(output_, written_, trackId);
    uint64_t count = 0;
    Sample after;
    for (Sample before; NextOf(was, before); ++count) {
      if (!is.Next(after)) Fail(trackId, count, "is missing");
      Compare(trackId, before, after);
    }
    return count;
  }

 private:
  static bool NextOf(TrackSamples& samples, Sample& sample) {
    try {
      return samples.Next(sample);
    } catch (const ReadError&) {
      throw;
    } catch (const Error&) {
      return false;
    }
  }

  [[noreturn]] void Fail(uint32_t trackId, uint64_t number, const std::string& what) const {
    throw Error(name_,
                "sample " + std::to_string(number + 1) + " of track " + std::to_string(trackId) + " " + what);
  }

  void Compare(uint32_t trackId, const Sample& before, const Sample& after) const {
    if (before.decodeTime != after.decodeTime || before.compositionTime != after.compositionTime ||
        before.duration != after.duration)
      Fail(trackId, before.number, "has other times");
    if (before.sync != after.sync) Fail(trackId, before.number, "has another sync mark");
    if (before.description != after.description || before.inFile != after.inFile ||
        before.encrypted != after.encrypted)
      Fail(trackId, before.number, "has another description");
    const Splices& splices = carrier_.splices();
    const uint64_t size = carrier_.source().size();
    if (!before.inFile || before.offset > size || before.size > size - before.offset) return;
    const uint64_t end = before.offset + before.size;
    const int64_t shift = inPlace_ ? 0 : splices.ShiftAt(before.offset);
    if (after.offset != before.offset + static_cast<uint64_t>(shift))
      Fail(trackId, before.number, "is named at another place than it stands");
    if (after.size != before.size + static_cast<uint64_t>(splices.GrowthIn(before.offset, end)))
      Fail(trackId, before.number, "is named with another size than it has");
    if (after.offset > output_.size() || after.size > output_.size() - after.offset)
      Fail(trackId, before.number, "is outside the file");
  }

  const Carrier& carrier_;
  const Source& output_;
  const Layout& written_;
  std::string name_;
  bool inPlace_;
};

LayoutChecked CheckSamples(const Carrier& carrier, const Source& output, const std::string& name,
                           bool inPlace) {
  LayoutChecked checked;
  const Layout written = ReadLayout(output, carrier.layout().initialization);
  const SampleCheck samples(carrier, output, written, name, inPlace);
  std::set<uint32_t> ids;
  const auto collect = [&ids](const Layout& layout) {
    for (const Movie& movie : layout.movies) {
      for (const Track& track : movie.tracks) {
        if (track.problem.empty()) ids.insert(track.id);
      }
    }
  };
  collect(carrier.layout());
  if (ids.empty() && carrier.layout().initialization) collect(*carrier.layout().initialization);
  for (const uint32_t id : ids) {
    checked.samples += samples.Run(id);
    ++checked.tracks;
  }
  return checked;
}

}  // namespace

LayoutChecked CheckLayout(const Carrier& carrier, const Source& output, const std::string& name) {
  if (output.size() != carrier.outputSize())
    throw Error(name, "is of " + std::to_string(output.size()) + " bytes, and should be of " +
                          std::to_string(carrier.outputSize()));
  const uint64_t boxes = BoxCheck(carrier.source(), output, name, carrier.resizesPictures()).Run();
  LayoutChecked checked = CheckSamples(carrier, output, name, false);
  checked.boxes = boxes;
  return checked;
}

LayoutChecked CheckLayoutInPlace(const Carrier& carrier, const Source& planned, const std::string& name) {
  const uint64_t boxes = BoxCheck(carrier.source(), planned, name, carrier.resizesPictures()).RunInPlace();
  LayoutChecked checked = CheckSamples(carrier, planned, name, true);
  checked.boxes = boxes;
  return checked;
}

}  // namespace qlnmedia::mp4
