// Files with captions for the tests of MXF.
#ifndef TESTS_MXF_CAPTION_FILES_H
#define TESTS_MXF_CAPTION_FILES_H

#include <fstream>
#include <iterator>
#include <string>

#include "mxf/made_file.h"
#include "qlnmedia/captions.h"
#include "support/media.h"

namespace qln::test {

inline Bytes Contents(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  return Bytes(std::istreambuf_iterator<char>(file), {});
}

inline std::string Save(const std::string& name, const Bytes& bytes) {
  const std::string path = MediaPath(name);
  std::ofstream(path, std::ios::binary)
      .write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
  return path;
}

// All triplets of all pictures.
inline std::string Mcc(const std::string& path) {
  return qlnmedia::CaptionFileText(path, qlnmedia::CaptionFileKind::kMcc);
}

}  // namespace qln::test

#endif
