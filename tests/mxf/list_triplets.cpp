// Lists both files, leaves fill items aside, and goes through what is left side by side.

#include "mxf/list_triplets.h"

#include <gtest/gtest.h>

#include <algorithm>

namespace qln::test {

namespace {

struct Pack {
  size_t triplet = 0;  // place in the list
  size_t at = 0;
  size_t end = 0;
  uint64_t alignment, thisAt, previous, footer, headerBytes, indexBytes, bodyOffset, bodySid;
  size_t essence = 0;  // where it begins; 0 for none
  uint64_t stream = 0;
};

struct File {
  explicit File(const Bytes& bytes) : triplets(ListTriplets(bytes)), size(bytes.size()) {
    for (size_t i = 0; i < triplets.size(); ++i) {
      const ReadTriplet& triplet = triplets[i];
      if (!triplet.isFill()) solid.push_back(i);
      if (triplet.isPartition()) {
        const Bytes& v = triplet.value;
        packs.push_back({i, triplet.at, bytes.size(), NumberAt(v, 4, 4), NumberAt(v, 8, 8),
                         NumberAt(v, 16, 8), NumberAt(v, 24, 8), NumberAt(v, 32, 8), NumberAt(v, 40, 8),
                         NumberAt(v, 52, 8), NumberAt(v, 60, 4)});
        if (packs.size() > 1) packs[packs.size() - 2].end = triplet.at;
      } else if (triplet.isRandomIndex()) {
        packs.back().end = triplet.at;
      } else if (packs.back().essence == 0 && packs.back().bodySid != 0 &&
                 triplet.key.substr(16, 8) == "0d010301") {
        packs.back().essence = triplet.at;
      }
    }
    std::map<uint64_t, uint64_t> streams;
    for (Pack& pack : packs) {
      if (pack.essence == 0) continue;
      pack.stream = streams[pack.bodySid];
      streams[pack.bodySid] += pack.end - pack.essence;
    }
    base = triplets.empty() ? 0 : triplets[0].at;
  }

  // Which of the solid triplets begins at a place; their number for none.
  size_t SolidAt(size_t at) const {
    for (size_t i = 0; i < solid.size(); ++i) {
      if (triplets[solid[i]].at == at) return i;
    }
    return solid.size();
  }
  size_t SolidInStream(uint64_t sid, uint64_t offset) const {
    for (const Pack& pack : packs) {
      if (pack.essence != 0 && pack.bodySid == sid && offset >= pack.stream &&
          offset < pack.stream + (pack.end - pack.essence))
        return SolidAt(pack.essence + (offset - pack.stream));
    }
    return solid.size();
  }
  const Pack& PackOf(size_t at) const {
    size_t i = packs.size() - 1;
    while (i > 0 && packs[i].at > at) --i;
    return packs[i];
  }

  std::vector<ReadTriplet> triplets;
  std::vector<size_t> solid;
  std::vector<Pack> packs;
  size_t size;
  size_t base = 0;
};

// Bytes of a pack without those that name places and sizes.
Bytes Constant(Bytes value) {
  std::fill(value.begin() + 8, value.begin() + 48, uint8_t{0});
  std::fill(value.begin() + 52, value.begin() + 60, uint8_t{0});
  return value;
}

void ExpectPack(const File& in, const File& out, size_t i) {
  const Pack& was = in.packs[i];
  const Pack& is = out.packs[i];
  EXPECT_EQ(Constant(in.triplets[was.triplet].value), Constant(out.triplets[is.triplet].value));
  const auto points = [&](uint64_t from, uint64_t to, const char* what) {
    const size_t before = in.SolidAt(in.base + from);
    if (before < in.solid.size()) {
      EXPECT_EQ(out.SolidAt(out.base + to), before) << what << " of partition " << i;
    }
    if (from == 0) {
      EXPECT_EQ(to, 0u) << what;
    }
  };
  points(was.thisAt, is.thisAt, "ThisPartition");
  points(was.previous, is.previous, "PreviousPartition");
  points(was.footer, is.footer, "FooterPartition");
  EXPECT_EQ(is.bodyOffset - is.stream, was.bodyOffset - was.stream) << "BodyOffset of partition " << i;
  // Header metadata, and then the index, end where a triplet begins or the partition ends.
  const auto ends = [](const File& file, const Pack& pack, uint64_t bytes, bool primer) {
    for (size_t t = pack.triplet + 1; t < file.triplets.size() && file.triplets[t].at < pack.end; ++t) {
      const ReadTriplet& triplet = file.triplets[t];
      if (!(primer ? triplet.isPrimer() : triplet.isIndex())) continue;
      const size_t end = triplet.at + bytes;
      if (end == pack.end) return file.solid.size();
      for (const ReadTriplet& other : file.triplets) {
        if (other.at == end && !other.isFill()) return file.SolidAt(end);
      }
      return file.solid.size() + 1;
    }
    return file.solid.size() + 2;
  };
  if (was.headerBytes != 0) {
    EXPECT_EQ(ends(in, was, was.headerBytes, true), ends(out, is, is.headerBytes, true)) << i;
  }
  if (was.indexBytes != 0) {
    EXPECT_EQ(ends(in, was, was.indexBytes, false), ends(out, is, is.indexBytes, false)) << i;
  }
}

void ExpectIndex(const File& in, const File& out, const Bytes& was, const Bytes& is) {
  ASSERT_EQ(was.size(), is.size());
  const std::map<uint16_t, Bytes> before = TagsOf(was), after = TagsOf(is);
  ASSERT_EQ(before.size(), after.size());
  for (const auto& [tag, value] : before) {
    if (tag != 0x3F0A && tag != 0x3F09 && tag != 0x3F10) {
      EXPECT_EQ(value, after.at(tag)) << tag;
    }
  }
  if (before.count(0x3F0A) == 0) {
    // Units of one size.
    const uint64_t sid = NumberAt(before.at(0x3F07), 0, 4), unit = NumberAt(before.at(0x3F05), 0, 4);
    for (uint64_t at = 0; unit != 0 && in.SolidInStream(sid, at) < in.solid.size(); at += unit)
      EXPECT_EQ(out.SolidInStream(sid, at), in.SolidInStream(sid, at)) << "unit at " << at;
    return;
  }
  const Bytes& old = before.at(0x3F0A);
  const Bytes& fresh = after.at(0x3F0A);
  const uint64_t sid = NumberAt(before.at(0x3F07), 0, 4);
  const size_t entry = NumberAt(old, 4, 4), slices = before.at(0x3F08)[0];
  const Bytes noDeltas(8, 0);
  const Bytes& oldDeltas = before.count(0x3F09) != 0 ? before.at(0x3F09) : noDeltas;
  const Bytes& freshDeltas = before.count(0x3F09) != 0 ? after.at(0x3F09) : noDeltas;
  for (size_t d = 0; d < NumberAt(oldDeltas, 0, 4); ++d)
    EXPECT_EQ(NumberAt(oldDeltas, 8 + 6 * d, 2), NumberAt(freshDeltas, 8 + 6 * d, 2)) << "delta " << d;
  for (size_t i = 0; i < NumberAt(old, 0, 4); ++i) {
    const size_t at = 8 + i * entry;
    EXPECT_TRUE(std::equal(old.begin() + static_cast<long>(at), old.begin() + static_cast<long>(at) + 3,
                           fresh.begin() + static_cast<long>(at)));
    const size_t rest = 11 + 4 * slices;
    EXPECT_TRUE(std::equal(old.begin() + static_cast<long>(at + rest),
                           old.begin() + static_cast<long>(at + entry),
                           fresh.begin() + static_cast<long>(at + rest)))
        << "positions of entry " << i;
    const uint64_t wasOffset = NumberAt(old, at + 3, 8), isOffset = NumberAt(fresh, at + 3, 8);
    const size_t points = in.SolidInStream(sid, wasOffset);
    EXPECT_EQ(out.SolidInStream(sid, isOffset), points) << "entry " << i;
    for (size_t slice = 0; slice <= slices; ++slice) {
      const uint64_t wasSlice = slice == 0 ? 0 : NumberAt(old, at + 11 + 4 * (slice - 1), 4);
      const uint64_t isSlice = slice == 0 ? 0 : NumberAt(fresh, at + 11 + 4 * (slice - 1), 4);
      EXPECT_EQ(out.SolidInStream(sid, isOffset + isSlice), in.SolidInStream(sid, wasOffset + wasSlice))
          << "slice " << slice << " of entry " << i;
      for (size_t d = 0; d < NumberAt(oldDeltas, 0, 4); ++d) {
        if (oldDeltas[8 + 6 * d + 1] != slice) continue;
        const size_t element =
            in.SolidInStream(sid, wasOffset + wasSlice + NumberAt(oldDeltas, 8 + 6 * d + 2, 4));
        if (element == in.solid.size()) continue;
        EXPECT_EQ(out.SolidInStream(sid, isOffset + isSlice + NumberAt(freshDeltas, 8 + 6 * d + 2, 4)),
                  element)
            << "delta " << d << " of entry " << i;
      }
    }
  }
}

void ExpectRandomIndex(const File& in, const File& out, const Bytes& was, const Bytes& is) {
  ASSERT_EQ(was.size(), is.size());
  for (size_t at = 0; at + 16 <= was.size(); at += 12) {
    EXPECT_EQ(NumberAt(was, at, 4), NumberAt(is, at, 4));
    EXPECT_EQ(out.SolidAt(out.base + NumberAt(is, at + 4, 8)),
              in.SolidAt(in.base + NumberAt(was, at + 4, 8)));
  }
  EXPECT_EQ(NumberAt(was, was.size() - 4, 4), NumberAt(is, is.size() - 4, 4));
}

// A triplet behind a fill item stands where alignment wants it, if it did.
void ExpectAligned(const File& in, const File& out) {
  for (size_t i = 1; i < in.solid.size(); ++i) {
    const size_t was = in.solid[i];
    if (!in.triplets[was - 1].isFill()) continue;
    const size_t wasAt = in.triplets[was].at, isAt = out.triplets[out.solid[i]].at;
    // A partition pack is seen from the partition in front of it.
    const Pack& before = in.PackOf(wasAt - 1);
    const Pack& after = out.PackOf(isAt - 1);
    const uint64_t alignment = std::max<uint64_t>(1, before.alignment);
    if ((wasAt - before.at) % alignment == 0) {
      EXPECT_EQ((isAt - after.at) % alignment, 0u) << i;
    }
  }
}

}  // namespace

bool ReadTriplet::isPartition() const {
  if (key.substr(8, 4) != "0205" || key.substr(16, 10) != "0d01020101") return false;
  const std::string kind = key.substr(26, 2);
  return kind == "02" || kind == "03" || kind == "04";
}

std::vector<ReadTriplet> ListTriplets(const Bytes& file) {
  const Bytes begin = {0x06, 0x0E, 0x2B, 0x34, 0x02, 0x05};
  const auto found = std::search(file.begin(), file.end(), begin.begin(), begin.end());
  std::vector<ReadTriplet> list;
  const std::string digits = "0123456789abcdef";
  for (auto at = static_cast<size_t>(found - file.begin()); at < file.size();) {
    ReadTriplet triplet;
    triplet.at = at;
    if (file.size() - at < 17) {
      ADD_FAILURE() << "no triplet at " << at;
      return list;
    }
    for (size_t i = 0; i < 16; ++i) triplet.key += {digits[file[at + i] >> 4], digits[file[at + i] & 15]};
    size_t size = file[at + 16];
    if (size >= 0x80) {
      triplet.lengthBytes = size - 0x80 + 1;
      size = NumberAt(file, at + 17, triplet.lengthBytes - 1);
    }
    const size_t value = at + 16 + triplet.lengthBytes;
    if (triplet.key.substr(0, 8) != "060e2b34" || value > file.size() || size > file.size() - value) {
      ADD_FAILURE() << "no triplet at " << at;
      return list;
    }
    triplet.value.assign(file.begin() + static_cast<long>(value),
                         file.begin() + static_cast<long>(value + size));
    at = value + size;
    list.push_back(std::move(triplet));
  }
  return list;
}

uint64_t NumberAt(const Bytes& bytes, size_t at, size_t size) {
  uint64_t number = 0;
  for (size_t i = 0; i < size; ++i) number = number << 8 | (at + i < bytes.size() ? bytes[at + i] : 0U);
  return number;
}

std::map<uint16_t, Bytes> TagsOf(const Bytes& set) {
  std::map<uint16_t, Bytes> tags;
  for (size_t at = 0; at + 4 <= set.size();) {
    const size_t size = NumberAt(set, at + 2, 2);
    Bytes& value = tags[static_cast<uint16_t>(NumberAt(set, at, 2))];
    for (size_t i = 0; i < size && at + 4 + i < set.size(); ++i) value.push_back(set[at + 4 + i]);
    at += 4 + size;
  }
  return tags;
}

void ExpectCarried(const Bytes& in, const Bytes& out, const std::vector<Bytes>& pictures,
                   const std::string& number, bool described) {
  const File before(in), after(out);
  EXPECT_TRUE(before.base == after.base &&
              std::equal(in.begin(), in.begin() + static_cast<long>(before.base), out.begin()));
  ASSERT_EQ(before.solid.size(), after.solid.size());
  ASSERT_EQ(before.packs.size(), after.packs.size());
  size_t picture = 0;
  for (size_t i = 0; i < before.solid.size(); ++i) {
    const ReadTriplet& was = before.triplets[before.solid[i]];
    const ReadTriplet& is = after.triplets[after.solid[i]];
    ASSERT_EQ(was.key, is.key) << i;
    const bool fits = is.value.size() < (was.lengthBytes == 1 ? 128u : ~0u);
    if (fits) {
      EXPECT_EQ(was.lengthBytes, is.lengthBytes) << i;
    }
    if (was.isEssence() && was.number() == number && !was.value.empty()) {
      ASSERT_LT(picture, pictures.size());
      EXPECT_EQ(is.value, pictures[picture]) << "picture " << picture;
      ++picture;
    } else if (was.isIndex()) {
      ExpectIndex(before, after, was.value, is.value);
    } else if (was.isRandomIndex()) {
      ExpectRandomIndex(before, after, was.value, is.value);
    } else if (!was.isPartition() && !(described && (was.isSet() || was.isPrimer()))) {
      EXPECT_EQ(was.value, is.value) << was.key << " at " << was.at;
    }
  }
  EXPECT_EQ(picture, pictures.size());
  for (size_t i = 0; i < before.packs.size(); ++i) ExpectPack(before, after, i);
  ExpectAligned(before, after);
}

}  // namespace qln::test
