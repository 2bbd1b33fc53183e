// Cuts streams and files apart, naively.

#include "qlnmedia/media/byte_facts.h"

#include "qlnmedia/media/media_facts.h"

namespace qln::test {

Bytes CodedBytes(const std::string& file) {
  const std::string coded = file + ".coded";
  Text("ffmpeg -v error -y -i '" + file + "' -map 0:v:0 -c copy -f data '" + coded + "'");
  return ReadFile(coded);
}

std::vector<Bytes> StartCodePieces(const Bytes& stream) {
  std::vector<Bytes> pieces;
  size_t begin = 0;
  const auto cut = [&](size_t end) {
    if (end > begin)
      pieces.emplace_back(stream.begin() + static_cast<std::ptrdiff_t>(begin),
                          stream.begin() + static_cast<std::ptrdiff_t>(end));
    begin = end;
  };
  for (size_t i = 0; i + 2 < stream.size(); ++i) {
    if (stream[i] == 0 && stream[i + 1] == 0 && stream[i + 2] == 1) cut(i);
  }
  cut(stream.size());
  return pieces;
}

std::vector<std::string> TopLevelBoxes(const std::string& file) {
  const Bytes bytes = ReadFile(file);
  std::vector<std::string> types;
  for (size_t at = 0; at + 8 <= bytes.size();) {
    size_t size = 0;
    for (size_t i = 0; i < 4; ++i) size = size << 8 | bytes[at + i];
    types.emplace_back(bytes.begin() + static_cast<std::ptrdiff_t>(at + 4),
                       bytes.begin() + static_cast<std::ptrdiff_t>(at + 8));
    if (size < 8) break;
    at += size;
  }
  return types;
}

}  // namespace qln::test
