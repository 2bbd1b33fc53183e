// Looks at the first bytes of what did not open.

#include "container/open_failures.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <fstream>
#include <iterator>
#include <optional>
#include <string_view>

#include "base/error.h"
#include "base/text.h"
#include "container/mp4/top_level.h"

namespace qlnmedia {

namespace {

// Whether a pipe has bytes for all of `to`; reads up to there.
bool FillFrom(PipeTape& tape, uint64_t at, std::span<uint8_t> to) {
  // What lies between is read as well, since a pipe goes one way.
  Bytes passed(4096);
  for (uint64_t from = tape.size(); from < at; from = tape.size()) {
    if (tape.Read(from, std::span(passed).first(std::min<uint64_t>(passed.size(), at - from))) == 0)
      return false;
  }
  while (!to.empty()) {
    const size_t got = tape.Read(at, to);
    if (got == 0) return false;
    at += got;
    to = to.subspan(got);
  }
  return true;
}

}  // namespace

bool BeginsWithBox(const std::string& path) {
  constexpr std::string_view kTypes[] = {"ftyp", "styp", "mdat", "free", "skip",
                                         "wide", "pnot", "moov", "uuid"};
  std::ifstream file(path, std::ios::binary);
  std::array<char, 8> head{};
  file.read(head.data(), head.size());
  const std::string_view type(head.data() + 4, 4);
  return file && std::find(std::begin(kTypes), std::end(kTypes), type) != std::end(kTypes);
}

void FailWithoutBytes(const MediaInput& input) {
  if (input.tape().ended()) throw NotApplicable(input.path(), "is empty");
  throw Error(input.path(), "is a pipe through which nothing came in time",
              "start its writer first, or name a file");
}

void RequireIndexInFront(const MediaInput& input) {
  std::array<uint8_t, 16> head{};
  const auto number = [&head](size_t at, size_t bytes) {
    uint64_t value = 0;
    for (size_t i = at; i < at + bytes; ++i) value = value << 8 | head[i];
    return value;
  };
  // Boxes that stand in front of the two; all others, and what is no box, are left to libavformat.
  for (uint64_t at = 0; FillFrom(input.tape(), at, head);) {
    const auto type = static_cast<uint32_t>(number(4, 4));
    if (type == mp4::FourCc("mdat"))
      throw Error(input.path(), "comes through a pipe, and its index (moov) stands behind its media data",
                  "save it to a file, or write it with the index in front (faststart)");
    const bool skipped = type == mp4::FourCc("ftyp") || type == mp4::FourCc("free") ||
                         type == mp4::FourCc("skip") || type == mp4::FourCc("wide") ||
                         type == mp4::FourCc("uuid") || type == mp4::FourCc("pnot");
    const uint64_t size = number(0, 4) == 1 ? number(8, 8) : number(0, 4);
    constexpr uint64_t kMostInFront = uint64_t{1} << 20;
    if (!skipped || size < 8 || size > kMostInFront) return;
    at += size;
  }
}

void FailNoMedia(const std::string& path) {
  throw Error(path, "is no media that can be read",
              "name a media file such as MP4, MOV, MKV, TS or raw video");
}

void FailBoxes(const std::string& path) {
  const mp4::FileSource source(path);
  const std::optional<mp4::WrongBox> wrong = mp4::FindWrongBox(source);
  const bool cutOff = wrong && wrong->said > wrong->left &&
                      (wrong->type == mp4::FourCc("mdat") || wrong->type == mp4::FourCc("moov"));
  if (wrong && !cutOff)
    throw Error(path,
                fmt::format("the box \"{}\" at byte {} says a size of {} bytes, where {} are left",
                            Printable(mp4::TypeBytes(wrong->type)), wrong->at, wrong->said, wrong->left),
                "copy or record the file again");
  if (!mp4::HasIndex(source))
    throw Error(path, "does not open because it is cut off: its index (moov) is missing",
                "copy or record it again");
}

}  // namespace qlnmedia
