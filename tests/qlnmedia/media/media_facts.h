// What independent readers say of a media file, as text to compare.
#ifndef TESTS_QLNMEDIA_MEDIA_MEDIA_FACTS_H
#define TESTS_QLNMEDIA_MEDIA_MEDIA_FACTS_H

#include <string>

namespace qln::test {

// What a command prints; fails the running test when the command does.
std::string Text(const std::string& command);
// A checksum of each decoded picture, in presentation order.
std::string Decoded(const std::string& file);
// A checksum over every coded slice unit; `codec` is h264 or hevc.
std::string Slices(const std::string& file, const std::string& codec);
// Times of every packet, stream by stream.
std::string Times(const std::string& file);
// A checksum of each stream that is no video.
std::string OtherStreams(const std::string& file);
// Entries of the video stream, one a line.
std::string Stream(const std::string& file, const std::string& entries);
// Timecodes of the decoded frames, in presentation order, each one once, one a line.
std::string Timecodes(const std::string& file);

}  // namespace qln::test

#endif
