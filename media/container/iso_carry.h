// MP4 and MOV carried over as they are laid out: what their muxer is told, and what is refused because no
// muxer here writes it.
#ifndef MEDIA_CONTAINER_ISO_CARRY_H
#define MEDIA_CONTAINER_ISO_CARRY_H

#include "container/iso_layout.h"
#include "container/libav_handles.h"
#include "container/media_file.h"

namespace qlnmedia {

// Throws Error, naming the track and what it holds, for a file that would come out changed: several
// sample descriptions, edit lists of several parts or that leave pictures out, boxes of a sample description
// that are not known, references between tracks.
void RequireIsoCarriable(const MediaFile& in, const IsoLayout& layout);

// Whether the muxer itself makes a stream: the text track of chapters, and, in MP4, the timecode track.
bool IsMadeByIsoMuxer(const AVStream& stream, bool mp4);

// Adds the muxer's options for an output that is laid out as the input is.
void AddIsoOptions(const MediaFile& in, const IsoLayout& layout, const AVFormatContext& out,
                   AVDictionary** options);

// Takes bit rate boxes off the description of timed text: the demuxer takes them for part of it, and the
// muxer would add one with every run.
void CleanTextDescription(AVCodecParameters& parameters);

// Tells where fragments begin, packet by packet in the order of the file.
class FragmentCutter {
 public:
  explicit FragmentCutter(const IsoLayout& layout) : layout_(layout) {}
  // How many times the muxer has to be flushed in front of the packet that stood at `position`.
  int FlushesBefore(int64_t position);

 private:
  const IsoLayout& layout_;
  size_t next_ = 0;
  bool any_ = false;
  bool flushed_ = false;
};

}  // namespace qlnmedia

#endif
