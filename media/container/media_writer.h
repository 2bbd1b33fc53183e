// Writes a media file of the same kind as the one that is read, stream by stream and packet by packet, and
// puts it in place only when it is whole.
#ifndef MEDIA_CONTAINER_MEDIA_WRITER_H
#define MEDIA_CONTAINER_MEDIA_WRITER_H

#include <string>
#include <vector>

#include "container/iso_carry.h"
#include "container/iso_layout.h"
#include "container/libav_handles.h"
#include "container/media_file.h"

namespace qlnmedia {

class MediaWriter {
 public:
  // Prepares an output of `in`'s kind of container with all its streams, chapters, programs and tags. Throws
  // Error for a container that cannot be written as it was read, for an output that is named as another
  // kind, and for an output that is the input. `in` must outlive the writer.
  MediaWriter(const MediaFile& in, const std::string& path);
  // Removes what was written if Finish did not put it in place.
  ~MediaWriter();
  MediaWriter(const MediaWriter&) = delete;
  MediaWriter& operator=(const MediaWriter&) = delete;

  // The output's stream for a video stream of the input; its parameters may be changed until Begin.
  AVStream* stream(unsigned index) const { return context_->streams[index]; }
  // Writes the header.
  void Begin();
  // Writes a packet of the input's stream and time base; the packet is unreferenced. Packets keep the order
  // in which they are written.
  void Write(AVPacket* packet);
  // Writes the trailer, closes, and renames; throws where any byte did not reach the disk, and where the
  // container left out what the input's has.
  void Finish();

 private:
  void Open(const std::string& format);
  void PlanStreams();
  void CopyStreams();
  void CopyStream(unsigned index);
  void CopyPrograms();
  void CopyChapters();
  void WriteHeader();
  [[noreturn]] void Fail(const std::string& what, int error) const;

  const MediaFile& in_;
  std::string path_;
  std::string beside_;  // the name while it is written
  AVFormatContext* context_ = nullptr;
  bool inPlace_ = false;
  // How each stream of the input gets into the output.
  enum class Way {
    kPackets,
    kAttachment,   // a picture that the container keeps as a file
    kMadeByMuxer,  // it comes from chapters or tags
  };
  std::vector<Way> ways_;
  std::vector<int> packetsOfMuxer_;  // of streams that the muxer makes: packets of the input seen
  std::vector<int64_t> lastDts_;     // of each stream's last packet, in the output's time base
  IsoLayout layout_;                 // of MP4 and MOV
  FragmentCutter cutter_{layout_};
};

}  // namespace qlnmedia

#endif
