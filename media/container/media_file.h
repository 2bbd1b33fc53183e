// A media file opened for reading: its container, its streams, its packets; every failure is one clear line.
#ifndef MEDIA_CONTAINER_MEDIA_FILE_H
#define MEDIA_CONTAINER_MEDIA_FILE_H

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "container/libav_handles.h"

namespace qlnmedia {

// What a container itself says about a stream's pictures; 2 is an unspecified colour, as in ITU-T H.273.
// `range` and `fieldOrder` count as AVColorRange and AVFieldOrder do, sizes are 0 where it says nothing.
struct ContainerColour {
  int primaries = 2;
  int transfer = 2;
  int matrix = 2;
  int range = 0;
  int width = 0;
  int height = 0;
  int fieldOrder = 0;
};

class MediaFile {
 public:
  // Opens `path` and looks into its streams. Throws Error, with a line of its own for a file that is
  // missing, is no media, or does not open because it is cut off.
  explicit MediaFile(const std::string& path);

  const std::string& path() const { return path_; }
  AVFormatContext* context() const { return context_.get(); }
  int64_t sizeBytes() const { return sizeBytes_; }
  // The kind of container by libavformat's short name, as "mov,mp4,m4a,3gp,3g2,mj2".
  std::string_view formatName() const { return context_->iformat->name; }
  bool isRawStream() const;
  // The description that the container itself gives a stream, taken before the streams were looked into: that
  // search overwrites it with what the stream says.
  const ContainerColour& containerColour(unsigned stream) const { return colours_[stream]; }
  // True for moving pictures; false for cover art and for whatever is no video.
  static bool IsVideo(const AVStream& stream);
  // Throws Error where the file holds no video.
  void RequireVideo() const;

  // Reads the next packet of any stream; false at the end of the file, or where it stops being readable:
  // `endNote` then says why.
  bool Read(AVPacket* packet);
  const std::string& endNote() const { return endNote_; }
  // A note when the file ends before the data that its index names, or in the middle of a packet; else empty.
  std::string TruncationNote() const;

 private:
  std::string path_;
  int64_t sizeBytes_ = 0;
  InputHandle context_;
  std::vector<ContainerColour> colours_;
  std::string endNote_;
};

}  // namespace qlnmedia

#endif
