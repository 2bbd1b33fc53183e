// A media file opened for reading: its container, its streams, its packets; every failure is one clear line.
#ifndef MEDIA_CONTAINER_MEDIA_FILE_H
#define MEDIA_CONTAINER_MEDIA_FILE_H

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "container/media_input.h"
#include "container/media_stream.h"

struct AVFormatContext;
struct AVIOContext;
struct AVPacket;
struct AVStream;

namespace qlnmedia {

// A file is for one thread at a time; several files may be read side by side.
class MediaFile {
 public:
  // Opens `path` and looks into its streams. Throws Error, with a line of its own for a file that is
  // missing, is no media, or does not open because it is cut off.
  explicit MediaFile(const MediaInput& input);
  // The same for work that a pipe does not do for: throws Error for one. With a short name of libavformat's
  // the file is taken for that kind of container, whatever it seems to be.
  explicit MediaFile(const std::string& path, std::string_view format = {});

  const std::string& path() const { return input_.path(); }
  const MediaInput& input() const { return input_; }
  bool isPipe() const { return input_.isPipe(); }
  int64_t sizeBytes() const { return sizeBytes_; }  // 0 for a pipe
  // The kind of container by libavformat's short name, as "mov,mp4,m4a,3gp,3g2,mj2", and in words.
  std::string_view formatName() const;
  std::string_view formatLongName() const;
  bool isRawStream() const;
  // MP4, MOV and their kin.
  bool isIso() const { return formatName().substr(0, 4) == "mov,"; }
  // MP4 and MOV in fragments, whose index grows with reading.
  bool isFragmented() const { return fragmented_; }
  // MKV and WebM.
  bool isMatroska() const { return formatName().substr(0, 8) == "matroska"; }
  bool isTransportStream() const { return formatName() == "mpegts"; }
  bool isMxf() const { return formatName() == "mxf"; }
  double seconds() const;   // 0 where the duration is not known
  int64_t bitRate() const;  // bits a second; 0 where it is not known

  // What the container says of the file as a whole.
  std::vector<Tag> tags() const;
  std::vector<Chapter> chapters() const;

  // The programs of a transport stream; none of other files.
  std::vector<Program> programs() const;
  // The distances between the samples of a stream as the file's index has them; no samples where there is
  // none.
  SamplePace IndexedPace(unsigned stream) const;
  // The packet of that number, from 0, in the index of a stream; nothing where it has none.
  std::optional<IndexedPacket> PacketOfIndex(unsigned stream, int number) const;

  // Its streams by index. Streams that only packets make known are added when they show.
  const std::vector<MediaStream>& streams() const { return streams_; }
  // The description that the container itself gives a stream, taken before the streams were looked into: that
  // search overwrites it with what the stream says.
  const ContainerColour& containerColour(unsigned stream) const { return streams_[stream].container; }
  // Throws Error where the file holds no video.
  void RequireVideo() const;

  // Reads the next packet of any stream; its bytes are valid until the next call. False at the end of the
  // file, or where it stops being readable: `endNote` then says why.
  bool Next(MediaPacket& packet);
  const std::string& endNote() const { return endNote_; }
  // True where the file stopped being readable, and `endNote` does not tell of a packet alone.
  bool stoppedEarly() const { return stoppedEarly_; }
  // A note when the file ends before the data that its index names, or in the middle of a packet; else empty.
  std::string TruncationNote() const;
  // What is said of a packet that is damaged.
  static std::string DamagedPacketNote(unsigned stream);

  // For those who write files again: libavformat's own view.
  AVFormatContext* context() const { return context_.get(); }
  // The same as Next, into a packet of the caller's.
  bool Read(AVPacket* packet);
  // True for moving pictures; false for cover art and for whatever is no video.
  static bool IsVideo(const AVStream& stream);

 private:
  struct ContextCloser {
    void operator()(AVFormatContext* context) const;
  };
  struct PacketFreer {
    void operator()(AVPacket* packet) const;
  };
  struct PipeCloser {
    void operator()(AVIOContext* pipe) const;
  };
  MediaFile(const MediaInput& input, std::string_view format);
  void Open(std::string_view format);
  void KnowHevcOfMxf();
  void RequireRead(int result) const;
  void LookAtBoxes();
  // What libavformat calls for more bytes of a pipe.
  static int ReadPipe(void* file, uint8_t* to, int size);
  // Describes the streams from the first that has no description yet.
  void Describe(const std::vector<ContainerColour>& colours);

  MediaInput input_;
  int64_t sizeBytes_ = 0;
  uint64_t pipeAt_ = 0;  // how far libavformat has read in a pipe
  std::unique_ptr<AVIOContext, PipeCloser> pipe_;
  bool fragmented_ = false;
  std::unique_ptr<AVFormatContext, ContextCloser> context_;
  std::unique_ptr<AVPacket, PacketFreer> packet_;
  std::vector<MediaStream> streams_;
  std::string endNote_;
  bool stoppedEarly_ = false;
};

}  // namespace qlnmedia

#endif
