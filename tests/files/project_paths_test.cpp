// The texts that a project carries: which files are looked for and made.

#include <gtest/gtest.h>

#include <filesystem>

#include "files/file_calls.h"
#include "files/project_support.h"
#include "qlnutil/kxprojecttoxml.h"

namespace qln {
namespace {

using test::ClipFile;
using test::EdlName;
using test::FileCalls;
using test::kHead;
using test::Project;
using test::Text;
using test::TextOfFile;
using test::Texts;
using test::Write;
using test::XmlName;

namespace fs = std::filesystem;

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
  // A project whose folder is longer than a path's pieces are: nothing is made beside it.
  const std::string deep = In(std::string(256 - folder.size(), 'd'));
  fs::create_directory(deep);
  Write(deep + "/p", "<ClipList FileName=\"/gone/c\" Data=\"d\"/>");
  ASSERT_EQ((deep + "/p").size(), 259u);
  EXPECT_NE(project.LoadXMLFile((deep + "/p").c_str()), 0u);
  EXPECT_EQ(ClipFile(project), "/gone/c");
  EXPECT_EQ(std::distance(fs::directory_iterator(deep), fs::directory_iterator()), 1);
}

}  // namespace
}  // namespace qln
