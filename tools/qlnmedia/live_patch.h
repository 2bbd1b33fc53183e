// Patches whose input or output is a pipe.
#ifndef TOOLS_QLNMEDIA_LIVE_PATCH_H
#define TOOLS_QLNMEDIA_LIVE_PATCH_H

#include "qlnmedia/patch.h"

namespace qlnmedia {

// Whether a path is standard input or output by its name, or leads to a pipe.
bool IsStandardStream(const std::string& path);
bool IsPipe(const std::string& path);

// The ends of a patch, open as long as this lives.
class LiveDescriptors {
 public:
  // Opens what `options` name, waiting for the other side of a named pipe. Throws Error for a terminal, and
  // for what does not open.
  explicit LiveDescriptors(const PatchOptions& options);
  ~LiveDescriptors();
  LiveDescriptors(const LiveDescriptors&) = delete;
  LiveDescriptors& operator=(const LiveDescriptors&) = delete;

  int input() const { return input_; }
  // -1 where the output is a file.
  int output() const { return output_; }

 private:
  int input_ = -1;
  int output_ = -1;
};

// Runs the patch. What it has to say goes to standard error, but where the output is a file.
void RunLivePatch(const PatchOptions& options, const LiveDescriptors& ends);

}  // namespace qlnmedia

#endif
