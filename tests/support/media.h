// Real streams for tests: encoded once by the installed encoders, kept in the build folder, and read back by
// independent readers.
#ifndef TESTS_SUPPORT_MEDIA_H
#define TESTS_SUPPORT_MEDIA_H

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "support/test_support.h"

namespace qln::test {

struct CommandResult {
  int exitCode;        // of the shell; 124 when the time limit ended it
  std::string output;  // standard output and standard error
};

// Runs a shell command under a time limit.
CommandResult Run(const std::string& command, int secondsLimit = 60);

// A path in the build folder's media directory.
std::string MediaPath(const std::string& name);

// Makes the media file `name` by `command`, in which "{out}" stands for the file, unless it was made before
// by the same command. The file appears only when it is whole, in a folder that programs share, and builds
// too where QLN_MADE_DIR names one: nobody changes it. Returns its path; fails the running test when the
// command fails.
std::string MediaFile(const std::string& name, const std::string& command, int secondsLimit = 120);

// One syntax element as the trace_headers filter of ffmpeg prints it.
struct TracedElement {
  int position;      // bits from the unit's start, in unescaped data
  std::string name;  // with its indices, as "delta_poc_s0_minus1[0]"
  int64_t value;
};

// One unit of the trace: its heading ("Sequence Parameter Set", "Slice Header", ...) and elements in order.
struct TracedUnit {
  std::string heading;
  std::vector<TracedElement> elements;

  // The value of the first element of that name; `missing` if there is none.
  int64_t value(const std::string& elementName, int64_t missing = -12345) const;
  bool has(const std::string& elementName) const;
};

// Reads a file's headers with `ffmpeg -bsf:v trace_headers`.
std::vector<TracedUnit> TraceHeaders(const std::string& file, const std::string& inputOptions = "");

// The NAL units of a byte stream, found naively, trailing zero bytes removed.
std::vector<Bytes> SplitByteStream(const Bytes& stream);

}  // namespace qln::test

#endif
