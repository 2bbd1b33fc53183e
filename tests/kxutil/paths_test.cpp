// Paths split and made again, with the separators and the drive letters of both worlds.

#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "kxutil/kxutil.h"
#include "support/test_support.h"

namespace qln::test {
namespace {

struct Pieces {
  std::string drive, directory, name, extension;
  bool operator==(const Pieces&) const = default;
};

Pieces Split(const std::string& path) {
  // Exact-size blocks: one character too many would be seen.
  ExactCopy drive(Bytes(KX_DRIVE_SIZE, '#')), directory(Bytes(KX_DIRECTORY_SIZE, '#'));
  ExactCopy name(Bytes(KX_NAME_SIZE, '#')), extension(Bytes(KX_EXTENSION_SIZE, '#'));
  const auto text = [](ExactCopy& copy) { return reinterpret_cast<char*>(copy.data()); };
  kxOSSplitPath(path.c_str(), text(drive), text(directory), text(name), text(extension));
  return {text(drive), text(directory), text(name), text(extension)};
}

std::string Make(const Pieces& pieces) {
  ExactCopy path(Bytes(KX_PATH_SIZE, '#'));
  char* const text = reinterpret_cast<char*>(path.data());
  kxOSMakePath(text, pieces.drive.c_str(), pieces.directory.c_str(), pieces.name.c_str(),
               pieces.extension.c_str());
  return text;
}

TEST(Paths, Split) {
  EXPECT_EQ(Split("C:\\clips\\day 1\\a.mov"), (Pieces{"C:", "\\clips\\day 1\\", "a", ".mov"}));
  EXPECT_EQ(Split("/clips/day.1/a.b.mov"), (Pieces{"", "/clips/day.1/", "a.b", ".mov"}));
  EXPECT_EQ(Split("a"), (Pieces{"", "", "a", ""}));
  EXPECT_EQ(Split("a."), (Pieces{"", "", "a", "."}));
  EXPECT_EQ(Split(".hidden"), (Pieces{"", "", "", ".hidden"}));
  EXPECT_EQ(Split("dir/"), (Pieces{"", "dir/", "", ""}));
  EXPECT_EQ(Split("d.x/name"), (Pieces{"", "d.x/", "name", ""}));
  EXPECT_EQ(Split("z:name.x"), (Pieces{"z:", "", "name", ".x"}));
  EXPECT_EQ(Split("C:"), (Pieces{"C:", "", "", ""}));
  EXPECT_EQ(Split("1:x"), (Pieces{"", "", "1:x", ""}));
  EXPECT_EQ(Split("/a\\b/c\\d.e"), (Pieces{"", "/a\\b/c\\", "d", ".e"}));
  EXPECT_EQ(Split(""), (Pieces{"", "", "", ""}));
  EXPECT_EQ(Split(".."), (Pieces{"", "", ".", "."}));
}

TEST(Paths, AnyOutputMayBeNull) {
  char name[KX_NAME_SIZE];
  kxOSSplitPath("C:\\a\\b.c", nullptr, nullptr, name, nullptr);
  EXPECT_STREQ(name, "b");
  kxOSSplitPath("C:\\a\\b.c", nullptr, nullptr, nullptr, nullptr);
  char extension[KX_EXTENSION_SIZE] = "#";
  kxOSSplitPath(nullptr, nullptr, nullptr, nullptr, extension);
  EXPECT_STREQ(extension, "");
  kxOSMakePath(nullptr, "C:", "x", "y", "z");
}

TEST(Paths, MakeSuppliesWhatIsMissing) {
  EXPECT_EQ(Make({"C:", "\\a\\b\\", "c", ".d"}), "C:\\a\\b\\c.d");
  EXPECT_EQ(Make({"C", "\\a\\b", "c", "d"}), "C:\\a\\b\\c.d");
  EXPECT_EQ(Make({"", "/a/b", "c", "d"}), "/a/b/c.d");
  EXPECT_EQ(Make({"", "a", "c", ""}), "a/c");
  EXPECT_EQ(Make({"", "", "c", ""}), "c");
  EXPECT_EQ(Make({"", "", "", "d"}), ".d");
  EXPECT_EQ(Make({"", "", "", ""}), "");
  char path[KX_PATH_SIZE];
  kxOSMakePath(path, nullptr, nullptr, "a", nullptr);
  EXPECT_STREQ(path, "a");
}

TEST(Paths, MakeTakesPiecesThatLieInItsOutput) {
  char path[KX_PATH_SIZE] = "name";
  kxOSMakePath(path, nullptr, "/dir", path, ".x");
  EXPECT_STREQ(path, "/dir/name.x");
}

TEST(Paths, LongPiecesAreCutToTheirRoom) {
  const std::string longText(400, 'x');
  const Pieces pieces = Split("/" + longText + "/" + longText + "." + longText);
  EXPECT_EQ(pieces.directory, ("/" + longText).substr(0, 255));
  EXPECT_EQ(pieces.name, longText.substr(0, 255));
  EXPECT_EQ(pieces.extension, ("." + longText).substr(0, 255));
  EXPECT_EQ(Make({"C:", "/" + longText, "n", "e"}), ("C:/" + longText).substr(0, 259));
  EXPECT_EQ(Make({"", "", std::string(257, 'n'), "e"}), std::string(257, 'n').append(".e"));
  EXPECT_EQ(Make({"", "", std::string(258, 'n'), "ef"}), std::string(258, 'n').append("."));
}

TEST(Paths, MakeIsTheReverseOfSplit) {
  Random random(5);
  constexpr char kAlphabet[] = "ab.:/\\C ";
  for (int i = 0; i < 50000; ++i) {
    std::string path;
    for (uint64_t n = random.below(30); n > 0; --n)
      path.push_back(kAlphabet[random.below(sizeof kAlphabet - 1)]);
    ASSERT_EQ(Make(Split(path)), path);
  }
}

}  // namespace
}  // namespace qln::test
