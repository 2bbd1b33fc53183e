// The journal: a heading (mark, size of the file, fingerprint of what stays, number of regions), each region
// as place, length and bytes, and a checksum over all. Numbers are big-endian, of 64 bits.

#include "container/mp4/journal.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <memory>

namespace qlnmedia::mp4 {

namespace {

constexpr uint64_t kMark = 0x514C4E4A524E4C31;  // "QLNJRNL1"
constexpr uint64_t kHeadBytes = 32;
constexpr size_t kPieceBytes = size_t{1} << 16;
// How much at either end of the file tells it from others.
constexpr uint64_t kFingerprintBytes = uint64_t{1} << 16;

// FNV-1a, 64 bits: against cut and torn writes, not against people.
class Checksum {
 public:
  void Take(ByteSpan bytes) {
    for (const uint8_t byte : bytes) value_ = (value_ ^ byte) * 0x100000001B3;
  }
  uint64_t value() const { return value_; }

 private:
  uint64_t value_ = 0xCBF29CE484222325;
};

// Over the ends of the first `size` bytes of a file, but for what changes.
uint64_t Fingerprint(const Source& file, uint64_t size, const Regions& regions) {
  struct End {
    uint64_t from = 0;
    Bytes bytes;
  };
  const uint64_t front = std::min(size, kFingerprintBytes);
  const uint64_t back = std::max(front, size - front);
  End ends[2] = {{0, Bytes(static_cast<size_t>(front))}, {back, Bytes(static_cast<size_t>(size - back))}};
  for (End& end : ends) file.Read(end.from, end.bytes);
  regions([&ends](const Region& region) {
    for (End& end : ends) {
      const uint64_t from = std::max(end.from, region.at);
      const uint64_t to = std::min(end.from + end.bytes.size(), region.at + region.bytes);
      for (uint64_t at = from; at < to; ++at) end.bytes[static_cast<size_t>(at - end.from)] = 0;
    }
  });
  Checksum sum;
  for (const End& end : ends) sum.Take(end.bytes);
  return sum.value();
}

class Descriptor {
 public:
  explicit Descriptor(int value) : value_(value) {}
  ~Descriptor() {
    if (value_ >= 0) close(value_);
  }
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;
  int get() const { return value_; }

 private:
  int value_;
};

// Writes pieces one behind the other and sums them up.
class JournalWriter {
 public:
  JournalWriter(const std::string& path, Disk& disk)
      : path_(path), disk_(disk), file_(open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600)) {
    if (file_.get() < 0) throw Error(path, std::string("cannot be made: ") + std::strerror(errno));
  }
  void Put(ByteSpan bytes) {
    sum_.Take(bytes);
    WriteAll(disk_, file_.get(), bytes, at_, path_);
    at_ += bytes.size();
  }
  void Finish() {
    const Bytes sum = NumberBytes(sum_.value(), 8);
    WriteAll(disk_, file_.get(), sum, at_, path_);
    FlushFile(disk_, file_.get(), path_);
    FlushFolderOf(disk_, path_);
  }

 private:
  std::string path_;
  Disk& disk_;
  Descriptor file_;
  Checksum sum_;
  uint64_t at_ = 0;
};

bool IsWhole(const Source& journal) {
  if (journal.size() < kHeadBytes + 8) return false;
  Checksum sum;
  Bytes piece(kPieceBytes);
  const uint64_t end = journal.size() - 8;
  for (uint64_t at = 0; at < end; at += piece.size()) {
    piece.resize(static_cast<size_t>(std::min<uint64_t>(kPieceBytes, end - at)));
    journal.Read(at, piece);
    sum.Take(piece);
  }
  Reader reader(journal);
  return reader.U64(0) == kMark && reader.U64(end) == sum.value();
}

struct Saved {
  Region region;
  uint64_t at = 0;  // of its bytes in the journal
};

// Calls `take` with each region of a whole journal. Throws Error where they do not fit together.
template <typename Take>
void ForEachSaved(Reader& reader, Take take) {
  const uint64_t fileSize = reader.U64(8);
  const uint64_t end = reader.size() - 8;
  uint64_t at = kHeadBytes;
  for (uint64_t left = reader.U64(24); left > 0; --left) {
    Saved saved;
    const bool room = at <= end && end - at >= 16;
    if (room) saved = {{reader.U64(at), reader.U64(at + 8)}, at + 16};
    if (!room || saved.region.bytes > end - saved.at || saved.region.at > fileSize ||
        saved.region.bytes > fileSize - saved.region.at) {
      throw reader.source().Fault(at, "the journal does not fit together");
    }
    at = saved.at + saved.region.bytes;
    take(saved);
  }
}

// Where a file of now `is` bytes, which had `size`, was cut off at the latest: what was cut off its end is
// among the regions, which then stand behind each other up to the end. `size` where nothing was cut off.
uint64_t KeptSize(Reader& journal, uint64_t is, uint64_t size) {
  uint64_t kept = size;
  uint64_t end = UINT64_MAX;  // of the region before
  ForEachSaved(journal, [&](const Saved& saved) {
    const bool follows = saved.region.at == end;
    if (!follows || saved.region.at <= is) kept = saved.region.at;
    end = saved.region.at + saved.region.bytes;
  });
  return end == size && size > is ? kept : size;
}

}  // namespace

void WriteJournal(const std::string& journal, const Source& file, const Regions& regions, Disk& disk) {
  // Only what is in the file can be put back; the rest goes when the file gets its old size.
  const Regions saved = [&](const std::function<void(const Region&)>& take) {
    regions([&](Region region) {
      if (region.at >= file.size()) return;
      region.bytes = std::min(region.bytes, file.size() - region.at);
      take(region);
    });
  };
  uint64_t count = 0;
  saved([&count](const Region&) { ++count; });
  auto writer = std::make_unique<JournalWriter>(journal, disk);
  try {
    Bytes head = NumberBytes(kMark, 8);
    PutNumber(head, file.size(), 8);
    PutNumber(head, Fingerprint(file, file.size(), saved), 8);
    PutNumber(head, count, 8);
    writer->Put(head);
    Bytes piece;
    saved([&](const Region& region) {
      Bytes heading = NumberBytes(region.at, 8);
      PutNumber(heading, region.bytes, 8);
      writer->Put(heading);
      for (uint64_t at = 0; at < region.bytes; at += piece.size()) {
        piece.resize(static_cast<size_t>(std::min<uint64_t>(kPieceBytes, region.bytes - at)));
        file.Read(region.at + at, piece);
        writer->Put(piece);
      }
    });
    writer->Finish();
  } catch (...) {
    disk.Remove(journal);
    throw;
  }
}

JournalState PutBack(const std::string& journal, const std::string& path, int descriptor, Disk& disk) {
  if (access(journal.c_str(), F_OK) != 0) {
    if (errno == ENOENT || errno == ENOTDIR) return {};
    throw Error(journal, std::strerror(errno));
  }
  const FileSource saved(journal);
  JournalState state;
  state.there = true;
  state.whole = IsWhole(saved);
  if (!state.whole) return state;
  Reader reader(saved);
  const uint64_t size = reader.U64(8);
  const FileSource file(path);
  const uint64_t kept = KeptSize(reader, file.size(), size);
  const Regions regions = [&reader](const std::function<void(const Region&)>& take) {
    ForEachSaved(reader, [&take](const Saved& region) { take(region.region); });
  };
  if (kept > file.size() || (kept == size && Fingerprint(file, size, regions) != reader.U64(16))) {
    throw Error(journal, "not the journal of " + path + " as it stands",
                "where the file was replaced since, the journal can be removed");
  }
  Bytes piece;
  ForEachSaved(reader, [&](const Saved& region) {
    for (uint64_t at = 0; at < region.region.bytes; at += piece.size()) {
      piece.resize(static_cast<size_t>(std::min<uint64_t>(kPieceBytes, region.region.bytes - at)));
      saved.Read(region.at + at, piece);
      WriteAll(disk, descriptor, piece, region.region.at + at, path);
    }
  });
  if (disk.Truncate(descriptor, size) != 0) {
    throw Error(path, std::string("cannot get its old size: ") + std::strerror(errno));
  }
  FlushFile(disk, descriptor, path);
  return state;
}

void RemoveJournal(const std::string& journal, Disk& disk) {
  if (disk.Remove(journal) != 0 && errno != ENOENT) {
    throw Error(journal, std::string("cannot be removed: ") + std::strerror(errno));
  }
  FlushFolderOf(disk, journal);
}

}  // namespace qlnmedia::mp4
