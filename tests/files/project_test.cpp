// The project file: what is set, saved and loaded.

#include <gtest/gtest.h>

#include <filesystem>
#include <new>
#include <vector>

#include "files/file_calls.h"
#include "files/project_support.h"
#include "qlnutil/kxprojecttoxml.h"
#include "support/long_memory.h"

namespace qln {
namespace {

using test::Bytes;
using test::ClipFile;
using test::Config;
using test::EdlName;
using test::kHead;
using test::Project;
using test::TextOfFile;
using test::Texts;
using test::Write;
using test::XmlName;

namespace fs = std::filesystem;

TEST_F(Project, ANewOneHasThreeElementsWithoutAttributes) {
  EXPECT_EQ(Save(), std::string(kHead) + "<ClipList />\n<EdlList />\n<Settings />\n");
  EXPECT_EQ(ClipFile(project), "");
  EXPECT_EQ(EdlName(project), "");
  EXPECT_EQ(XmlName(project), In("p.xml"));
}

TEST_F(Project, NumbersAreWrittenAsSignedDecimals) {
  EXPECT_EQ(project.GetConfigDWORD("Unset"), 0u);
  EXPECT_EQ(project.SetConfigDWORD("All", 0xFFFFFFFF), 0u);
  EXPECT_EQ(Config(project, "All"), "-1");
  EXPECT_EQ(project.GetConfigDWORD("All"), 0xFFFFFFFFu);
  for (const uint32_t value : {0u, 1u, 0x7FFFFFFFu, 0x80000000u, 0xFFFFFFFEu}) {
    project.SetConfigDWORD("Value", value);
    EXPECT_EQ(project.GetConfigDWORD("Value"), value);
  }
  EXPECT_EQ(Config(project, "Value"), "-2");
}

TEST_F(Project, DecimalsWrapInside32BitsAndAreHeldOutside) {
  const std::vector<std::pair<const char*, uint32_t>> rows = {{"12", 12},
                                                              {" \t-7x", 0xFFFFFFF9},
                                                              {"+5", 5},
                                                              {"1020", 1020},
                                                              {"", 0},
                                                              {"x1", 0},
                                                              {"- 1", 0},
                                                              {"2147483648", 0x80000000},
                                                              {"4294967295", 0xFFFFFFFF},
                                                              {"4294967296", 0xFFFFFFFF},
                                                              {"-2147483648", 0x80000000},
                                                              {"-2147483649", 0x80000000},
                                                              {"99999999999999999999999", 0xFFFFFFFF},
                                                              {"0x10", 0},
                                                              {"-99999999999999999999", 0x80000000}};
  for (const auto& [text, value] : rows) {
    project.SetConfigString("Key", text);
    EXPECT_EQ(project.GetConfigDWORD("Key"), value) << text;
  }
}

TEST_F(Project, TextsAreCutAt259CharactersAndMissingOnesLeaveTheBuffer) {
  const std::string longText(300, 'x');
  EXPECT_EQ(project.SetConfigString("Long", longText.c_str()), 0u);
  EXPECT_EQ(Config(project, "Long"), std::string(259, 'x'));
  EXPECT_EQ(Config(project, "Missing"), "?");
  EXPECT_EQ(project.GetConfigString("Long", nullptr), 0u);
  EXPECT_EQ(project.GetXMLName(nullptr), 0u);
  EXPECT_EQ(project.GetClipFile(nullptr), 0u);
  EXPECT_EQ(project.GetEDLName(nullptr), 0u);
  EXPECT_EQ(project.SetConfigString("Null", nullptr), 0u);
  EXPECT_EQ(Config(project, "Null"), "");
  ASSERT_NE(Load("<ClipList/>"), 0u);
  EXPECT_EQ(Config(project, "Long"), "?") << "no element";
  EXPECT_EQ(project.GetConfigDWORD("Long"), 0u);
}

TEST_F(Project, TextsOfMoreThan256MBAreRefused) {
  test::LongMemory text(size_t{KX_PROJECT_LARGEST_TEXT} + 1);
  if (text.data() == nullptr) GTEST_SKIP();
  EXPECT_EQ(project.SetConfigString("A", reinterpret_cast<const char*>(text.data())), KX_PROJECT_REFUSED);
  EXPECT_EQ(Config(project, "A"), "?");
}

TEST_F(Project, KeysThatAreNoNamesAreRefused) {
  for (const char* key :
       {"", "1a", "a b", "a=b", "-a", ".a", ":a", "a<", "a\"", "a&b", "@", "[", "`", "{", "a;",
        "\xEF\xBB\xBF"
        "a",
        "a/"}) {
    EXPECT_EQ(project.SetConfigString(key, "x"), 0xFFFFFFFFu) << key;
    EXPECT_EQ(project.SetConfigDWORD(key, 1), 0xFFFFFFFFu) << key;
  }
  EXPECT_EQ(project.SetConfigString(nullptr, "x"), 0xFFFFFFFFu);
  for (const char* key : {"a", "_", "A.b-c:d", "AZ", "Z", "az", "z", "a09", "\xC3\xA9t\xC3\xA9", "\xE9"}) {
    EXPECT_EQ(project.SetConfigString(key, key), 0u) << key;
  }
  Save();
  ASSERT_NE(project.LoadXMLFile(In("p.xml").c_str()), 0u);
  EXPECT_EQ(Config(project, "A.b-c:d"), "A.b-c:d");
  EXPECT_EQ(Config(project, "Z"), "Z");
  EXPECT_EQ(Config(project, "a09"), "a09");
  EXPECT_EQ(Config(project, "\xE9"), "\xE9");
  EXPECT_EQ(Config(project, "\xC3\xA9t\xC3\xA9"), "\xC3\xA9t\xC3\xA9");
}

TEST_F(Project, PathsOf260BytesAndMoreAreRefused) {
  project.SetClipFile("old");
  for (const size_t length : {260u, 261u, 5000u}) {
    const std::string path(length, 'p');
    EXPECT_EQ(project.SetXMLName(path.c_str()), 0xFFFFFFFFu);
    EXPECT_EQ(project.SetClipFile(path.c_str()), 0xFFFFFFFFu);
    EXPECT_EQ(project.SetEDLName(path.c_str()), 0xFFFFFFFFu);
    EXPECT_EQ(XmlName(project), "");
    EXPECT_EQ(ClipFile(project), "");
    EXPECT_EQ(EdlName(project), "");
  }
  EXPECT_EQ(project.SaveXMLFile(), 0u) << "no name";
  const std::string longest(259, 'q');
  EXPECT_EQ(project.SetXMLName(longest.c_str()), 0u);
  EXPECT_EQ(XmlName(project), longest);
  EXPECT_EQ(project.SetClipFile(longest.c_str()), 0u);
  EXPECT_EQ(ClipFile(project), longest);
  EXPECT_EQ(project.SetClipFile(nullptr), 0u);
  EXPECT_EQ(ClipFile(project), "");
  EXPECT_EQ(project.SetXMLName(nullptr), 0u);
  EXPECT_EQ(XmlName(project), "");
}

TEST_F(Project, SettersWorkOnALoadedDocument) {
  Write(In("clips.txt"), "text");
  ASSERT_NE(Load("<?xml version=\"1.0\"?><EdlList Other=\"1\"/><Extra>words</Extra>"), 0u);
  EXPECT_EQ(project.SetClipFile(In("clips.txt").c_str()), 0u);
  EXPECT_EQ(project.SetConfigDWORD("A", 3), 0u);
  EXPECT_EQ(project.SetEDLName("e"), 0u);
  EXPECT_EQ(project.GetConfigDWORD("A"), 3u);
  EXPECT_EQ(Save(), std::string(kHead) + "<ClipList FileName=\"" + In("clips.txt") +
                        "\" Data=\"text\" />\n<EdlList Other=\"1\" EdlName=\"e\" />\n<Extra>words</Extra>\n"
                        "<Settings A=\"3\" />\n");
  // A comment of that name would hide an element behind it.
  ASSERT_NE(Load("<!--Settings-->"), 0u);
  project.SetConfigDWORD("B", 4);
  EXPECT_EQ(project.GetConfigDWORD("B"), 4u);
  // After a failed load there is nothing, and the declaration is made with the first element.
  EXPECT_EQ(Load(""), 0u);
  project.SetConfigDWORD("C", 5);
  EXPECT_EQ(Save(), std::string(kHead) + "<Settings C=\"5\" />\n");
}

TEST_F(Project, LoadAndSaveAloneChangeNothing) {
  const std::string document =
      std::string(kHead) + "<!--by hand-->\n<Settings A=\"1\" />\n<Other>\n    <Deep x=\"y\" />\n</Other>\n";
  ASSERT_NE(Load(document), 0u);
  EXPECT_EQ(Save(), document);
}

TEST_F(Project, TextsOfAnyBytesSurvive) {
  Texts texts = {"\"",
                 "'",
                 "\"'",
                 "&",
                 "<>",
                 "&#x41;",
                 "&#x41",
                 "&#65;",
                 "&amp;",
                 "&#x",
                 "&#x&#x41;;",
                 "a\r\nb\rc\n\t ",
                 " ",
                 "\xC3\xA9",
                 "\xE9",
                 "\xC3",
                 "\xF0\x9F\x8E\xAC",
                 "\xF0\x9F",
                 "\xEF\xBB\xBF",
                 "\xEF\xBF\xBF",
                 "\x7F",
                 "]]>",
                 "-->"};
  std::string all;
  for (int c = 1; c < 256; ++c) all.push_back(static_cast<char>(c));
  texts.push_back(all);
  test::Random random(8);
  for (int i = 0; i < 300; ++i) {
    std::string text;
    for (uint64_t n = random.below(20); n > 0; --n) {
      constexpr char kUsual[] = "&#x;41\"'<>\xC3\xA9\xEF\xBB\xBF\r\n";
      text.push_back(random.below(3) == 0 ? static_cast<char>(random.below(255) + 1)
                                          : kUsual[random.below(sizeof kUsual - 1)]);
    }
    texts.push_back(text);
  }
  project.SetXMLName(In("t.xml").c_str());
  for (const std::string& text : texts) {
    CKXProjectToXML one;
    Write(In("data.bin"), text);
    one.SetClipFile(In("data.bin").c_str());
    one.SetConfigString("Before", text.c_str());
    one.SetConfigString("After", "tail");
    one.SetXMLName(In("t.xml").c_str());
    ASSERT_NE(one.SaveXMLFile(), 0u);
    fs::remove(In("data.bin"));
    ASSERT_NE(project.LoadXMLFile(In("t.xml").c_str()), 0u) << test::ToHex(Bytes(text.begin(), text.end()));
    ASSERT_EQ(Config(project, "Before"), text) << test::ToHex(Bytes(text.begin(), text.end()));
    ASSERT_EQ(Config(project, "After"), "tail");
    ASSERT_EQ(text.empty() ? "" : TextOfFile(In("data.bin")), text);
  }
}

TEST_F(Project, AnAssignedObjectSharesTheDocument) {
  // The one that is made here is never destroyed, as a host must see to; nor is the document it had before.
  alignas(CKXProjectToXML) unsigned char place[sizeof(CKXProjectToXML)];
  CKXProjectToXML* const shared = new (place) CKXProjectToXML(project);
  project.SetConfigDWORD("A", 9);
  EXPECT_EQ(shared->GetConfigDWORD("A"), 9u);
  EXPECT_EQ(&(*shared = project), shared);
  ASSERT_NE(Load("<Settings B='2'/>"), 0u);
  shared->SetConfigDWORD("C", 3);
  shared->SetClipFile("c");
  EXPECT_EQ(project.GetConfigDWORD("B"), 2u);
  EXPECT_EQ(project.GetConfigDWORD("C"), 3u);
}

}  // namespace
}  // namespace qln
