// DASH manifests (ISO/IEC 23009-1) as far as they name segments.
#ifndef MEDIA_PATCH_DASH_MANIFEST_H
#define MEDIA_PATCH_DASH_MANIFEST_H

#include <string>
#include <vector>

namespace qlnmedia {

// Names as they stand in the manifest, inside of its first BaseURL at each level.
struct DashStream {
  std::string id;  // of the Representation
  bool video = false;
  std::string initialization;  // empty where it has none
  // Names in order of time. Where nothing but a template with numbers says how many there are, `numbered`
  // stands for them: text in front of the number, and behind it, the first number, and its least width.
  std::vector<std::string> segments;
  struct Numbered {
    std::string front, behind;
    unsigned first = 1;
    unsigned width = 0;
  };
  std::vector<Numbered> numbered;  // at most one
};

// The streams of a manifest's Period. Throws Error, naming `path`, for a manifest of several periods, for one
// that is cut off, and for streams that stand in one file each.
std::vector<DashStream> ReadDashManifest(const std::string& path, const std::string& text);

}  // namespace qlnmedia

#endif
