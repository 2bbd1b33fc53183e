// What the forms of inputs read they write again, whatever the bytes; and what was changed piece by piece
// reads back as pieces, which plain changes of bytes do not.

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>

#include "mutators/formats.h"

namespace {

using namespace qln::fuzz;

int failed = 0;

void Expect(bool holds, const char* what, const std::string& of) {
  if (holds) return;
  std::fprintf(stderr, "%s: %s\n", of.c_str(), what);
  ++failed;
}

Bytes Written(const Format& format, const Bytes& bytes) {
  Bytes out;
  format.Write(format.Read(bytes.data(), bytes.size()), out);
  return out;
}

size_t Counted(const Piece& piece) {
  size_t count = piece.parts.size();
  for (const Piece& part : piece.parts) count += Counted(part);
  return count;
}

// Stands in for libFuzzer's own: other bytes of the same number.
size_t Flip(uint8_t* data, size_t size, size_t) {
  for (size_t i = 0; i < size; i += 7) data[i] ^= 0x11;
  return size;
}

// Changes a seed many times: every result is within its room, and most of its bytes still are pieces.
void Change(const Format& format, const Bytes& bytes, const std::string& name) {
  const size_t was = Counted(format.Read(bytes.data(), bytes.size()));
  size_t whole = 0;
  size_t changed = 0;
  constexpr unsigned kRounds = 50;
  for (unsigned seed = 1; seed <= kRounds; ++seed) {
    Bytes room(bytes);
    room.resize(2 * bytes.size() + 4096, 0xEE);
    const size_t size = Mutated(format, 0, room.data(), bytes.size(), room.size() - 16, seed * 7919, Flip);
    Expect(std::all_of(room.end() - 16, room.end(), [](uint8_t b) { return b == 0xEE; }),
           "wrote behind its room", name);
    if (size == 0) continue;
    room.resize(size);
    if (room != bytes) ++changed;
    if (Counted(format.Read(room.data(), room.size())) * 4 >= was) ++whole;
    Bytes crossed(room.size() + bytes.size() + 64);
    Crossed(format, 0, room.data(), room.size(), bytes.data(), bytes.size(), crossed.data(), crossed.size(),
            seed);
  }
  Expect(changed * 2 > kRounds, "is hardly ever changed", name);
  Expect(whole * 2 > kRounds, "falls apart when it is changed", name);
}

struct Row {
  const Format& format;
  const char* corpus;
  size_t head;
  bool any;  // any bytes come out as they were, and not only those that keep the form's rules
};

std::vector<Bytes> SeedsOf(const std::filesystem::path& folder, size_t head) {
  std::vector<Bytes> seeds;
  for (const auto& entry : std::filesystem::directory_iterator(folder)) {
    std::ifstream file(entry.path(), std::ios::binary);
    Bytes bytes((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
    if (bytes.size() <= head) continue;
    bytes.erase(bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(head));
    seeds.push_back(std::move(bytes));
  }
  return seeds;
}

void Cut(const Format& format, const Bytes& bytes, const std::string& name) {
  for (size_t size = 0; size < bytes.size(); size += 1 + bytes.size() / 64) {
    const Bytes part(bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(size));
    Expect(Written(format, part) == part, "is not what it was where it is cut off", name);
    Bytes other = bytes;
    other[size] ^= 0x83;
    Expect(Written(format, other) == other, "is not what it was with another byte", name);
  }
}

}  // namespace

int main(int count, char** arguments) {
  if (count != 2) return 2;
  const Boxes boxes;
  const Elements elements;
  const Triplets triplets;
  const Packets packets;
  const Units units;
  const Lines lines;
  const Codes codes;
  const Row rows[] = {{boxes, "mp4_carry", 6, true},    {elements, "mkv_carry", 4, true},
                      {triplets, "mxf_carry", 4, true}, {packets, "ts_carry", 4, false},
                      {units, "media_units", 2, true},  {lines, "caption_files", 1, true},
                      {codes, "set_edit", 3, false}};
  for (const Row& row : rows) {
    size_t pieces = 0;
    for (const Bytes& seed : SeedsOf(std::filesystem::path(arguments[1]) / row.corpus, row.head)) {
      const Bytes once = Written(row.format, seed);
      if (row.any) Expect(once == seed, "is not what it was", row.corpus);
      Expect(Written(row.format, once) == once, "is another each time", row.corpus);
      if (row.any) Cut(row.format, seed, row.corpus);
      pieces += Counted(row.format.Read(seed.data(), seed.size()));
      if (Counted(row.format.Read(seed.data(), seed.size())) > 3) Change(row.format, seed, row.corpus);
    }
    Expect(pieces > 10, "has no pieces", row.corpus);
    std::printf("%s: %zu pieces\n", row.corpus, pieces);
  }
  return failed == 0 ? EXIT_SUCCESS : EXIT_FAILURE;
}
