// A file that appears under its name only when it is whole and on disk; before that nothing of it is left
// behind.
#ifndef MEDIA_CONTAINER_MP4_OUTPUT_FILE_H
#define MEDIA_CONTAINER_MP4_OUTPUT_FILE_H

#include <memory>
#include <string>

#include "base/unfinished.h"
#include "container/mp4/carrier.h"
#include "container/mp4/disk.h"

namespace qlnmedia::mp4 {

class OutputFile final : public Sink {
 public:
  // Makes the file beside its name. Throws Error where that cannot be.
  explicit OutputFile(const std::string& path, Disk& disk = Disk::System(),
                      const UnfinishedCallback& unfinished = {});
  // Takes it away again unless Finish was reached.
  ~OutputFile() override;
  OutputFile(const OutputFile&) = delete;
  OutputFile& operator=(const OutputFile&) = delete;

  void Write(ByteSpan bytes) override;
  // Long runs of a file go over inside the system, and share their blocks where it can do that.
  void Copy(const Source& source, uint64_t at, uint64_t bytes) override;
  // Makes all that was written readable under a name that the file has until Finish, for whoever checks it.
  const std::string& Readable();
  // Flushes, and gives the file its name, in place of any other.
  void Finish();

 private:
  void FlushBuffer();
  void Wrote(uint64_t bytes);

  Disk& disk_;
  std::string path_;
  std::string temporary_;
  std::unique_ptr<Unfinished> unfinished_;
  int descriptor_ = -1;
  uint64_t at_ = 0;     // behind what is written
  uint64_t begun_ = 0;  // behind what is on its way to the disk
  Bytes buffer_;
  bool copies_ = true;  // until the system says that it does not
};

// Writes what was prepared. `path` may be the input's own name: it is replaced when the output is whole.
void CarryToFile(const Carrier& carrier, const std::string& path, Disk& disk = Disk::System());

}  // namespace qlnmedia::mp4

#endif
