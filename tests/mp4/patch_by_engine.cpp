#include "mp4/patch_by_engine.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <map>
#include <set>

#include "container/box_streams.h"
#include "patch/described_file.h"
#include "support/media.h"

namespace qln::test::mp4 {

namespace {

namespace fs = std::filesystem;

// Of the samples of a track: which codec its units are of, and how long their length fields are.
struct Coding {
  bool hevc = false;
  size_t lengthBytes = 4;
};

// Tracks of pictures in units, by the first description of each; of a segment those of its initialization
// segment.
std::map<uint32_t, Coding> CodedTracks(const Bytes& file, const Listing& listing) {
  std::map<uint32_t, Coding> tracks;
  uint32_t id = 0;
  for (const Node& node : listing.boxes) {
    const size_t body = node.at + node.head;
    if (node.type == "tkhd") {
      id = 0;
      for (size_t i = 0; i < 4; ++i) id = id << 8 | file[body + (file[body] == 1 ? 20U : 12U) + i];
    }
    if (node.type == "avcC" && tracks.count(id) == 0) tracks[id] = {false, (file[body + 4] & 3U) + 1};
    if (node.type == "hvcC" && tracks.count(id) == 0) tracks[id] = {true, (file[body + 21] & 3U) + 1};
  }
  return tracks;
}

std::vector<Bytes> UnitsOf(const Bytes& sample, size_t lengthBytes) {
  std::vector<Bytes> units;
  for (size_t at = 0; at + lengthBytes <= sample.size();) {
    size_t size = 0;
    for (size_t i = 0; i < lengthBytes; ++i) size = size << 8 | sample[at + i];
    at += lengthBytes;
    size = std::min(size, sample.size() - at);
    units.emplace_back(sample.begin() + static_cast<std::ptrdiff_t>(at),
                       sample.begin() + static_cast<std::ptrdiff_t>(at + size));
    at += size;
  }
  return units;
}

int TypeOf(const Bytes& unit, bool hevc) {
  if (unit.empty()) return -1;
  return hevc ? unit[0] >> 1 & 63 : unit[0] & 31;
}

bool IsDelimiter(const Bytes& unit, bool hevc) { return TypeOf(unit, hevc) == (hevc ? 35 : 9); }

// Units that no wish here touches.
std::vector<Bytes> Kept(const Bytes& sample, const Coding& coding) {
  static const std::set<int> kAvc = {6, 7, 9};
  static const std::set<int> kHevc = {32, 33, 35, 39, 40};
  std::vector<Bytes> units = UnitsOf(sample, coding.lengthBytes);
  std::erase_if(units, [&](const Bytes& unit) {
    return (coding.hevc ? kHevc : kAvc).count(TypeOf(unit, coding.hevc)) != 0;
  });
  return units;
}

// Judges the samples of pictures, and gives what they are for the comparison of all else.
std::string TakeFresh(const Bytes& file, const Bytes& init, const Bytes& output, Wishes wishes,
                      FreshSamples& fresh) {
  const Listing in = ListFile(file, init);
  const Listing out = ListFile(output, init);
  const auto tracks = init.empty() ? CodedTracks(file, in) : CodedTracks(init, ListFile(init));
  if (tracks.empty()) return "no track of pictures";
  for (const auto& [id, coding] : tracks) {
    const auto samples = out.samples.find(id);
    if (in.samples.count(id) == 0) continue;
    if (samples == out.samples.end() || samples->second.size() != in.samples.at(id).size())
      return "another number of pictures";
    for (size_t i = 0; i < samples->second.size(); ++i) {
      const Bytes& was = in.samples.at(id)[i].data;
      const Bytes& is = samples->second[i].data;
      const std::string name = "picture " + std::to_string(i) + " of track " + std::to_string(id);
      if (wishes == Wishes::kEverything) {
        if (Kept(was, coding) != Kept(is, coding)) return name + " lost or got units";
      } else if (was != is) {
        const size_t more = is.size() - std::min(was.size(), is.size());
        const bool behind = std::equal(was.rbegin(), was.rend(), is.rbegin(),
                                       is.rbegin() + static_cast<std::ptrdiff_t>(was.size()));
        if (more != coding.lengthBytes + (coding.hevc ? 3 : 2) || !behind ||
            !IsDelimiter(UnitsOf(is, coding.lengthBytes).at(0), coding.hevc))
          return name + " is not a delimiter and the picture";
      }
      if (wishes == Wishes::kDelimiters && !is.empty() &&
          !IsDelimiter(UnitsOf(is, coding.lengthBytes).at(0), coding.hevc))
        return name + " has no delimiter";
      fresh[id].push_back(is);
    }
  }
  return {};
}

std::string Patched(const std::string& in, const std::string& out, const std::string& init, Wishes wishes) {
  try {
    qlnmedia::PatchOptions options;
    options.in = in;
    options.out = out;
    options.initialization = init;
    Put(wishes, options);
    qlnmedia::PatchFile(options);
  } catch (const std::exception& error) {
    return error.what();
  }
  return {};
}

}  // namespace

std::string ScratchFolder() {
  static const std::string folder = [] {
    const std::string name = "mp4-scratch-" + std::to_string(getpid());
    const std::string path = access("/dev/shm", W_OK) == 0 ? "/dev/shm/qln-" + name : MediaPath(name);
    fs::create_directories(path);
    return path;
  }();
  static const struct Remove {
    ~Remove() {
      std::error_code ignored;
      fs::remove_all(ScratchFolder(), ignored);
    }
  } kRemove;
  static_cast<void>(kRemove);
  return folder;
}

void Put(Wishes wishes, qlnmedia::StreamChanges& changes) {
  changes.delimiters = true;
  if (wishes == Wishes::kDelimiters) return;
  changes.colour = qlnmedia::ColourCodes{9, 16, 9};
  changes.lightLevel = qlnmedia::LightLevel{1000, 400};
  changes.timecode = "10:00:00:00";
  changes.rate = "25";
}

std::string JudgePatch(const Bytes& file, const Bytes& init, Wishes wishes, Bytes* output) {
  const std::string folder = ScratchFolder();
  const std::string in = folder + "/in.mp4";
  const std::string out = folder + "/out.mp4";
  const std::string again = folder + "/again.mp4";
  const std::string initialization = init.empty() ? "" : folder + "/init.mp4";
  WriteFile(in, file);
  if (!init.empty()) WriteFile(initialization, init);
  if (const std::string refused = Patched(in, out, initialization, wishes); !refused.empty()) return refused;
  const Bytes patched = ReadFile(out);
  if (output != nullptr) *output = patched;
  try {
    FreshSamples fresh;
    if (const std::string wrong = TakeFresh(file, init, patched, wishes, fresh); !wrong.empty()) return wrong;
    const std::string other = Compare(file, patched, fresh, init, wishes == Wishes::kEverything);
    if (!other.empty()) return other;
  } catch (const std::exception& error) {
    return error.what();
  }
  if (const std::string refused = Patched(out, again, initialization, wishes); !refused.empty())
    return "patched again: " + refused;
  return ReadFile(again) == patched ? "" : "patched again it is another file";
}

std::string JudgeInPlace(const Bytes& file) {
  const std::string path = ScratchFolder() + "/place.mp4";
  WriteFile(path, file);
  qlnmedia::PatchOptions options;
  options.in = path;
  options.inPlace = true;
  options.colour = qlnmedia::ColourCodes{9, 16, 9};
  try {
    qlnmedia::PatchFile(options);
  } catch (const std::exception& error) {
    if (ReadFile(path) != file) return "refused, and changed";
    return std::string(error.what()).find("does not fit in place") == std::string::npos ? error.what() : "";
  }
  const Bytes changed = ReadFile(path);
  try {
    const Listing in = ListFile(file);
    const Listing out = ListFile(changed);
    for (const auto& [id, samples] : in.samples) {
      const auto& others = out.samples.at(id);
      if (others.size() != samples.size()) return "another number of samples";
      for (size_t i = 0; i < samples.size(); ++i) {
        if (others[i].data != samples[i].data || others[i].at != samples[i].at)
          return "a sample moved or changed";
      }
    }
    const auto paths = [](const Listing& listing) {
      std::multiset<std::string> all;
      for (const Node& node : listing.boxes) {
        if (node.type != "colr" && node.type != "free" && node.type != "skip") all.insert(node.path);
      }
      return all;
    };
    if (paths(in) != paths(out)) return "other boxes";
    qlnmedia::PatchFile(options);
  } catch (const std::exception& error) {
    return error.what();
  }
  return ReadFile(path) == changed ? "" : "changed again it is another file";
}

std::string JudgeBoxStreams(const Bytes& file, size_t* byBoxes) {
  using qlnmedia::MediaStream;
  const std::string path = ScratchFolder() + "/described.mp4";
  WriteFile(path, file);
  const qlnmedia::mp4::FileSource source(path);
  const auto boxes = qlnmedia::StreamsOfBoxes(source, qlnmedia::mp4::ReadLayout(source));
  if (!boxes) return {};
  if (byBoxes != nullptr) ++*byBoxes;
  const std::vector<MediaStream> streams = qlnmedia::OpenDescribed(path).streams;
  const auto isEdited = [](const MediaStream& stream) {
    return stream.movingPictures && qlnmedia::UnitCodecOf(stream.coded.codec);
  };
  const auto levels = [](const MediaStream& stream) {
    const qlnmedia::DolbyVisionConfiguration none{};
    const auto& record = stream.dolbyVision.value_or(none);
    return std::vector<int>{stream.dolbyVision.has_value(),
                            record.dv_version_major,
                            record.dv_version_minor,
                            record.dv_profile,
                            record.dv_level,
                            record.rpu_present_flag,
                            record.el_present_flag,
                            record.bl_present_flag,
                            record.dv_bl_signal_compatibility_id};
  };
  for (size_t i = 0; i < std::max(streams.size(), boxes->size()); ++i) {
    const std::string name = "stream " + std::to_string(i);
    if (i >= streams.size()) return name + " is none";
    const bool edited = i < boxes->size() && isEdited((*boxes)[i]);
    if (isEdited(streams[i]) != edited) return name + " is of another kind";
    if (i >= boxes->size()) continue;
    const MediaStream& is = (*boxes)[i];
    const MediaStream& shall = streams[i];
    if (is.index != i || is.id != shall.id) return name + " has another number";
    if (!edited) continue;
    if (is.coded.codec != shall.coded.codec) return name + " has another codec";
    if (is.coded.privateData != shall.coded.privateData) return name + " has other private data";
    if (is.encrypted != shall.encrypted) return name + " is encrypted, or not";
    if (is.container.width != shall.container.width || is.container.height != shall.container.height)
      return name + " has another size";
    if (is.container.fieldOrder != shall.container.fieldOrder) return name + " has another field order";
    if (levels(is) != levels(shall)) return name + " has another Dolby Vision configuration";
  }
  return {};
}

}  // namespace qln::test::mp4
