// Where a patch gets the pictures of its input from: through libavformat, or out of the boxes of MP4 and MOV.
#ifndef MEDIA_PATCH_PATCH_INPUT_H
#define MEDIA_PATCH_PATCH_INPUT_H

#include <functional>
#include <set>
#include <string>
#include <vector>

#include "container/media_stream.h"
#include "qlnmedia/progress.h"

namespace qlnmedia {

class PatchInput {
 public:
  using Take = std::function<void(unsigned stream, const PacketView& packet)>;

  virtual ~PatchInput() = default;
  // Its streams by index.
  virtual const std::vector<MediaStream>& streams() const = 0;
  // True where the container around them has a place for their colour and their size.
  virtual bool describesPictures() const = 0;
  // What failures name.
  virtual const std::string& path() const = 0;
  // A stream as its editor takes it.
  virtual StreamDescription Describe(unsigned stream) const = 0;
  // Hands over all packets of the streams, each stream's in coding order, as its editor gets them. Throws
  // Error where they cannot be read, Cancelled where `progress` says so.
  virtual void Read(const std::set<unsigned>& streams, const ProgressCallback& progress,
                    const Take& take) const = 0;
  // True where the output is the input's bytes but for what changes.
  virtual bool carried() const = 0;
  // Private data of a stream beside that of Describe, one for each further sample description.
  virtual std::vector<std::vector<uint8_t>> OtherPrivateData(unsigned stream) const {
    static_cast<void>(stream);
    return {};
  }

 protected:
  PatchInput() = default;
  PatchInput(const PatchInput&) = default;
  PatchInput& operator=(const PatchInput&) = default;
};

}  // namespace qlnmedia

#endif
