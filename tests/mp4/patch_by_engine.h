// Patches of files in this process, judged by the tests' own reader.
#ifndef TESTS_MP4_PATCH_BY_ENGINE_H
#define TESTS_MP4_PATCH_BY_ENGINE_H

#include <string>

#include "mp4/list_file.h"
#include "qlnmedia/patch.h"

namespace qln::test::mp4 {

// A folder of this process for files that are written over and over; in memory where the system has a place
// for that.
std::string ScratchFolder();

// What a patch asks for.
enum class Wishes {
  kDelimiters,  // in front of each picture
  kEverything,  // colour, light level, timecodes and delimiters
};
void Put(Wishes wishes, qlnmedia::StreamChanges& changes);

// Patches a file, with its initialization segment where that is not empty, and patches the output again. Says
// what is wrong: the refusal, or what of the output is not as it was but for what was asked for, or that the
// second patch changed something. Empty where all is well; `output` gets what came out.
//
// With delimiters alone every box is the input's but for sizes and places, and each picture is a delimiter
// and the picture. With everything sample descriptions may hold other boxes, and units that are no messages,
// sets or delimiters stay.
std::string JudgePatch(const Bytes& file, const Bytes& init, Wishes wishes, Bytes* output = nullptr);

// The same of a change of colour in place: all samples are the input's, the boxes too but for one of free
// space, and a second change writes nothing. A change that does not fit is no fault.
std::string JudgeInPlace(const Bytes& file);

// Whether boxes alone describe the streams of a file as libavformat does, as far as a patch asks. `byBoxes`
// counts the files that they describe.
std::string JudgeBoxStreams(const Bytes& file, size_t* byBoxes = nullptr);

}  // namespace qln::test::mp4

#endif
