// libav in a host that uses it itself: its log stays the host's.

#include "container/libav_calls.h"

#include <gtest/gtest.h>

#include <string>

#include "base/error.h"
#include "container/media_file.h"
#include "support/media.h"
#include "support/test_support.h"

namespace qlnmedia {
namespace {

int heard = 0;

void Count(void*, int, const char*, va_list) { ++heard; }

TEST(LibavCalls, AHostsLogCallbackStays) {
  ::av_log_set_callback(Count);
  heard = 0;
  ::av_log(nullptr, AV_LOG_ERROR, "the host's own\n");
  EXPECT_EQ(heard, 1);
  // An index that is missing is what libav complains of.
  const std::string path = qln::test::MediaPath("no_index.mp4");
  qln::test::WriteFile(path, {0, 0, 0, 16, 'f', 't', 'y', 'p', 'i', 's', 'o', 'm', 0, 0, 0, 0});
  EXPECT_THROW(MediaFile{path}, Error);
  EXPECT_GT(heard, 1);
  heard = 0;
  ::av_log(nullptr, AV_LOG_ERROR, "the host's own\n");
  EXPECT_EQ(heard, 1);
  ::av_log_set_callback(::av_log_default_callback);
}

TEST(LibavCalls, TheFunctionsAreThoseOfTheProcess) {
  EXPECT_EQ(Libav().av_free, &::av_free);
  EXPECT_EQ(Libav().avcodec_get_name, &::avcodec_get_name);
  EXPECT_EQ(Libav().avformat_open_input, &::avformat_open_input);
}

TEST(LibavCalls, SilenceEndsWithTheCall) {
  EXPECT_FALSE(LibavSilence::Holds());
  {
    const LibavSilence outer;
    const LibavSilence inner;
    EXPECT_TRUE(LibavSilence::Holds());
  }
  EXPECT_FALSE(LibavSilence::Holds());
}

}  // namespace
}  // namespace qlnmedia
