// Writes a media file of the same kind as the one that is read (MKV or a raw stream),
// stream by stream and packet by packet, and puts it in place only when it is whole.
#ifndef MEDIA_CONTAINER_MEDIA_WRITER_H
#define MEDIA_CONTAINER_MEDIA_WRITER_H

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "base/unfinished.h"
#include "container/libav_handles.h"
#include "container/media_file.h"
#include "container/scratch_output.h"

namespace qlnmedia {

class MediaWriter {
 public:
  // Prepares an output of `in`'s kind of container with all its streams, chapters, programs and tags. Throws
  // Error for a container that cannot be written as it was read, for an output that is named as another
  // kind, and for an output that is the input. `in` must outlive the writer. With `dryRun` all is done but
  // that no file comes of it: `path` may be empty, and is only what failures name.
  MediaWriter(const MediaFile& in, const std::string& path, UnfinishedCallback unfinished, bool dryRun);
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
  // container left out what the input's has. `check` looks at the file before it gets its name, and may
  // throw; in a dry run it is called only where all of the output is at hand. Returns what RequireSameStreams
  // does.
  std::vector<std::string> Finish(const std::function<void(const std::string& written)>& check);

 private:
  void Open(const std::string& format);
  void CopyStreams();
  void CopyStream(unsigned index);
  void CopyPrograms();
  void CopyChapters();
  void CopyContainerFacts(unsigned index, AVCodecParameters& to) const;
  void CreateFile();
  void Close();
  void WriteHeader();
  void PutDelayBack(AVPacket* packet) const;
  void KeepTaggedEnd(AVPacket* packet) const;
  [[noreturn]] void Fail(const std::string& what, int error) const;

  const MediaFile& in_;
  std::string path_;
  std::string beside_;  // the name while it is written
  AVFormatContext* context_ = nullptr;
  bool inPlace_ = false;
  UnfinishedCallback callback_;
  std::optional<Unfinished> unfinished_;
  std::optional<ScratchOutput> scratch_;  // of a dry run
  bool dryRun_ = false;
  std::vector<bool> attachments_;  // streams of one picture that the container keeps as a file
  std::vector<int64_t> lastDts_;   // of each stream's last packet, in the output's time base
  std::vector<AVRational> rates_;  // that the input itself tells
  std::vector<int64_t> ends_;  // of MKV: what each stream's duration tag says, in milliseconds; else kNoTime
};

}  // namespace qlnmedia

#endif
