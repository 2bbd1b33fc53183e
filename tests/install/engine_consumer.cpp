// A host of the engine: patches a file, and asks what stands in it.
#include <qlnmedia/check.h>
#include <qlnmedia/inspect.h>
#include <qlnmedia/patch.h>

#include <cstdio>
#include <string>

int main(int argc, char** argv) {
  if (argc != 3) return 2;
  try {
    qlnmedia::PatchOptions patch;
    patch.in = argv[1];
    patch.out = argv[2];
    patch.timecode = "10:00:00:00";
    patch.verify = true;
    int steps = 0;
    patch.progress = [&steps](const qlnmedia::ProgressStep&) { return ++steps > 0; };
    if (qlnmedia::PatchFile(patch).lines.empty()) return 3;
    if (!qlnmedia::CheckFile(patch.out).empty()) return 4;
    const std::string json = qlnmedia::InspectFile(patch.out).ToJson();
    if (json.find("10:00:00:00") == std::string::npos) return 5;
    patch.progress = [](const qlnmedia::ProgressStep&) { return false; };
    try {
      qlnmedia::PatchFile(patch);
      return 6;
    } catch (const qlnmedia::Cancelled&) {
    }
    qlnmedia::CheckFile("/no/such/file");
    return 7;
  } catch (const qlnmedia::Error& error) {
    return std::string(error.what()).find("/no/such/file: ") == 0 ? 0 : (std::puts(error.what()), 8);
  }
}
