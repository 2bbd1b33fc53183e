// The project file: what is set, saved and loaded, and which files are looked for and made.

#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <csignal>
#include <cstring>
#include <filesystem>
#include <new>
#include <vector>

#include "files/file_calls.h"
#include "qlnutil/kxprojecttoxml.h"
#include "support/temporary_folder.h"

namespace qln {
namespace {

namespace fs = std::filesystem;
using test::Bytes;
using test::FileCalls;
using Texts = std::vector<std::string>;

std::string Text(const Bytes& bytes) { return std::string(bytes.begin(), bytes.end()); }
std::string TextOfFile(const std::string& path) { return Text(test::ReadFile(path)); }
void Write(const std::string& path, const std::string& text) {
  test::WriteFile(path, Bytes(text.begin(), text.end()));
}

// A text that a getter puts into a buffer of 260 bytes with guard bytes behind it.
template <class Get>
std::string Got(Get get) {
  std::vector<char> buffer(264, '\xEE');
  get(buffer.data());
  EXPECT_EQ(std::string(buffer.data() + 260, 4), "\xEE\xEE\xEE\xEE");
  return std::string(buffer.data(), strnlen(buffer.data(), 260));
}
std::string ClipFile(const CKXProjectToXML& p) {
  return Got([&](char* b) { EXPECT_EQ(p.GetClipFile(b), 0u); });
}
std::string EdlName(const CKXProjectToXML& p) {
  return Got([&](char* b) { EXPECT_EQ(p.GetEDLName(b), 0u); });
}
std::string XmlName(const CKXProjectToXML& p) {
  return Got([&](char* b) { EXPECT_EQ(p.GetXMLName(b), 0u); });
}
std::string Config(const CKXProjectToXML& p, const char* key) {
  return Got([&](char* b) {
    b[0] = '?', b[1] = 0;
    EXPECT_EQ(p.GetConfigString(key, b), 0u);
  });
}

class Project : public testing::Test {
 protected:
  Project() : folder(temporary.path()) { fs::create_directories(folder + "/elsewhere"); }
  std::string In(const std::string& name) const { return folder + "/" + name; }
  std::string Save() {
    EXPECT_EQ(project.SetXMLName(In("p.xml").c_str()), 0u);
    EXPECT_NE(project.SaveXMLFile(), 0u);
    return TextOfFile(In("p.xml"));
  }
  // A project file with the given elements, loaded.
  uint32_t Load(const std::string& document) {
    Write(In("p.xml"), document);
    return project.LoadXMLFile(In("p.xml").c_str());
  }
  // The making of a file that is to be put in its place when it is whole.
  std::string Beside() const {
    return "create " + In(".project-" + std::to_string(getpid()) + "-0") + " 40000000 1 1";
  }
  size_t FilesInFolder() const {
    return static_cast<size_t>(std::distance(fs::directory_iterator(folder), fs::directory_iterator()));
  }

  test::TemporaryFolder temporary;
  std::string folder;
  CKXProjectToXML project;
};

constexpr char kHead[] = "<?xml version=\"1.0\" ?>\n";

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

TEST_F(Project, KeysThatAreNoNamesAreRefused) {
  for (const char* key : {"", "1a", "a b", "a=b", "-a", ".a", ":a", "a<", "a\"", "a&b",
                          "\xEF\xBB\xBF"
                          "a",
                          "a/"}) {
    EXPECT_EQ(project.SetConfigString(key, "x"), 0xFFFFFFFFu) << key;
    EXPECT_EQ(project.SetConfigDWORD(key, 1), 0xFFFFFFFFu) << key;
  }
  EXPECT_EQ(project.SetConfigString(nullptr, "x"), 0xFFFFFFFFu);
  for (const char* key : {"a", "_", "A.b-c:d", "\xC3\xA9t\xC3\xA9", "\xE9"}) {
    EXPECT_EQ(project.SetConfigString(key, key), 0u) << key;
  }
  Save();
  ASSERT_NE(project.LoadXMLFile(In("p.xml").c_str()), 0u);
  EXPECT_EQ(Config(project, "A.b-c:d"), "A.b-c:d");
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
}

TEST_F(Project, CarriesTheTextsOfBothFiles) {
  Write(In("clips.txt"), "one\ntwo \"3\" <4> & 'five'\r\n");
  Write(In("cut.edl"), Text(test::Hex("41 42 00 43")));
  EXPECT_EQ(project.SetClipFile(In("clips.txt").c_str()), 0u);
  EXPECT_EQ(project.SetEDLName(In("cut.edl").c_str()), 0u);
  EXPECT_EQ(ClipFile(project), In("clips.txt"));
  EXPECT_EQ(EdlName(project), In("cut.edl"));
  EXPECT_EQ(Save(),
            std::string(kHead) + "<ClipList FileName=\"" + In("clips.txt") +
                "\" Data='one&#x0A;two &quot;3&quot; &lt;4&gt; &amp; &apos;five&apos;&#x0D;&#x0A;' />\n"
                "<EdlList EdlName=\"" +
                In("cut.edl") + "\" Data=\"AB\" />\n<Settings />\n");
}

TEST_F(Project, AMissingOrEmptyFileLeavesTheDataAsItWas) {
  Write(In("empty.txt"), "");
  project.SetClipFile(In("empty.txt").c_str());
  project.SetEDLName(In("missing.edl").c_str());
  EXPECT_EQ(Save(), std::string(kHead) + "<ClipList FileName=\"" + In("empty.txt") +
                        "\" />\n<EdlList EdlName=\"" + In("missing.edl") + "\" />\n<Settings />\n");
  Write(In("full.txt"), "text");
  project.SetClipFile(In("full.txt").c_str());
  project.SetClipFile(In("empty.txt").c_str());
  project.SetClipFile(In("missing.txt").c_str());
  EXPECT_NE(Save().find("FileName=\"" + In("missing.txt") + "\" Data=\"text\""), std::string::npos);
}

// Writes the calls down, and fails those that it is told to fail.
class WatchedCalls : public FileCalls {
 public:
  Texts log;
  std::string failing;
  uint32_t readCount = 0;  // told in place of the real one, if it is not 0

  KXFileHandle Create(const char* path, uint32_t access, uint32_t share, uint32_t disposition) override {
    char line[400];
    std::snprintf(line, sizeof line, "create %s %08X %u %u", path, access, share, disposition);
    log.push_back(line);
    return failing == "create" ? KX_INVALID_FILE_HANDLE : FileCalls::Create(path, access, share, disposition);
  }
  int32_t Close(KXFileHandle handle) override {
    log.push_back("close");
    return FileCalls::Close(handle);
  }
  int32_t Read(KXFileHandle handle, void* buffer, uint32_t count, uint32_t* bytesRead) override {
    log.push_back("read " + std::to_string(count));
    if (failing == "read") return 0;
    const int32_t result = FileCalls::Read(handle, buffer, count, bytesRead);
    if (readCount != 0) *bytesRead = readCount;
    return result;
  }
  int32_t Write(KXFileHandle handle, const void* buffer, uint32_t count, uint32_t* written) override {
    log.push_back("write " + std::to_string(count));
    return failing == "write" ? 0 : FileCalls::Write(handle, buffer, count, written);
  }
  uint32_t Size(KXFileHandle handle) override {
    log.push_back("size");
    return failing == "size" ? 0xFFFFFFFFu : FileCalls::Size(handle);
  }
  int32_t Exists(const char* path) override {
    log.push_back(std::string("exists ") + path);
    return FileCalls::Exists(path);
  }
  void* Allocate(size_t size) override { return failing == "memory" ? nullptr : FileCalls::Allocate(size); }
  Texts TakeLog() {
    Texts taken;
    taken.swap(log);
    return taken;
  }
};

TEST_F(Project, SettingAFileMakesTheseCalls) {
  Write(In("clips.txt"), "12345");
  WatchedCalls calls;
  const std::string create = "create " + In("clips.txt") + " 80000000 1 3";
  project.SetClipFile(In("clips.txt").c_str());
  EXPECT_EQ(calls.TakeLog(), (Texts{create, "size", "read 5", "close"}));
  for (const std::string failing : {"size", "read", "memory"}) {
    CKXProjectToXML fresh;
    calls.failing = failing;
    EXPECT_EQ(fresh.SetClipFile(In("clips.txt").c_str()), 0u);
    EXPECT_EQ(calls.log.front(), create);
    EXPECT_EQ(calls.log.back(), "close") << failing;
    calls.TakeLog();
    calls.failing.clear();
    fresh.SetXMLName(In("f.xml").c_str());
    ASSERT_NE(fresh.SaveXMLFile(), 0u);
    EXPECT_EQ(TextOfFile(In("f.xml")).find("Data"), std::string::npos) << failing;
  }
  calls.readCount = 6;
  CKXProjectToXML fresh;
  fresh.SetClipFile(In("clips.txt").c_str());
  fresh.SetXMLName(In("f.xml").c_str());
  fresh.SaveXMLFile();
  EXPECT_EQ(TextOfFile(In("f.xml")).find("Data"), std::string::npos) << "more than was asked for";
  calls.failing = "create";
  calls.TakeLog();
  EXPECT_EQ(fresh.SetEDLName(In("clips.txt").c_str()), 0u);
  EXPECT_EQ(calls.TakeLog(), Texts{create});
}

TEST_F(Project, AFileAtItsStoredPathIsNeverWritten) {
  Write(In("elsewhere/clips.txt"), "other");
  WatchedCalls calls;
  EXPECT_NE(Load("<ClipList FileName=\"" + In("elsewhere/clips.txt") + "\" Data=\"data\"/>"), 0u);
  EXPECT_EQ(calls.TakeLog(), Texts{"exists " + In("elsewhere/clips.txt")});
  EXPECT_EQ(ClipFile(project), In("elsewhere/clips.txt"));
  EXPECT_EQ(TextOfFile(In("elsewhere/clips.txt")), "other");
}

TEST_F(Project, AFileBesideTheProjectIsTakenAndNotWritten) {
  Write(In("clips.txt"), "mine");
  WatchedCalls calls;
  EXPECT_NE(Load("<ClipList FileName=\"/gone/clips.txt\" Data=\"data\"/>"), 0u);
  EXPECT_EQ(calls.TakeLog(), (Texts{"exists /gone/clips.txt", "exists " + In("clips.txt")}));
  EXPECT_EQ(ClipFile(project), In("clips.txt"));
  EXPECT_EQ(TextOfFile(In("clips.txt")), "mine");
}

TEST_F(Project, AFileMissingEverywhereIsMadeBesideTheProject) {
  WatchedCalls calls;
  EXPECT_NE(Load("<ClipList FileName=\"/gone/clips.txt\" Data=\"a&#x0A;b\"/>"
                 "<EdlList EdlName=\"D:\\cuts\\last.edl\" Data=\"edl\"/>"),
            0u);
  EXPECT_EQ(calls.TakeLog(),
            (Texts{"exists /gone/clips.txt", "exists " + In("clips.txt"), Beside(), "write 3", "close",
                   "exists D:\\cuts\\last.edl", "exists " + In("last.edl"), Beside(), "write 3", "close"}));
  EXPECT_EQ(ClipFile(project), In("clips.txt"));
  EXPECT_EQ(EdlName(project), In("last.edl"));
  EXPECT_EQ(TextOfFile(In("clips.txt")), "a\nb");
  EXPECT_EQ(TextOfFile(In("last.edl")), "edl");
  for (const std::string failing : {"create", "write"}) {  // goes unsaid
    fs::remove(In("clips.txt"));
    calls.failing = failing;
    EXPECT_NE(project.LoadXMLFile(In("p.xml").c_str()), 0u);
    EXPECT_EQ(ClipFile(project), In("clips.txt"));
    EXPECT_FALSE(fs::exists(In("clips.txt"))) << failing;
    EXPECT_EQ(FilesInFolder(), 3u) << failing;
  }
}

TEST_F(Project, WithoutDataNothingIsMade) {
  for (const char* data : {"", " Data=\"\""}) {
    EXPECT_NE(Load(std::string("<ClipList FileName=\"/gone/clips.txt\"") + data + "/>"), 0u);
    EXPECT_EQ(ClipFile(project), In("clips.txt"));
    EXPECT_EQ(FilesInFolder(), 2u);
  }
}

TEST_F(Project, AMissingNameBecomesTheProjectsFolder) {
  for (const char* name : {"", " FileName=\"\" EdlName=\"\"", " FileName=\"/gone/\" EdlName=\"gone\\\""}) {
    const std::string attributes = std::string(name) + " Data=\"data\"";
    EXPECT_NE(Load("<ClipList" + attributes + "/><EdlList" + attributes + "/>"), 0u);
    EXPECT_EQ(ClipFile(project), folder + "/");
    EXPECT_EQ(EdlName(project), folder + "/");
    EXPECT_EQ(FilesInFolder(), 2u);
  }
  // Without a folder the name stays empty, and nothing is made either.
  const fs::path before = fs::current_path();
  fs::current_path(folder);
  WatchedCalls calls;
  EXPECT_NE(project.LoadXMLFile("p.xml"), 0u);
  fs::current_path(before);
  for (const std::string& line : calls.log) EXPECT_EQ(line.substr(0, 6), "exists") << line;
}

TEST_F(Project, TheEdlIsReachedOnlyThroughTheClipList) {
  EXPECT_NE(Load("<EdlList EdlName=\"/gone/last.edl\" Data=\"edl\"/><Settings A=\"1\"/>"), 0u);
  EXPECT_EQ(ClipFile(project), "");
  EXPECT_EQ(EdlName(project), "");
  EXPECT_EQ(project.GetConfigDWORD("A"), 1u);
  EXPECT_EQ(FilesInFolder(), 2u);
  EXPECT_NE(Load("<!--ClipList--><ClipList FileName=\"x\"/>"), 0u);
  EXPECT_EQ(ClipFile(project), "") << "the first node of that name is a comment";
  EXPECT_NE(Load("<!ClipList><EdlList EdlName=\"y\"/>"), 0u);
  EXPECT_EQ(EdlName(project), "");
}

TEST_F(Project, LongPathsOnLoad) {
  const std::string name300(300, 'n');
  EXPECT_NE(Load("<ClipList FileName=\"" + name300 + "\" Data=\"d\"/><EdlList EdlName=\"" + name300 +
                 "\" Data=\"e\"/>"),
            0u);
  EXPECT_EQ(ClipFile(project), std::string(259, 'n')) << "cut; too long to be moved, so nothing is made";
  EXPECT_EQ(EdlName(project), "") << "refused";
  EXPECT_EQ(FilesInFolder(), 2u);
  // Just too long once it stands beside the project, and just short enough.
  const std::string fits(259 - folder.size() - 1, 'f');
  EXPECT_NE(Load("<ClipList FileName=\"/gone/" + fits + "f\" Data=\"d\"/>"), 0u);
  EXPECT_EQ(ClipFile(project), "/gone/" + fits + "f");
  EXPECT_EQ(FilesInFolder(), 2u);
  EXPECT_NE(Load("<ClipList FileName=\"/gone/" + fits + "\" Data=\"d\"/>"), 0u);
  EXPECT_EQ(ClipFile(project), In(fits));
  EXPECT_EQ(TextOfFile(In(fits)), "d");
  EXPECT_EQ(project.LoadXMLFile(name300.c_str()), 0u);
  EXPECT_EQ(XmlName(project), std::string(259, 'n'));
}

TEST_F(Project, AFailedLoadLeavesNoTraceOfTheEarlierDocument) {
  for (const char* document : {"", "words and no markup", "\n\n"}) {
    project.SetClipFile("clip");
    project.SetEDLName("edl");
    project.SetConfigDWORD("A", 5);
    EXPECT_EQ(Load(document), 0u) << document;
    EXPECT_EQ(ClipFile(project), "");
    EXPECT_EQ(EdlName(project), "");
    EXPECT_EQ(project.GetConfigDWORD("A"), 0u);
  }
  project.SetConfigDWORD("A", 5);
  EXPECT_EQ(project.LoadXMLFile(In("missing.xml").c_str()), 0u);
  EXPECT_EQ(project.GetConfigDWORD("A"), 0u);
  EXPECT_EQ(project.LoadXMLFile(folder.c_str()), 0u) << "a folder";
  EXPECT_EQ(project.LoadXMLFile(nullptr), 0u);
  EXPECT_EQ(project.LoadXMLFile(""), 0u);
}

TEST_F(Project, ADocumentThatBreaksOffKeepsWhatStandsInFront) {
  EXPECT_EQ(Load("<ClipList FileName=\"/gone/c\" Data=\"d\"/><Settings A=\"7\"/><EdlList EdlName=\"x"), 0u);
  EXPECT_EQ(ClipFile(project), In("c"));
  EXPECT_EQ(TextOfFile(In("c")), "d") << "the steps run whatever the result";
  EXPECT_EQ(project.GetConfigDWORD("A"), 7u);
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

TEST_F(Project, DocumentsByOtherWriters) {
  ASSERT_NE(Load("\xEF\xBB\xBF<?xml version='1.0' encoding='UTF-8'?>\r\n<Settings\r\n  A = "
                 "'x\xC3\xA9'\r\n></Settings>"),
            0u);
  EXPECT_EQ(Config(project, "A"), "x\xC3\xA9");
  ASSERT_NE(Load("<?xml version='1.0' encoding='ISO-8859-1'?><Settings A='x\xE9'/>"), 0u);
  EXPECT_EQ(Config(project, "A"), "x\xE9");
  ASSERT_NE(Load("\xEF\xBB\xBF<Settings A='x\xE9'/>"), 0u) << "a mark in front of bytes that are no UTF-8";
  EXPECT_EQ(Config(project, "A"), "x\xE9");
}

TEST_F(Project, DeepAndWideDocumentsAreReadUpToTheirLimits) {
  std::string deep = "<Settings A=\"1\"/>";
  for (int i = 0; i < 200000; ++i) deep += "<a>";
  Load(deep);
  EXPECT_EQ(project.GetConfigDWORD("A"), 1u);
  std::string wide = "<Settings";
  for (int i = 0; i < 30000; ++i) wide += " a" + std::to_string(i) + "=\"1\"";
  Load(wide + "/>");
}

TEST_F(Project, NoMoreSettingsThanALoadTakes) {
  std::string document = "<Settings";
  for (int i = 0; i < 9999; ++i) document += " a" + std::to_string(i) + "='1'";
  ASSERT_NE(Load(document + "/>"), 0u);
  EXPECT_EQ(project.SetConfigDWORD("last", 1), 0u);
  EXPECT_EQ(project.SetConfigDWORD("oneMore", 1), 0xFFFFFFFFu);
  EXPECT_EQ(project.SetConfigDWORD("a5", 2), 0u);
  Save();
  ASSERT_NE(project.LoadXMLFile(In("p.xml").c_str()), 0u);
  EXPECT_EQ(project.GetConfigDWORD("last"), 1u);
  EXPECT_EQ(project.GetConfigDWORD("a5"), 2u);
}

TEST_F(Project, SavingReplacesTheFileInOneStep) {
  Save();
  EXPECT_EQ(FilesInFolder(), 2u) << "nothing is left beside it";
  chmod(In("p.xml").c_str(), 0640);
  fs::create_symlink(In("p.xml"), In("link.xml"));
  project.SetConfigDWORD("A", 1);
  project.SetXMLName(In("link.xml").c_str());
  EXPECT_NE(project.SaveXMLFile(), 0u);
  EXPECT_TRUE(fs::is_symlink(In("link.xml")));
  EXPECT_NE(TextOfFile(In("p.xml")).find("A=\"1\""), std::string::npos);
  struct stat status;
  ASSERT_EQ(stat(In("p.xml").c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 0777u, 0640u);
}

TEST_F(Project, AFailedSaveSaysSo) {
  for (const std::string& path : {In("none/p.xml"), folder, std::string("/dev/full")}) {
    project.SetXMLName(path.c_str());
    EXPECT_EQ(project.SaveXMLFile(), 0u) << path;
  }
  EXPECT_TRUE(fs::is_character_file("/dev/full"));
}

TEST_F(Project, AFailedSaveLeavesTheOldFileAndNothingBesideIt) {
  const std::string old = Save();
  project.SetConfigString("Long", std::string(100000, 'x').c_str());
  // A file may grow to half of what the document needs.
  rlimit before;
  ASSERT_EQ(getrlimit(RLIMIT_FSIZE, &before), 0);
  const rlimit half = {50000, before.rlim_max};
  const auto handler = std::signal(SIGXFSZ, SIG_IGN);
  ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &half), 0);
  const uint32_t saved = project.SaveXMLFile();
  ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &before), 0);
  std::signal(SIGXFSZ, handler);
  EXPECT_EQ(saved, 0u);
  EXPECT_EQ(TextOfFile(In("p.xml")), old);
  EXPECT_EQ(FilesInFolder(), 2u);
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
