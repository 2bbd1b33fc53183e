// Walks the top level and the `moov` of a file.

#include "container/mp4/movie.h"

#include <algorithm>

namespace qlnmedia::mp4 {

namespace {

constexpr size_t kMostTracks = 4096;
constexpr size_t kMostMovies = 1024;

void ReadDefaults(Reader& reader, const Box& mvex, Movie& movie) {
  BoxLevel level = BoxLevel::Inside(reader, mvex);
  for (Box box; level.Next(box);) {
    if (box.type != FourCc("trex") || box.bodySize() < 24 || movie.fragmentDefaults.size() == kMostTracks) {
      continue;
    }
    movie.fragmentDefaults[reader.U32(box.body + 4)] = {reader.U32(box.body + 8), reader.U32(box.body + 12),
                                                        reader.U32(box.body + 16), reader.U32(box.body + 20)};
  }
}

Movie ReadMovie(Reader& reader, const Box& moov) {
  Movie movie;
  movie.box = moov;
  BoxLevel level = BoxLevel::Inside(reader, moov);
  for (Box box; level.Next(box);) {
    if (box.type == FourCc("trak")) {
      if (movie.tracks.size() == kMostTracks) {
        throw reader.source().Fault(box.at, "more than 4096 tracks");
      }
      movie.tracks.push_back(ReadTrack(reader, box));
    } else if (box.type == FourCc("mvex")) {
      ReadDefaults(reader, box, movie);
    } else if (box.type == FourCc("cmov")) {
      throw reader.source().Fault(box.at, "the movie header is compressed ('cmov'), which cannot be carried");
    } else {
      TakeMetas(reader, box, movie.metas);
    }
  }
  return movie;
}

}  // namespace

void TakeMetas(Reader& reader, const Box& box, std::vector<Box>& metas) {
  if (box.type == FourCc("meta")) metas.push_back(box);
  if (box.type != FourCc("udta") && box.type != FourCc("meco")) return;
  BoxLevel level = BoxLevel::Inside(reader, box);
  for (Box inner; level.Next(inner);) {
    if (inner.type == FourCc("meta")) metas.push_back(inner);
  }
}

const Track* Movie::Find(uint32_t trackId) const {
  const auto found =
      std::find_if(tracks.begin(), tracks.end(), [=](const Track& track) { return track.id == trackId; });
  return found == tracks.end() ? nullptr : &*found;
}

const Movie* Layout::MovieOf(uint64_t fragment) const {
  const Movie* movie = nullptr;
  for (const Movie& candidate : movies) {
    if (movie == nullptr || candidate.box.at < fragment) movie = &candidate;
  }
  if (movie != nullptr || initialization == nullptr || initialization->movies.empty()) return movie;
  return &initialization->movies.front();
}

Layout ReadLayout(const Source& source, std::shared_ptr<const Layout> initialization) {
  Reader reader(source);
  Layout layout;
  layout.initialization = std::move(initialization);
  bool branded = false;
  bool any = false;
  BoxLevel level = BoxLevel::Top(reader);
  for (Box box; level.Next(box);) {
    switch (box.type) {
      case FourCc("ftyp"):
      case FourCc("styp"):
        any = true;
        if (!branded && box.bodySize() >= 4) layout.quickTime = reader.U32(box.body) == FourCc("qt  ");
        branded = true;
        break;
      case FourCc("moov"):
        if (layout.movies.size() == kMostMovies) throw source.Fault(box.at, "more than 1024 movies");
        layout.movies.push_back(ReadMovie(reader, box));
        break;
      case FourCc("moof"):
        layout.fragments.push_back(box.at);
        break;
      default:
        TakeMetas(reader, box, layout.metas);
        any = any || box.type == FourCc("mdat");
        break;
    }
  }
  if (!any && layout.movies.empty() && layout.fragments.empty()) {
    throw Error(source.name(), "not an MP4 or MOV file: no 'moov', 'moof' or 'mdat' box in it");
  }
  if (!branded) {
    layout.quickTime = layout.initialization ? layout.initialization->quickTime : layout.fragments.empty();
  }
  return layout;
}

}  // namespace qlnmedia::mp4
