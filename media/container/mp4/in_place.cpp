// Finds where a change fits, writes the journal, then the file.

#include "container/mp4/in_place.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <memory>

#include "container/mp4/journal.h"
#include "container/mp4/layout_check.h"
#include "container/mp4/locked_file.h"

namespace qlnmedia::mp4 {

namespace {

// New bytes for a stretch of the file that is more than one splice: those of the splices over [from, to), and
// what is told in their stead or behind them.
struct Stretch {
  uint64_t at = 0;  // where it is written
  Bytes front;
  uint64_t from = 0, to = 0;
  Bytes back;
  uint64_t bytes = 0;    // all of it
  uint64_t spooled = 0;  // where they stand in the spool, once they are gathered
};

// What is written: the splices, each where it stands, but for those of a movie that grows, which gets
// stretches. Of these there are a few at most.
class Layup {
 public:
  explicit Layup(const Splices& splices) : splices_(&splices) {}

  std::vector<Stretch> stretches;                   // in the order of the file
  size_t firstOfMovie = SIZE_MAX, behindMovie = 0;  // indices of the splices that stretches stand for
  uint64_t size = 0;                                // of the file afterwards
  InPlaceResult::Movie movie = InPlaceResult::Movie::kStays;

  const Splices& splices() const { return *splices_; }
  bool IsOfStretch(size_t splice) const { return splice >= firstOfMovie && splice < behindMovie; }

  // Calls `ofSplice` or `ofStretch` with each of what is written, in the order of the file.
  template <typename OfSplice, typename OfStretch>
  void ForEach(OfSplice ofSplice, OfStretch ofStretch) const {
    auto stretch = stretches.begin();
    for (size_t i = 0; i < splices_->size(); ++i) {
      if (IsOfStretch(i)) continue;
      const Splices::Splice splice = splices_->At(i);
      for (; stretch != stretches.end() && stretch->at <= splice.at; ++stretch) ofStretch(*stretch);
      if (splice.removed != 0) ofSplice(splice);
    }
    for (; stretch != stretches.end(); ++stretch) ofStretch(*stretch);
  }

  Regions regions() const {
    return [this](const std::function<void(const Region&)>& take) {
      ForEach(
          [&take](const Splices::Splice& splice) {
            take({splice.at, splice.removed});
          },
          [&take](const Stretch& stretch) {
            take({stretch.at, stretch.bytes});
          });
    };
  }
  uint64_t bytes() const {
    uint64_t sum = 0;
    regions()([&sum](const Region& region) { sum += region.bytes; });
    return sum;
  }

 private:
  const Splices* splices_;
};

// Writes at a place of the file, piece by piece.
class PlaceSink final : public Sink {
 public:
  PlaceSink(Disk& disk, int descriptor, uint64_t at, const std::string& path)
      : disk_(disk), descriptor_(descriptor), at_(at), path_(path) {}
  void Write(ByteSpan bytes) override {
    WriteAll(disk_, descriptor_, bytes, at_, path_);
    at_ += bytes.size();
  }
  void Copy(const Source&, uint64_t, uint64_t) override {
    throw Error(path_, "a stretch of it was to be read while it is written");
  }

 private:
  Disk& disk_;
  int descriptor_;
  uint64_t at_;
  const std::string& path_;
};

// Gathers a stretch's bytes, since what it is made of is overwritten by it.
class SpoolSink final : public Sink {
 public:
  explicit SpoolSink(Spool& spool) : spool_(spool) {}
  void Write(ByteSpan bytes) override { spool_.Append(bytes); }
  void Copy(const Source& source, uint64_t at, uint64_t bytes) override {
    Bytes piece;
    for (uint64_t end = at + bytes; at < end; at += piece.size()) {
      piece.resize(static_cast<size_t>(std::min<uint64_t>(size_t{1} << 16, end - at)));
      source.Read(at, piece);
      spool_.Append(piece);
    }
  }

 private:
  Spool& spool_;
};

class Placer {
 public:
  explicit Placer(const Carrier& carrier)
      : carrier_(carrier), source_(carrier.source()), reader_(source_), out_(carrier.splices()) {}

  Layup Place() {
    out_.size = source_.size();
    RequireOthersFit();
    if (growth_ == 0 && !splicesOfMovieGrow_) return std::move(out_);
    const Box& movie = carrier_.layout().movies.front().box;
    out_.firstOfMovie = carrier_.splices().FirstFrom(movie.at);
    out_.behindMovie = carrier_.splices().FirstFrom(movie.end);
    PlaceMovie(movie);
    std::sort(out_.stretches.begin(), out_.stretches.end(),
              [](const Stretch& a, const Stretch& b) { return a.at < b.at; });
    return std::move(out_);
  }

 private:
  [[noreturn]] void Refuse(int64_t missing) const {
    const std::string why = missing > 0 ? std::to_string(missing) + " bytes are missing"
                                        : "samples would change their sizes, by " + std::to_string(-missing) +
                                              " bytes less in all";
    throw Error(source_.name(), "the change does not fit in place: " + why, "write it to another file");
  }

  // Growth is only for the one movie; what grows elsewhere would move the file.
  void RequireOthersFit() {
    const auto& movies = carrier_.layout().movies;
    int64_t missing = 0;
    bool uneven = false;
    for (size_t i = 0; i < carrier_.splices().size(); ++i) {
      const auto splice = carrier_.splices().At(i);
      const int64_t growth = int64_t{splice.inserted} - int64_t{splice.removed};
      const bool ofMovie =
          movies.size() == 1 && splice.at >= movies[0].box.at && splice.at < movies[0].box.end;
      if (ofMovie) {
        growth_ += growth;
        splicesOfMovieGrow_ = splicesOfMovieGrow_ || growth != 0;
      } else {
        missing += growth;
        uneven = uneven || growth != 0;
      }
    }
    if (uneven) Refuse(missing);
  }

  // Where the movie's first changed byte is: what is in front of it may stay.
  uint64_t FirstChange(const Box& movie) const {
    return carrier_.splices().At(carrier_.splices().FirstFrom(movie.at)).at;
  }

  void PlaceMovie(const Box& movie) {
    if (movie.overruns) throw source_.Fault(movie.at, "box 'moov' is open at its end");
    const uint64_t size = movie.size() + static_cast<uint64_t>(growth_);
    const uint64_t from = FirstChange(movie);
    if (growth_ == 0) return AddMovie(from, movie.end, {}, size - (from - movie.at));
    uint64_t free = 0;
    bool last = true;
    bool open = false;  // at the end of the file
    BoxLevel level = BoxLevel::Top(reader_);
    bool behind = false;
    bool gap = true;
    for (Box box; level.Next(box);) {
      open = box.toEnd || box.overruns;
      if (behind) {
        last = false;
        gap = gap && (box.type == FourCc("free") || box.type == FourCc("skip")) && !open;
        if (gap && !Fits(free)) free += box.size();
      }
      behind = behind || box.at == movie.at;
    }
    const bool whole = !open && level.at() == source_.size();
    if (last && (whole || movie.toEnd)) {
      out_.movie = InPlaceResult::Movie::kGrowsAtTheEnd;
      AddMovie(from, movie.end, {}, size - (from - movie.at));
      out_.size = movie.at + size;
    } else if (Fits(free)) {
      RequireNoDataIn(source_, carrier_.layout(), movie.at, movie.end + free);
      out_.movie = InPlaceResult::Movie::kGrowsIntoFreeSpace;
      const uint64_t rest = free - static_cast<uint64_t>(growth_);
      Bytes head;
      // What was inside the free space may stay there.
      if (rest != 0) head = FreeHead(rest);
      AddMovie(from, movie.end, head, size - (from - movie.at) + head.size());
    } else if (whole && carrier_.layout().fragments.empty()) {
      out_.movie = InPlaceResult::Movie::kMovesToTheEnd;
      out_.stretches.push_back({movie.at + 4, NumberBytes(FourCc("free"), 4), 0, 0, {}, 4, 0});
      out_.stretches.push_back({source_.size(), {}, movie.at, movie.end, {}, size, 0});
      out_.size = source_.size() + size;
    } else {
      Refuse(growth_ - static_cast<int64_t>(free));
    }
  }

  // True where `free` bytes behind the movie take its growth, and what is left of them can be a box.
  bool Fits(uint64_t free) const {
    const int64_t rest = static_cast<int64_t>(free) - growth_;
    return rest == 0 || (rest >= 8 && (rest <= UINT32_MAX));
  }

  static Bytes FreeHead(uint64_t size) {
    Bytes head = NumberBytes(size, 4);
    PutNumber(head, FourCc("free"), 4);
    return head;
  }

  void AddMovie(uint64_t from, uint64_t to, Bytes back, uint64_t bytes) {
    out_.stretches.push_back({from, {}, from, to, std::move(back), bytes, 0});
  }

  const Carrier& carrier_;
  const Source& source_;
  Reader reader_;
  Layup out_;
  int64_t growth_ = 0;
  bool splicesOfMovieGrow_ = false;
};

// What the file will be: its bytes, with splices and stretches over them, the latter out of a spool.
class PlannedFile final : public Source {
 public:
  PlannedFile(const Source& file, const Layup& layup, const Spool& spool)
      : file_(file), layup_(layup), spool_(spool) {}

  const std::string& name() const override { return file_.name(); }
  uint64_t size() const override { return layup_.size; }
  void Read(uint64_t at, std::span<uint8_t> to) const override {
    if (at > size() || to.size() > size() - at) throw Fault(at, "the file ends within what is read");
    const uint64_t end = at + to.size();
    if (at < file_.size())
      file_.Read(at, to.first(static_cast<size_t>(std::min<uint64_t>(to.size(), file_.size() - at))));
    // The part of what is written at `place` that is asked for: from which of its bytes on, and where to.
    const auto over = [&](uint64_t place, uint64_t bytes, const auto& read) {
      const uint64_t from = std::max(at, place);
      const uint64_t until = std::min(end, place + bytes);
      if (from >= until) return;
      read(from - place, to.subspan(static_cast<size_t>(from - at), static_cast<size_t>(until - from)));
    };
    const Splices& splices = layup_.splices();
    size_t i = splices.FirstFrom(at);
    // The one in front may reach in.
    for (i -= i == 0 ? 0 : 1; i < splices.size(); ++i) {
      if (layup_.IsOfStretch(i)) continue;
      const Splices::Splice splice = splices.At(i);
      if (splice.at >= end) break;
      over(splice.at, splice.removed,
           [&](uint64_t from, std::span<uint8_t> part) { splices.ReadNew(splice, from, part); });
    }
    for (const Stretch& stretch : layup_.stretches) {
      over(stretch.at, stretch.bytes,
           [&](uint64_t from, std::span<uint8_t> part) { spool_.Read(stretch.spooled + from, part); });
    }
  }

 private:
  const Source& file_;
  const Layup& layup_;
  const Spool& spool_;
};

// Puts the stretches together, one behind the other, since they are made of what they overwrite.
void Gather(const Carrier& carrier, Layup& layup, Spool& spool) {
  SpoolSink gather(spool);
  for (Stretch& stretch : layup.stretches) {
    stretch.spooled = spool.size();
    gather.Write(stretch.front);
    carrier.splices().Apply(carrier.source(), stretch.from, stretch.to, gather, [](uint64_t) {});
    gather.Write(stretch.back);
    if (spool.size() - stretch.spooled != stretch.bytes)
      throw Error(carrier.source().name(), "a stretch came out in another size; nothing was written");
  }
}

void WriteLayup(const Source& source, const Layup& layup, const Spool& spool, int descriptor,
                const std::string& path, Disk& disk) {
  const bool shortens = layup.size < source.size();
  WriteJournal(
      JournalPath(path), source,
      [&](const std::function<void(const Region&)>& take) {
        layup.regions()(take);
        // What is cut off the file's end has to come back as well.
        if (shortens) take({layup.size, source.size() - layup.size});
      },
      disk);
  const auto ofSplice = [&](const Splices::Splice& splice) {
    PlaceSink sink(disk, descriptor, splice.at, path);
    layup.splices().WriteNew(splice, sink);
  };
  const auto ofStretch = [&](const Stretch& stretch) {
    PlaceSink sink(disk, descriptor, stretch.at, path);
    Bytes piece;
    for (uint64_t done = 0; done < stretch.bytes; done += piece.size()) {
      piece.resize(static_cast<size_t>(std::min<uint64_t>(size_t{1} << 16, stretch.bytes - done)));
      spool.Read(stretch.spooled + done, piece);
      sink.Write(piece);
    }
  };
  layup.ForEach(ofSplice, ofStretch);
  if (shortens && disk.Truncate(descriptor, layup.size) != 0) {
    throw Error(path, std::string("cannot be made shorter: ") + std::strerror(errno));
  }
  FlushFile(disk, descriptor, path);
}

Recovered RecoverLocked(const std::string& path, int descriptor, Disk& disk) {
  const std::string journal = JournalPath(path);
  const JournalState state = PutBack(journal, path, descriptor, disk);
  if (!state.there) return Recovered::kNothing;
  RemoveJournal(journal, disk);
  return state.whole ? Recovered::kPutBack : Recovered::kUntouched;
}

}  // namespace

std::string JournalPath(const std::string& path) { return path + ".qlnmedia-journal"; }

Recovered Recover(const std::string& path, Disk& disk) {
  if (access(JournalPath(path).c_str(), F_OK) != 0) {
    if (access(path.c_str(), F_OK) != 0) throw Error(path, std::strerror(errno));
    return Recovered::kNothing;
  }
  const LockedFile file(path);
  return RecoverLocked(path, file.descriptor(), disk);
}

void RequireNoJournal(const std::string& path) {
  if (access(JournalPath(path).c_str(), F_OK) == 0)
    throw Error(path, "a change of it was cut off", "qlnmedia recover puts it back as it was");
}

InPlaceResult ChangeInPlace(const std::string& path, const InPlaceWork& work, const CarrierOptions& options,
                            Disk& disk) {
  const LockedFile file(path);
  if (work.write) {
    RecoverLocked(path, file.descriptor(), disk);
  } else {
    RequireNoJournal(path);
  }
  const FileSource source(path);
  Carrier carrier(source, options);
  InPlaceResult result;
  result.counts = carrier.Prepare(work.make(carrier), true);
  if (carrier.changesNothing()) return result;
  Layup layup = Placer(carrier).Place();
  result.movie = layup.movie;
  result.bytesWritten = layup.bytes();
  // All of it is put together and looked at before the first byte is overwritten.
  Spool spool(options.scratchFolder);
  Gather(carrier, layup, spool);
  CheckLayoutInPlace(carrier, PlannedFile(source, layup, spool), path);
  if (!work.write) return result;
  try {
    WriteLayup(source, layup, spool, file.descriptor(), path, disk);
    if (work.check) work.check();
    RemoveJournal(JournalPath(path), disk);
  } catch (...) {
    // The journal stays where this cannot be done either, for the next run.
    RecoverLocked(path, file.descriptor(), disk);
    throw;
  }
  return result;
}

InPlaceResult ChangeInPlace(const std::string& path, const Change& change, const CarrierOptions& options,
                            Disk& disk) {
  const InPlaceWork work{.make = [&change](const Carrier&) -> const Change& { return change; }};
  return ChangeInPlace(path, work, options, disk);
}

}  // namespace qlnmedia::mp4
