// Walks the outermost level of a file.

#include "container/mp4/top_level.h"

#include "container/mp4/movie.h"

namespace qlnmedia::mp4 {

std::optional<WrongBox> FindWrongBox(const Source& source) {
  Reader reader(source);
  BoxLevel level = BoxLevel::Top(reader);
  for (Box box; level.Next(box);) {
    if (box.overruns) return WrongBox{box.type, box.at, box.declared, source.size() - box.at};
  }
  const uint64_t at = level.at();
  if (at > source.size() || source.size() - at < 8) return {};
  uint64_t size = reader.U32(at);
  const uint32_t type = reader.U32(at + 4);
  if (size == 1 && source.size() - at >= 16) size = reader.U64(at + 8);
  if (size == 0 && type == 0) return {};
  return WrongBox{type, at, size, source.size() - at};
}

bool HasIndex(const Source& source) {
  Reader reader(source);
  BoxLevel level = BoxLevel::Top(reader);
  for (Box movie; level.Next(movie);) {
    if (movie.type != FourCc("moov") || movie.overruns) continue;
    BoxLevel inside = BoxLevel::Inside(reader, movie);
    for (Box box; inside.Next(box);) {
      if (box.type == FourCc("trak")) return true;
    }
  }
  return false;
}

bool IsFragmented(const Source& source) {
  Reader reader(source);
  BoxLevel level = BoxLevel::Top(reader);
  for (Box movie; level.Next(movie);) {
    if (movie.type == FourCc("moov")) return FindBox(reader, movie, FourCc("mvex")).has_value();
  }
  return false;
}

bool IsQuickTime(const Source& source) {
  Reader reader(source);
  BoxLevel level = BoxLevel::Top(reader);
  for (Box box; level.Next(box);) {
    if (box.type == FourCc("ftyp") && box.bodySize() >= 4) return reader.U32(box.body) == FourCc("qt  ");
  }
  return true;
}

std::set<uint32_t> EncryptedTracks(const Source& source) {
  Reader reader(source);
  std::set<uint32_t> tracks;
  BoxLevel level = BoxLevel::Top(reader);
  for (Box movie; level.Next(movie);) {
    if (movie.type != FourCc("moov")) continue;
    BoxLevel inside = BoxLevel::Inside(reader, movie);
    for (Box box; inside.Next(box);) {
      if (box.type != FourCc("trak")) continue;
      const Track track = ReadTrack(reader, box);
      for (const Description& description : track.descriptions) {
        if (description.encrypted) tracks.insert(track.id);
      }
    }
  }
  return tracks;
}

}  // namespace qlnmedia::mp4
