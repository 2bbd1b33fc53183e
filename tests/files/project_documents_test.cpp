// The documents of projects: by other writers, damaged, too deep or too wide, and saved in one step.

#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>

#include <csignal>
#include <filesystem>

#include "files/file_calls.h"
#include "files/project_support.h"
#include "qlnutil/kxprojecttoxml.h"
#include "support/open_descriptors.h"

namespace qln {
namespace {

using test::ClipFile;
using test::Config;
using test::EdlName;
using test::Project;
using test::TextOfFile;

namespace fs = std::filesystem;

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

TEST_F(Project, DocumentsByOtherWriters) {
  ASSERT_NE(Load("\xEF\xBB\xBF<?xml version='1.0' encoding='UTF-8'?>\r\n<Settings\r\n  A = "
                 "'x\xC3\xA9'\r\n></Settings>"),
            0u);
  EXPECT_EQ(Config(project, "A"), "x\xC3\xA9");
  ASSERT_NE(Load("<?xml version='1.0' encoding='ISO-8859-1'?><Settings A='x\xE9'/>"), 0u);
  EXPECT_EQ(Config(project, "A"), "x\xE9");
  ASSERT_NE(Load("\xEF\xBB\xBF<Settings A='x\xE9'/>"), 0u) << "a mark in front of bytes that are no UTF-8";
  EXPECT_EQ(Config(project, "A"), "x\xE9");
  ASSERT_NE(Load("<Settings A='a\r\nb\rc\r\r\nd'/>"), 0u)
      << "line ends of other systems are one line feed each";
  EXPECT_EQ(Config(project, "A"), "a\nb\nc\n\nd");
  ASSERT_NE(Load("<Settings/><!--end\r\n"), 0u) << "at the very end as well";
  EXPECT_NE(Save().find("<!--end\n-->"), std::string::npos);
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
    const auto descriptors = test::OpenDescriptors();
    EXPECT_EQ(project.SaveXMLFile(), 0u) << path;
    EXPECT_EQ(test::OpenDescriptors(), descriptors) << path;
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

}  // namespace
}  // namespace qln
