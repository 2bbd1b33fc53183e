// Gathers all that a page shows of one coded video stream, in one pass over its packets.
#ifndef MEDIA_HTML_STREAM_RECORDER_H
#define MEDIA_HTML_STREAM_RECORDER_H

#include <map>
#include <memory>
#include <string>
#include <vector>

#include "base/report.h"
#include "captions/reader.h"
#include "container/file_captions.h"
#include "container/media_stream.h"
#include "html/packer.h"
#include "html/picture_reader.h"

namespace qlnmedia::html {

class StreamRecorder {
 public:
  // `stream` must outlive this. Where pictures have an order of their own, they are shown at the container's
  // times in that order.
  StreamRecorder(const MediaStream& stream, StreamDescription description, OwnOrder order = {});

  // Takes the next packet. `frame` is the number by which `check` calls its frame: of a packet that only ends
  // the one before, that one's.
  void Take(const PacketView& packet, int64_t frame);
  // At the end of the stream. What follows is then known.
  void Finish();

  const MediaStream& stream() const { return stream_; }
  int64_t packets() const { return packets_; }
  // Captions and presentation order.
  const CaptionSurvey& captions() const { return survey_; }
  // The packet of a frame, by the numbers of `check`; of a finding about captions, whose pictures are counted
  // in presentation order, by the place. -1 where there is none.
  int64_t PacketOfFrame(int64_t frame) const;
  int64_t PacketOfPlace(int64_t place) const;

  // All of it but for the units.
  Json ToJson() const;
  // Blocks of units, in base64.
  const std::vector<std::string>& units() const { return blocks_; }

 private:
  // Values that hold from one packet on until the next: (packet, value).
  using Runs = std::vector<std::pair<int64_t, int64_t>>;
  void TakeTimes(const PacketView& packet, uint8_t& flags);
  void PutShownTimes();
  void TakeRuns();
  void TakeBuffer(bool end);
  int64_t TextPlace(const std::string& text);
  Json BufferJson() const;
  Json CaptionsJson() const;
  Json ClocksJson() const;

  const MediaStream& stream_;
  StreamDescription description_;
  std::unique_ptr<PictureReader> reader_;
  CaptionCounter counter_;
  OwnOrder order_;
  std::vector<int64_t> storedTimes_;  // of each packet, where the order is the pictures' own
  int64_t packets_ = 0;
  Column size_, pts_, dts_, position_, flags_, slices_, entry_, structure_, picStruct_, clock_;
  Column buffer_, bufferMarks_;
  int64_t underflows_ = 0;
  int64_t overflows_ = 0;
  PacketView last_;  // its times, where one has none
  std::vector<uint32_t> clocks_;
  std::vector<int64_t> laterFrames_;  // packets that are not of the frame that their number says
  int64_t behind_ = 0;                // packets that only end a frame
  Runs sets_, looks_;
  std::map<std::string, int64_t> textPlaces_;
  std::vector<std::string> texts_;
  UnitBlocks unitBlocks_;
  std::vector<std::string> blocks_;
  CaptionSurvey survey_;
  std::vector<int64_t> packetsOfPlaces_;
};

}  // namespace qlnmedia::html

#endif
