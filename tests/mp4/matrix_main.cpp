// The files of the matrix, for scripts/matrix_mp4.sh:
//   mp4_matrix kinds                     prints each of the muxer's kinds as "name|in front|options|suffix"
//   mp4_matrix build DIR CLIP264 CLIP265 writes all that are put together by hand, of the pictures of two
//   clips mp4_matrix patch DIR OUT             patches every file of DIR in this process and judges what
//   comes out
// A media segment NAME.m4s has its initialization segment beside it as NAME.init, and a file of which a
// change of colour would not be true a NAME.untrue. Names of files that something is wrong with are printed
// with the reason.

#include <cstdio>
#include <filesystem>
#include <vector>

#include "mp4/hand_made.h"
#include "mp4/muxed_kinds.h"
#include "mp4/patch_by_engine.h"

namespace qln::test::mp4 {
namespace {

namespace fs = std::filesystem;

int PrintKinds() {
  for (const Variant& kind : kVariants)
    std::printf("%s|%s|%s|%s\n", kind.name, kind.before, kind.options, kind.suffix);
  return 0;
}

int Build(const fs::path& folder, const std::string& avc, const std::string& hevc) {
  size_t files = 0;
  for (const bool isHevc : {false, true}) {
    for (const HandMade& made : AllByHand(TakePictures(ReadFile(isHevc ? hevc : avc), isHevc))) {
      WriteFile(folder / (made.name + (made.init.empty() ? ".mp4" : ".m4s")), made.file);
      if (!made.init.empty()) WriteFile(folder / (made.name + ".init"), made.init);
      if (!made.untrue.empty()) WriteFile(folder / (made.name + ".untrue"), Text(made.untrue));
      ++files;
    }
  }
  std::printf("%zu files put together by hand\n", files);
  return 0;
}

int PatchAll(const fs::path& folder, const fs::path& out) {
  std::vector<fs::path> files;
  for (const auto& entry : fs::directory_iterator(folder)) {
    if (entry.path().extension() != ".init" && entry.path().extension() != ".untrue")
      files.push_back(entry.path());
  }
  std::sort(files.begin(), files.end());
  size_t wrong = 0;
  const auto judge = [&wrong](const fs::path& file, const char* what, const std::string& said) {
    if (said.empty()) return;
    std::printf("%s: %s: %s\n", file.filename().c_str(), what, said.c_str());
    ++wrong;
  };
  for (const fs::path& file : files) {
    const Bytes bytes = ReadFile(file);
    const fs::path beside = fs::path(file).replace_extension(".init");
    const Bytes reason = ReadFile(fs::path(file).replace_extension(".untrue"));
    const std::string untrue(reason.begin(), reason.end());
    const Bytes init = fs::exists(beside) ? ReadFile(beside) : Bytes{};
    for (const auto& [wishes, name] :
         {std::pair{Wishes::kDelimiters, "delimiters"}, {Wishes::kEverything, "everything"}}) {
      Bytes output;
      std::string said = JudgePatch(bytes, init, wishes, &output);
      // What would not be true is refused, and nothing is written.
      if (!untrue.empty() && (wishes == Wishes::kEverything || !said.empty()))
        said = said.find(untrue) == std::string::npos ? "is not refused: " + said : "";
      judge(file, name, said);
      if (output.empty()) continue;
      WriteFile(out / (file.stem().string() + "." + name + file.extension().string()), output);
    }
    if (init.empty() && untrue.empty()) judge(file, "in place", JudgeInPlace(bytes));
    if (init.empty()) judge(file, "boxes", JudgeBoxStreams(bytes));
  }
  std::printf("%zu files, %zu wrong\n", files.size(), wrong);
  return wrong == 0 ? 0 : 1;
}

}  // namespace
}  // namespace qln::test::mp4

int main(int count, char** arguments) {
  using namespace qln::test::mp4;
  const std::vector<std::string> words(arguments + 1, arguments + count);
  if (words.size() == 1 && words[0] == "kinds") return PrintKinds();
  if (words.size() == 4 && words[0] == "build") return Build(words[1], words[2], words[3]);
  if (words.size() == 3 && words[0] == "patch") return PatchAll(words[1], words[2]);
  std::fprintf(stderr, "usage: mp4_matrix kinds | build DIR CLIP264 CLIP265 | patch DIR OUT\n");
  return 2;
}
