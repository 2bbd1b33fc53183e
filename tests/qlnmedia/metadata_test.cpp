// qlnmedia metadata: the stored clip information shown and edited, in a configuration folder of its own.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <nlohmann/json.hpp>

#include "qlnmedia/program.h"
#include "support/test_support.h"

namespace qln::test {
namespace {

using testing::HasSubstr;

class Metadata : public testing::TestWithParam<bool> {
 protected:
  void SetUp() override {
    std::string name = (std::filesystem::temp_directory_path() / "qlnmedia.XXXXXX").string();
    ASSERT_NE(mkdtemp(name.data()), nullptr);
    folder_ = name;
  }
  void TearDown() override { std::filesystem::remove_all(folder_); }
  // Runs one action on the store under test; the arguments are shell text.
  CommandResult Do(const std::string& arguments, const std::string& before = "true") {
    const std::string file = GetParam() ? " --file " + folder_ + "/UserMetadata.xml" : "";
    return test::Run("cd " + folder_ + " && " + before + " && XDG_CONFIG_HOME=" + folder_ +
                     "/config '" QLNMEDIA_PROGRAM "' metadata " + arguments + file);
  }
  void Expect(const std::string& arguments, const std::string& output) {
    const CommandResult result = Do(arguments);
    EXPECT_EQ(result.exitCode, 0) << arguments << result.output;
    EXPECT_EQ(result.output, output) << arguments;
  }
  void ExpectFailure(const std::string& arguments, const std::string& part, int exitCode = 1) {
    const CommandResult result = Do(arguments);
    EXPECT_EQ(result.exitCode, exitCode) << arguments;
    EXPECT_THAT(result.output, HasSubstr(part)) << arguments;
  }
  std::string folder_;
};

INSTANTIATE_TEST_SUITE_P(Stores, Metadata, testing::Bool(),
                         [](const auto& store) { return store.param ? "File" : "Default"; });

TEST_P(Metadata, SetGetUnsetAndList) {
  Expect("set Title 'Day break'", "");
  Expect("set filesize 0x10", "");
  Expect("set VersionString 1.2", "");
  Expect("set A-Frame 0", "");
  Expect("get title", "Day break\n");
  Expect("get FileSize", "16\n");
  Expect("list", "Title          Day break\nVersionString  1.2\nA-Frame        0\nFileSize       16\n");
  Expect("unset Title", "");
  ExpectFailure("get Title", "Title is not set");
  Expect("unset Title", "");
  Expect("list", "VersionString  1.2\nA-Frame        0\nFileSize       16\n");
}

TEST_P(Metadata, ExportAndImport) {
  Expect("set Title \"$(printf 'caf\\303\\251\\n\"x\"')\"", "");
  Expect("set Album \"$(printf '\\377')\"", "");
  Expect("set UserBits 7", "");
  const CommandResult exported = Do("export -");
  EXPECT_EQ(nlohmann::json::parse(exported.output),
            nlohmann::json::parse(R"({"Title": "café\n\"x\"", "Album": {"hex": "FF"}, "UserBits": 7})"));
  EXPECT_EQ(Do("list --json").output, exported.output);
  Expect("export out.json", "");
  Expect("unset Title", "");
  Expect("unset Album", "");
  Expect("set UserBits 8", "");
  Expect("import out.json", "");
  EXPECT_EQ(Do("export -").output, exported.output);
  const std::string remove = "{\"Title\": null}";
  WriteFile(folder_ + "/remove.json", Bytes(remove.begin(), remove.end()));
  Expect("import - < remove.json", "");
  ExpectFailure("get Title", "is not set");
  Expect("get UserBits", "7\n");
}

TEST_P(Metadata, AnExportThatFailsKeepsTheOldFile) {
  Expect("set Title new", "");
  const std::string old = "{\"Title\": \"old\"}\n";
  WriteFile(folder_ + "/out.json", Bytes(old.begin(), old.end()));
  // A limit on what the program may write stands for a full disk.
  const CommandResult full = Do("export out.json", "ulimit -f 0");
  EXPECT_EQ(full.exitCode, 1) << full.output;
  EXPECT_THAT(full.output, HasSubstr("out.json: cannot be written"));
  EXPECT_EQ(ReadFile(folder_ + "/out.json"), Bytes(old.begin(), old.end()));
  ExpectFailure("export /dev/full", "/dev/full: cannot be written");
  Expect("export out.json", "");
  EXPECT_EQ(Do("export /dev/stdout").output, Do("export -").output);
}

TEST_P(Metadata, AWrongImportChangesNothing) {
  Expect("set Title old", "");
  for (const char* json :
       {R"({"Title": "new", "Nonsense": 1})", R"({"Title": "new", "FileSize": "x"})",
        R"({"Title": "new", "FileSize": -1})", R"({"Title": "new", "FileSize": 4294967295})",
        R"({"Title": 5})", R"({"Title": "new", "Album": {"hex": "0"}})", R"(["Title"])",
        "{\"Title\": \"new\"", R"({"Title": "a\u0000b"})"}) {
    const Bytes bytes(json, json + std::strlen(json));
    WriteFile(folder_ + "/in.json", bytes);
    const CommandResult result = Do("import in.json");
    EXPECT_EQ(result.exitCode, 1) << json;
    Expect("get Title", "old\n");
  }
  ExpectFailure("import missing.json", "missing.json: cannot be opened");
}

TEST_P(Metadata, WhatIsNoTagOrNoValueIsRefused) {
  ExpectFailure("set Nonsense x", "Nonsense: no such tag");
  ExpectFailure("set FileName x", "FileName: belongs to the clip itself and is not stored");
  ExpectFailure("set FileSize x", "\"x\" is no number");
  ExpectFailure("set FileSize 4294967295", "use unset");
  ExpectFailure("set FileSize 4294967296", "is no number");
  ExpectFailure("set Title", "", 2);
  ExpectFailure("", "", 2);
}

TEST_P(Metadata, AllTagsAreNamed) {
  const CommandResult result = Do("list --all");
  EXPECT_EQ(std::count(result.output.begin(), result.output.end(), '\n'), 93 + 49);
  EXPECT_THAT(result.output, HasSubstr("TimeCode (number)\n"));
}

TEST_P(Metadata, WhereNamesTheFileThatSetMakes) {
  const CommandResult where = Do("where");
  EXPECT_EQ(where.exitCode, 0);
  const std::string file = where.output.substr(0, where.output.size() - 1);
  EXPECT_EQ(file, folder_ + (GetParam() ? "/UserMetadata.xml" : "/config/tarnwick/settings.db"));
  Do("list");
  Do("list --json");
  Do("get Title");
  EXPECT_FALSE(std::filesystem::exists(file));
  EXPECT_FALSE(std::filesystem::exists(folder_ + "/config"));
  Expect("set Title new", "");
  EXPECT_TRUE(std::filesystem::exists(file));
  EXPECT_THAT(Do("--help", "true").output, HasSubstr("tarnwick/settings.db"));
}

TEST_P(Metadata, ReadingNeitherSeedsNorMakesAUserFile) {
  if (GetParam()) {
    ExpectFailure("list", "UserMetadata.xml: no such file");
    EXPECT_FALSE(std::filesystem::exists(folder_ + "/UserMetadata.xml"));
  } else {
    Expect("list", "");
    Expect("export -", "{}\n");
  }
}

TEST(MetadataFile, WhatIsNoStoreIsRefusedAndKept) {
  const std::string path = std::filesystem::temp_directory_path().string() + "/qlnmedia-other.xml";
  const std::string text = "<other/>";
  WriteFile(path, Bytes(text.begin(), text.end()));
  const CommandResult result = Qlnmedia("metadata set Title x --file " + path);
  EXPECT_EQ(result.exitCode, 1);
  EXPECT_EQ(result.output,
            "qlnmedia: Settings file " + path + " cannot be opened: it is no settings document\n");
  EXPECT_EQ(ReadFile(path), Bytes(text.begin(), text.end()));
  std::filesystem::remove(path);
}

}  // namespace
}  // namespace qln::test
