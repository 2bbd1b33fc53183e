// What a file's `moov` says about tracks, by place: where each table stands and how wide its entries are.
// Nothing of a table is held.
#ifndef MEDIA_CONTAINER_MP4_MOVIE_H
#define MEDIA_CONTAINER_MP4_MOVIE_H

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "container/mp4/box_tree.h"

namespace qlnmedia::mp4 {

// Entries of one width behind each other in a box.
struct Table {
  Box box;
  uint64_t at = 0;     // of the first entry
  uint64_t count = 0;  // entries, all within the box
  uint8_t version = 0;
  bool there() const { return box.type != 0; }
};

// Fields of a visual sample entry behind its head (ISO/IEC 14496-12 clause 12.1.3, QuickTime alike).
constexpr uint64_t kVisualSampleEntryBytes = 78;

// One entry of `stsd`.
struct Description {
  Box entry;
  uint32_t format = 0;  // its type; of an encrypted one what `frma` says it was
  bool encrypted = false;
  bool selfContained = true;  // its data reference names this very file
  // Its boxes, behind the fields of a visual sample entry; the same place twice where it holds none.
  uint64_t boxesAt = 0;
  uint64_t boxesEnd = 0;
};

// Sizes of samples, from `stsz` or `stz2`.
struct SizeTable : Table {
  uint32_t uniform = 0;  // the size of all samples; 0 where the table has them
  uint8_t bits = 32;     // of one entry
  uint32_t samples = 0;
};

struct Track {
  Box box;  // trak
  uint32_t id = 0;
  uint32_t timescale = 0;
  uint32_t handler = 0;
  Box media, information, sampleTable, descriptionList;  // mdia, minf, stbl, stsd
  std::vector<Description> descriptions;
  SizeTable sizes;
  Table chunkRuns;                    // stsc
  Table chunkOffsets;                 // stco or co64
  Table durations;                    // stts
  Table timeOffsets;                  // ctts
  Table syncSamples;                  // stss; a track without one is made of sync samples
  std::vector<Box> auxiliaryOffsets;  // saio
  std::vector<Box> subSamples;        // subs
  std::vector<Box> metas;
  std::vector<uint32_t> hinted;    // tracks whose samples this one tells a server how to send (tref, 'hint')
  std::vector<uint32_t> chapters;  // tracks that hold its chapters (tref, 'chap')
  // Why what the track holds cannot be relied on; empty where it can. Throw through Require.
  std::string problem;

  // Pictures: moving, of an auxiliary video track (alpha, depth), or of a sequence of images.
  bool video() const {
    return handler == FourCc("vide") || handler == FourCc("auxv") || handler == FourCc("pict");
  }
  bool wideOffsets() const { return chunkOffsets.box.type == FourCc("co64"); }
  // Throws Error with the problem where there is one.
  void Require() const;
  // True where chunks of the description (1-based) stand in this file.
  bool IsSelfContained(uint32_t description) const;
  bool IsEncrypted(uint32_t description) const;
};

// What a track's fragments have where they say nothing themselves (`trex`).
struct FragmentDefaults {
  uint32_t description = 1;
  uint32_t duration = 0;
  uint32_t size = 0;
  uint32_t flags = 0;
};

struct Movie {
  Box box;  // moov
  std::vector<Track> tracks;
  std::map<uint32_t, FragmentDefaults> fragmentDefaults;  // by track
  std::vector<Box> metas;                                 // those of the movie itself
  const Track* Find(uint32_t trackId) const;
};

// The file as a whole: where its movies and fragments stand. 8 bytes a fragment.
struct Layout {
  bool quickTime = false;           // of the brand 'qt  ', or without any brand
  std::vector<Movie> movies;        // nearly always one; none in a media segment
  std::vector<uint64_t> fragments;  // where each moof begins
  std::vector<Box> metas;           // at the top level
  // What the fragment at a place belongs to: the last movie in front of it, else the first one, else that of
  // the initialization segment. Null where there is none.
  const Movie* MovieOf(uint64_t fragment) const;
  std::shared_ptr<const Layout> initialization;
};

// Reads a file's layout. `initialization` is that of the segment's initialization segment, where it is one.
// Throws Error for what is no MP4 or MOV at all, and for a compressed `moov`.
Layout ReadLayout(const Source& source, std::shared_ptr<const Layout> initialization = nullptr);

// Reads one `trak`. What cannot be relied on becomes the track's problem.
Track ReadTrack(Reader& reader, const Box& trak);

// Adds `box` where it is a `meta`, and those inside where it is `udta` or `meco`.
void TakeMetas(Reader& reader, const Box& box, std::vector<Box>& metas);

// Type and body of each box of a sample description.
struct DescriptionBox {
  uint32_t type = 0;
  Bytes body;
};
std::vector<DescriptionBox> ReadDescriptionBoxes(const Source& source, const Description& description);

}  // namespace qlnmedia::mp4

#endif
