// Changes what a stream says without a file in between: patch_in_memory IN.h264 OUT.h264
//
// Every picture gets its timecode, and the parameter sets BT.709; coded slices stay as they are. The pictures
// come from a byte stream in which each begins with an access unit delimiter.
#include <qlnmedia/stream_editor.h>
#include <qlnutil/helpers.h>

#include <cstdint>
#include <cstdio>
#include <fstream>
#include <iterator>
#include <vector>

namespace {

using Bytes = std::vector<uint8_t>;

std::vector<Bytes> Pictures(const Bytes& stream) {
  std::vector<Bytes> pictures;
  for (const qlnutil::NalUnit& unit : qlnutil::StartCodeUnits(stream.data(), stream.size())) {
    if (unit.H264Type() == 9 || pictures.empty()) pictures.emplace_back();
    const uint8_t code[] = {0, 0, 0, 1};
    Bytes& picture = pictures.back();
    picture.insert(picture.end(), std::begin(code), std::end(code));
    picture.insert(picture.end(), unit.data, unit.data + unit.size);
  }
  return pictures;
}

int Patch(const Bytes& stream, const char* path) {
  qlnmedia::StreamDescription description;
  description.codec = qlnmedia::VideoCodec::kH264;
  description.raw = true;
  qlnmedia::StreamChanges changes;
  changes.colour = qlnmedia::ColourCodes{1, 1, 1};
  changes.timecode = "10:00:00:00";
  changes.rate = "25";

  std::ofstream out(path, std::ios::binary);
  qlnmedia::StreamEditor editor(description, changes);
  // Timecodes follow the order in which pictures are shown: some wait for those that come behind them.
  const auto write = [&] {
    while (const auto edited = editor.Pull()) {
      out.write(reinterpret_cast<const char*>(edited->unit.data.data()),
                static_cast<std::streamsize>(edited->unit.data.size()));
    }
  };
  for (const Bytes& picture : Pictures(stream)) {
    editor.Push({picture});
    write();
  }
  editor.Finish();
  write();
  std::printf("%lld sequence parameter sets, %lld timecodes\n",
              static_cast<long long>(editor.counts().sequenceSets),
              static_cast<long long>(editor.counts().timecodes));
  return out.flush() ? 0 : 1;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 3) {
    std::fprintf(stderr, "usage: patch_in_memory IN.h264 OUT.h264\n");
    return 2;
  }
  std::ifstream in(argv[1], std::ios::binary);
  const Bytes stream((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
  try {
    return Patch(stream, argv[2]);
  } catch (const qlnmedia::Error& error) {
    std::fprintf(stderr, "patch_in_memory: %s\n", error.what());
    return 1;
  }
}
