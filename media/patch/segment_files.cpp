// Joins segments for the carrier, and writes each with what changed in it.

#include "patch/segment_files.h"

#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <iterator>
#include <memory>
#include <optional>
#include <system_error>
#include <utility>

#include "base/error.h"
#include "base/progress.h"
#include "base/unfinished.h"
#include "container/container_kind.h"
#include "container/mp4/joined_source.h"
#include "container/mp4/layout_check.h"
#include "container/mp4/memory_sink.h"
#include "container/mp4/output_file.h"
#include "patch/carried_input.h"
#include "patch/carried_tracks.h"
#include "patch/segment_list.h"
#include "patch/verify.h"

namespace qlnmedia {

namespace {

namespace fs = std::filesystem;

std::unique_ptr<mp4::Source> Opened(const std::string& path) {
  return std::make_unique<mp4::ClosedFileSource>(path);
}

// The first part is the initialization segment.
std::unique_ptr<mp4::JoinedSource> Joined(const std::string& name, const std::vector<std::string>& paths) {
  std::vector<std::unique_ptr<mp4::Source>> parts;
  for (const std::string& path : paths) {
    parts.push_back(Opened(path));
    mp4::Reader reader(*parts.back());
    mp4::BoxLevel level = mp4::BoxLevel::Top(reader);
    for (mp4::Box box; level.Next(box);) {
      if (box.toEnd || box.overruns) throw parts.back()->Fault(box.at, BoxName(box) + " is open at its end");
    }
  }
  return std::make_unique<mp4::JoinedSource>(name, std::move(parts));
}

// One stream of segments with its change.
class Segments {
 public:
  Segments(const PatchOptions& options, const std::string& initialization,
           const std::vector<std::string>& segments, const std::string& scratch)
      : options_(options), media_(initialization) {
    media_.RequireVideo();
    std::vector<std::string> paths = {initialization};
    paths.insert(paths.end(), segments.begin(), segments.end());
    source_ = Joined(options.in, paths);
    mp4::CarrierOptions carrierOptions;
    carrierOptions.scratchFolder = scratch;
    carrier_ = std::make_unique<mp4::Carrier>(*source_, carrierOptions);
    input_ = std::make_unique<CarriedInput>(media_.streams(), options.in, *carrier_);
    streams_ = std::make_unique<EditedStreams>(*input_, options);
    tracks_ = std::make_unique<CarriedTracks>(*input_, *streams_, options);
    const auto bytes = static_cast<int64_t>(source_->size());
    meter_ = std::make_unique<Progress>(options.progress, options.dryRun ? "reading" : "patching", bytes);
    tracks_->change().progress = [this, bytes](double part) {
      meter_->At(static_cast<int64_t>(part * static_cast<double>(bytes)));
      return true;
    };
    carrier_->Prepare(tracks_->change());
  }

  // Part 0 is the initialization segment.
  void Write(size_t part, mp4::Sink& sink) const {
    carrier_->splices().Apply(*source_, source_->BeginOf(part), source_->BeginOf(part + 1), sink,
                              [](uint64_t) {});
  }

  // Holds what was written, part by part, against what was planned.
  mp4::LayoutChecked Check(std::vector<std::unique_ptr<mp4::Source>> written) const {
    return mp4::CheckLayout(*carrier_, mp4::JoinedSource(options_.out, std::move(written)), options_.out);
  }

  PatchResult Result(const std::optional<mp4::LayoutChecked>& checked) const {
    meter_->Done();
    PatchResult result{streams_->Summary()};
    if (options_.verify && checked) result.lines.push_back(VerifiedText(checked->samples, checked->tracks));
    return result;
  }

 private:
  const PatchOptions& options_;
  MediaFile media_;
  std::unique_ptr<mp4::JoinedSource> source_;
  std::unique_ptr<mp4::Carrier> carrier_;
  std::unique_ptr<CarriedInput> input_;
  std::unique_ptr<EditedStreams> streams_;
  std::unique_ptr<CarriedTracks> tracks_;
  std::unique_ptr<Progress> meter_;
};

// A folder that gets its name when all is in it.
class OutputFolder {
 public:
  OutputFolder(const std::string& path, const UnfinishedCallback& unfinished)
      : path_(fs::path(path) / ""),
        beside_(fmt::format("{}.{}.part", path_.parent_path().string(), getpid())),
        unfinished_(unfinished, beside_) {
    std::error_code error;
    if (fs::exists(path) && (!fs::is_directory(path) || !fs::is_empty(path)))
      throw Error(path, "is there already", "name a new folder, or an empty one");
    const bool made = fs::create_directory(beside_, error);
    if (!error && !made) error = std::make_error_code(std::errc::file_exists);
    if (error) throw Error(path, "cannot be written: " + error.message());
  }
  ~OutputFolder() {
    std::error_code ignored;
    if (!inPlace_) fs::remove_all(beside_, ignored);
  }
  OutputFolder(const OutputFolder&) = delete;
  OutputFolder& operator=(const OutputFolder&) = delete;

  std::string PathOf(const std::string& name) const {
    const fs::path path = beside_ / name;
    std::error_code error;
    fs::create_directories(path.parent_path(), error);
    if (error) throw Error(path, "cannot be written: " + error.message());
    return path;
  }
  void Finish() {
    std::error_code error;
    // Files have their names flushed with them, folders here.
    for (fs::recursive_directory_iterator at(beside_, error), end; !error && at != end; at.increment(error)) {
      if (at->is_directory(error)) mp4::FlushFolderOf(mp4::Disk::System(), at->path());
    }
    fs::rename(beside_, path_.parent_path(), error);
    if (error) throw Error(path_.parent_path(), "cannot be put in place: " + error.message());
    inPlace_ = true;
    mp4::FlushFolderOf(mp4::Disk::System(), path_.parent_path());
  }

 private:
  fs::path path_;
  fs::path beside_;
  Unfinished unfinished_;
  bool inPlace_ = false;
};

}  // namespace

PatchResult PatchSegment(const PatchOptions& options) {
  RequireWritable(options.in, options.out);
  RequireWritable(options.initialization, options.out);
  const Segments segments(options, options.initialization, {options.in},
                          options.dryRun ? "/tmp" : mp4::FolderOf(options.out));
  std::optional<mp4::LayoutChecked> checked;
  if (!options.dryRun) {
    mp4::OutputFile out(options.out, mp4::Disk::System(), options.unfinished);
    segments.Write(1, out);
    mp4::MemorySink initialization;
    segments.Write(0, initialization);
    std::vector<std::unique_ptr<mp4::Source>> written;
    written.push_back(std::make_unique<mp4::MemorySource>(initialization.bytes()));
    written.push_back(Opened(out.Readable()));
    checked = segments.Check(std::move(written));
    out.Finish();
  }
  return segments.Result(checked);
}

PatchResult PatchSegments(const PatchOptions& options) {
  const SegmentList list = ReadSegmentList(options.in);
  const auto pathOf = [&list](const std::string& name) { return (fs::path(list.folder) / name).string(); };
  std::vector<std::string> paths;
  std::transform(list.segments.begin(), list.segments.end(), std::back_inserter(paths), pathOf);
  const Segments segments(options, pathOf(list.initialization), paths, "/tmp");
  std::optional<mp4::LayoutChecked> checked;
  if (!options.dryRun) {
    OutputFolder folder(options.out, options.unfinished);
    std::vector<std::string> names = {list.initialization};
    names.insert(names.end(), list.segments.begin(), list.segments.end());
    std::vector<std::unique_ptr<mp4::Source>> written;
    for (size_t part = 0; part < names.size(); ++part) {
      const std::string path = folder.PathOf(names[part]);
      mp4::OutputFile out(path);
      segments.Write(part, out);
      out.Finish();
      written.push_back(Opened(path));
    }
    checked = segments.Check(std::move(written));
    for (const std::string& name : list.others) {
      const mp4::FileSource other(pathOf(name));
      mp4::OutputFile out(folder.PathOf(name));
      out.Copy(other, 0, other.size());
      out.Finish();
    }
    folder.Finish();
  }
  return segments.Result(checked);
}

}  // namespace qlnmedia
