// A host without files: edits access units in memory, one after the other.
#include <qlnmedia/stream_editor.h>

#include <cstddef>
#include <cstdint>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

namespace {

using Bytes = std::vector<uint8_t>;

// The access units of a byte stream in which each begins with a delimiter of four zero-padded bytes.
std::vector<Bytes> AccessUnits(const Bytes& stream) {
  std::vector<Bytes> units;
  for (size_t at = 0; at < stream.size(); ++at) {
    const bool begins = at + 5 <= stream.size() && stream[at] == 0 && stream[at + 1] == 0 &&
                        stream[at + 2] == 0 && stream[at + 3] == 1 && (stream[at + 4] & 31) == 9;
    if (begins || units.empty()) units.emplace_back();
    units.back().push_back(stream[at]);
  }
  return units;
}

// Whether a library of that name has come into this process.
bool IsMapped(const std::string& name) {
  std::ifstream maps("/proc/self/maps");
  for (std::string line; std::getline(maps, line);) {
    if (line.find(name) != std::string::npos) return true;
  }
  return false;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) return 2;
  std::ifstream file(argv[1], std::ios::binary);
  const Bytes stream((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
  const std::vector<Bytes> units = AccessUnits(stream);
  if (units.size() < 3) return 3;

  qlnmedia::StreamDescription description;
  description.codec = qlnmedia::VideoCodec::kH264;
  description.raw = true;
  qlnmedia::StreamChanges changes;
  changes.colour = qlnmedia::ColourCodes{9, 16, 9};
  qlnmedia::StreamEditor editor(description, changes);
  size_t given = 0, changed = 0;
  const auto pull = [&] {
    while (const auto edited = editor.Pull()) {
      if (!edited->changed && edited->unit.data != units[given]) return false;
      changed += edited->changed ? 1 : 0;
      ++given;
    }
    return true;
  };
  for (const Bytes& unit : units) {
    editor.Push({unit});
    if (!pull()) return 4;
  }
  editor.Finish();
  if (!pull() || given != units.size()) return 5;
  if (IsMapped("/libav") || !IsMapped("/libqlnmedia.so")) return 7;
  return changed != 0 && editor.counts().sequenceSets == static_cast<int64_t>(changed) ? 0 : 6;
}
