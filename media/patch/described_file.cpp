// Takes the movie out of a file, with boxes that no description needs called free space.

#include "patch/described_file.h"

#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <filesystem>
#include <system_error>
#include <utility>

#include "base/error.h"
#include "base/read_error.h"
#include "container/box_streams.h"
#include "container/mp4/movie.h"

namespace qlnmedia {

namespace {

using mp4::FourCc;

constexpr uint64_t kMostBytes = uint64_t{256} << 20;
constexpr std::array kHolders = {FourCc("moov"), FourCc("trak"), FourCc("mdia"), FourCc("minf"),
                                 FourCc("stbl")};
constexpr std::array kUnneeded = {FourCc("sgpd"), FourCc("sbgp"), FourCc("csgp"), FourCc("saio"),
                                  FourCc("saiz"), FourCc("subs"), FourCc("udta"), FourCc("meta")};

template <typename List>
bool IsIn(const List& list, uint32_t type) {
  return std::find(list.begin(), list.end(), type) != list.end();
}

void ClearUnneeded(mp4::Reader& reader, mp4::BoxLevel level, mp4::Bytes& bytes) {
  for (mp4::Box box; level.Next(box);) {
    if (IsIn(kHolders, box.type)) ClearUnneeded(reader, mp4::BoxLevel::Inside(reader, box), bytes);
    if (!IsIn(kUnneeded, box.type)) continue;
    const mp4::Bytes type = mp4::NumberBytes(FourCc("free"), 4);
    std::copy(type.begin(), type.end(), bytes.begin() + static_cast<std::ptrdiff_t>(box.at + 4));
  }
}

// Empty where there is not one movie, and for what cannot be read twice.
mp4::Bytes MovieOf(const std::string& path) {
  if (std::error_code error; !std::filesystem::is_regular_file(path, error)) return {};
  const mp4::FileSource source(path);
  mp4::Reader reader(source);
  mp4::Bytes bytes;
  int movies = 0;
  mp4::BoxLevel level = mp4::BoxLevel::Top(reader);
  for (mp4::Box box; level.Next(box);) {
    if (box.type != FourCc("ftyp") && box.type != FourCc("moov")) continue;
    if (box.toEnd || box.overruns || box.size() > kMostBytes) return {};
    if (box.type == FourCc("moov")) ++movies;
    const mp4::Bytes run = reader.Run(box.at, box.size());
    bytes.insert(bytes.end(), run.begin(), run.end());
  }
  if (movies != 1) return {};
  const mp4::Bytes whole = bytes;
  const mp4::MemorySource copy(whole);
  mp4::Reader copyReader(copy);
  ClearUnneeded(copyReader, mp4::BoxLevel::Top(copyReader), bytes);
  return bytes;
}

// A file in memory that is gone with its last reader.
class MemoryFile {
 public:
  explicit MemoryFile(mp4::ByteSpan bytes) : descriptor_(memfd_create("movie", MFD_CLOEXEC)) {
    while (descriptor_ >= 0 && !bytes.empty()) {
      const ssize_t put = write(descriptor_, bytes.data(), bytes.size());
      if (put < 0 && errno == EINTR) continue;
      if (put <= 0) throw Error("", "there is no room for the description of a file");
      bytes = bytes.subspan(static_cast<size_t>(put));
    }
  }
  ~MemoryFile() {
    if (descriptor_ >= 0) close(descriptor_);
  }
  MemoryFile(const MemoryFile&) = delete;
  MemoryFile& operator=(const MemoryFile&) = delete;
  std::string path() const { return "/proc/self/fd/" + std::to_string(descriptor_); }

 private:
  int descriptor_;
};

// Null where that does not open either.
std::unique_ptr<MediaFile> MovieAlone(const std::string& path) {
  try {
    const mp4::Bytes movie = MovieOf(path);
    if (movie.empty()) return nullptr;
    const MemoryFile file(movie);
    return std::make_unique<MediaFile>(file.path());
  } catch (const ReadError&) {
    throw;
  } catch (const Error&) {
    return nullptr;
  }
}

// Timecodes and signs of fields go by rates, captions by times, and the comparison needs an independent
// reader.
bool BoxesAreEnough(const PatchOptions& options) {
  const bool compares = options.verify && !options.dryRun;
  return options.timecode.empty() && !options.interlaced && !options.captions && !compares;
}

}  // namespace

DescribedFile OpenDescribed(const std::string& path) {
  DescribedFile file;
  try {
    file.media = std::make_unique<MediaFile>(path);
  } catch (const ReadError&) {
    throw;
  } catch (const Error&) {
    file.media = MovieAlone(path);
    if (file.media == nullptr) throw;
    file.whole = false;
  }
  file.streams = file.media->streams();
  return file;
}

DescribedFile DescribeFor(const PatchOptions& options, const mp4::Carrier& carrier) {
  if (BoxesAreEnough(options)) {
    DescribedFile file;
    auto streams = StreamsOfBoxes(carrier.source(), carrier.layout());
    const auto shows = [](const MediaStream& stream) { return stream.movingPictures; };
    if (streams && std::any_of(streams->begin(), streams->end(), shows)) {
      file.streams = std::move(*streams);
      return file;
    }
  }
  DescribedFile file = OpenDescribed(options.in);
  file.media->RequireVideo();
  return file;
}

}  // namespace qlnmedia
