// Finds boxes and makes them grow.

#include "box_surgery.h"

#include <gtest/gtest.h>

namespace qln::test {

namespace {

size_t SizeAt(const Bytes& file, size_t at) {
  return size_t{file.at(at)} << 24 | size_t{file.at(at + 1)} << 16 | size_t{file.at(at + 2)} << 8 |
         file.at(at + 3);
}

void SetSizeAt(Bytes& file, size_t at, size_t size) {
  for (size_t i = 0; i < 4; ++i) file.at(at + i) = static_cast<uint8_t>(size >> (24 - 8 * i));
}

// Offsets of the boxes on the way to a box, itself last.
std::vector<size_t> WayTo(const Bytes& file, const BoxPath& path) {
  std::vector<size_t> way;
  size_t begin = 0;
  size_t end = file.size();
  for (const std::string& type : path) {
    size_t at = begin;
    while (at + 8 <= end && std::string(file.begin() + static_cast<std::ptrdiff_t>(at + 4),
                                        file.begin() + static_cast<std::ptrdiff_t>(at + 8)) != type)
      at += std::max<size_t>(8, SizeAt(file, at));
    if (at + 8 > end) {
      ADD_FAILURE() << "no box " << type;
      return {0};
    }
    way.push_back(at);
    end = at + SizeAt(file, at);
    // stsd: version, flags, count; a visual sample description: its fields.
    begin = at + 8 + (type == "stsd" ? 8u : type == "avc1" || type == "hvc1" || type == "hev1" ? 78u : 0u);
  }
  return way;
}

}  // namespace

Bytes Box(const std::string& type, const Bytes& body) {
  Bytes box(4);
  SetSizeAt(box, 0, body.size() + 8);
  box.insert(box.end(), type.begin(), type.end());
  box.insert(box.end(), body.begin(), body.end());
  return box;
}

size_t FindBox(const Bytes& file, const BoxPath& path) { return WayTo(file, path).back(); }

void InsertIntoBox(Bytes& file, const BoxPath& path, size_t offset, const Bytes& bytes) {
  const std::vector<size_t> way = WayTo(file, path);
  file.insert(file.begin() + static_cast<std::ptrdiff_t>(way.back() + 8 + offset), bytes.begin(),
              bytes.end());
  for (const size_t at : way) SetSizeAt(file, at, SizeAt(file, at) + bytes.size());
}

void AppendToBox(Bytes& file, const BoxPath& path, const Bytes& box) {
  InsertIntoBox(file, path, SizeAt(file, FindBox(file, path)) - 8, box);
}

}  // namespace qln::test
