// Stores in trouble: a full disk, folders and files that refuse, and documents that others wrote.

#include <gtest/gtest.h>
#include <signal.h>
#include <sqlite3.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>

#include "kxutil/child_process.h"
#include "kxutil/kxutil.h"
#include "kxutil/store_safety_support.h"
#include "kxutil/store_test_support.h"
#include "support/test_support.h"

namespace qln::test {
namespace {

TEST_F(StoreSafety, AFullDiskLosesNothingThatWasThere) {
  ASSERT_EQ(SetNumber(KX_DEFAULT_STORE, kSection, "Number", 1), 0);
  ASSERT_EQ(SetText(KX_DEFAULT_STORE, kSection, "Text", std::string(5000, 'a')), 0);
  ASSERT_EQ(SetInFile("Number", 1), 0);
  const std::string before = Text(file());
  const pid_t child = InChild([this] {
    signal(SIGXFSZ, SIG_IGN);
    struct stat status;
    stat(database().c_str(), &status);
    const rlimit limit = {static_cast<rlim_t>(status.st_size), static_cast<rlim_t>(status.st_size)};
    setrlimit(RLIMIT_FSIZE, &limit);
    MessageCapture capture;
    const std::string large(200000, 'b');
    if (SetText(KX_DEFAULT_STORE, kSection, "Text", large) == 0) return 1;
    if (SetText(KX_DEFAULT_STORE, kSection, "Other", large) == 0) return 2;
    if (GetText(KX_DEFAULT_STORE, kSection, "Text") != std::string(5000, 'a')) return 3;
    if (capture.messages().size() != 1) return 4;  // told once
    const KXConfigHandle store = kxCFGOpen(file().c_str(), 0);
    SetText(store, kSection, "Text", large);
    if (kxCFGClose(store, 1) == 0) return 5;
    return capture.messages().size() == 2 ? 0 : 6;
  });
  EXPECT_EQ(ExitCodeOf(child), 0);
  EXPECT_EQ(GetText(KX_DEFAULT_STORE, kSection, "Text"), std::string(5000, 'a'));
  EXPECT_EQ(GetNumber(KX_DEFAULT_STORE, kSection, "Number"), 1u);
  EXPECT_EQ(Text(file()), before);
  EXPECT_EQ(SetText(KX_DEFAULT_STORE, kSection, "Text", std::string(300000, 'c')), 0);
}

TEST_F(StoreSafety, AReadOnlyFolderStillReadsAndOnlyItsWritesFail) {
  ASSERT_EQ(SetNumber(KX_DEFAULT_STORE, kSection, "Number", 1), 0);
  ASSERT_EQ(SetInFile("Number", 1), 0);
  const std::string before = Text(file());
  chmod(database().c_str(), 0444);
  chmod(folder_.path().c_str(), 0555);
  EXPECT_EQ(ExitCodeAsNobody([this] {
              MessageCapture capture;
              if (GetNumber(KX_DEFAULT_STORE, kSection, "Number") != 1u) return 1;
              if (SetNumber(KX_DEFAULT_STORE, kSection, "Number", 2) == 0) return 2;
              if (SetNumber(KX_DEFAULT_STORE, kSection, "Other", 2) == 0) return 3;
              if (kxCFGDeleteValue(KX_DEFAULT_STORE, kSection, "Number") == 0) return 4;
              if (GetNumber(KX_DEFAULT_STORE, kSection, "Number") != 1u) return 5;
              if (capture.messages().size() != 1) return 6;
              if (InFile("Number") != 1u) return 7;
              if (SetInFile("Number", 2) == 0) return 8;
              return capture.messages().size() == 2 ? 0 : 9;
            }),
            0);
  // The file may be written to, but its folder not: no journal can stand beside it.
  chmod(database().c_str(), 0666);
  EXPECT_EQ(ExitCodeAsNobody([] {
              MessageCapture capture;
              if (SetNumber(KX_DEFAULT_STORE, kSection, "Number", 2) == 0) return 1;
              return GetNumber(KX_DEFAULT_STORE, kSection, "Number") == 1u ? 0 : 2;
            }),
            0);
  chmod(folder_.path().c_str(), 0700);
  EXPECT_EQ(GetNumber(KX_DEFAULT_STORE, kSection, "Number"), 1u);
  EXPECT_EQ(Text(file()), before);
}

TEST_F(StoreSafety, AStoreThatCannotBeOpenedIsAStoreWithoutKeys) {
  const std::string other =
      "this is no database, and it is longer than its header would be, by a good deal of text";
  Make(database(), other + other);
  for (const std::string& path : {database(), std::string("/proc/nothing/settings.db"), folder_.path()}) {
    kxCFGSetDefaultStore(path.c_str());
    MessageCapture capture;
    EXPECT_EQ(GetNumber(KX_DEFAULT_STORE, kSection, "Number"), std::nullopt);
    EXPECT_NE(SetNumber(KX_DEFAULT_STORE, kSection, "Number", 2), 0);
    // From a store that is not there nothing need be removed.
    const bool missing = !std::filesystem::exists(path);
    EXPECT_EQ(kxCFGDeleteValue(KX_DEFAULT_STORE, kSection, "Number") == 0, missing);
    EXPECT_EQ(GetText(KX_DEFAULT_STORE, kSection, "Text"), std::nullopt);
    ASSERT_EQ(capture.messages().size(), 1u) << path;
    EXPECT_NE(capture.messages()[0].text.find(path), std::string::npos);
  }
  EXPECT_EQ(Text(database()), other + other);
}

TEST_F(StoreSafety, TheStoreIsMadeInTheUsersFolderForItsOwnerAlone) {
  EXPECT_EQ(
      ExitCodeOf(InChild([this] {
        umask(0);
        kxCFGSetDefaultStore(nullptr);
        setenv("XDG_CONFIG_HOME", (folder_ / "config").c_str(), 1);
        if (SetNumber(KX_DEFAULT_STORE, kSection, "N", 1) != 0) return 1;
        struct stat status;
        if (stat((folder_ / "config/tarnwick/settings.db").c_str(), &status) != 0) return 2;
        if ((status.st_mode & 0777) != 0600) return 3;
        if (stat((folder_ / "config/tarnwick").c_str(), &status) != 0 || (status.st_mode & 0777) != 0700)
          return 4;
        // A folder that is not absolute does not count; then it is ~/.config.
        setenv("XDG_CONFIG_HOME", "relative", 1);
        setenv("HOME", (folder_ / "home").c_str(), 1);
        if (GetNumber(KX_DEFAULT_STORE, kSection, "N")) return 5;
        if (SetNumber(KX_DEFAULT_STORE, kSection, "N", 2) != 0) return 6;
        return access((folder_ / "home/.config/tarnwick/settings.db").c_str(), F_OK) == 0 ? 0 : 7;
      })),
      0);
}

TEST_F(StoreSafety, AStoreThatWasRemovedIsMadeAnew) {
  SetNumber(KX_DEFAULT_STORE, kSection, "N", 1);
  std::filesystem::remove(database());
  EXPECT_EQ(GetNumber(KX_DEFAULT_STORE, kSection, "N"), std::nullopt);
  EXPECT_EQ(SetNumber(KX_DEFAULT_STORE, kSection, "N", 2), 0);
  EXPECT_TRUE(std::filesystem::exists(database()));
}

TEST_F(StoreSafety, ADatabaseWithMoreThanATableDoesNotRunIt) {
  sqlite3* database_handle = nullptr;
  ASSERT_EQ(sqlite3_open(database().c_str(), &database_handle), SQLITE_OK);
  ASSERT_EQ(
      sqlite3_exec(database_handle,
                   "CREATE VIEW settings (section, key, value) AS WITH RECURSIVE r(n) AS (SELECT 1 UNION ALL "
                   "SELECT n + 1 FROM r) SELECT n, n, n FROM r",
                   nullptr, nullptr, nullptr),
      SQLITE_OK);
  sqlite3_close(database_handle);
  MessageCapture capture;
  EXPECT_EQ(GetNumber(KX_DEFAULT_STORE, kSection, "N"), std::nullopt);
  EXPECT_NE(SetNumber(KX_DEFAULT_STORE, kSection, "N", 2), 0);
  EXPECT_EQ(capture.messages().size(), 1u);
}

TEST_F(StoreSafety, FilesThatAreNoDocumentAreNotOpenedAndNeverOverwritten) {
  const std::string deep = [] {
    std::string text = "<settings>";
    for (int i = 0; i < 2000; ++i) text += "<a>";
    return text;
  }();
  const auto nested = [](int levels) {
    std::string text = "<settings>";
    for (int i = 1; i < levels; ++i) text += "<a>";
    for (int i = 1; i < levels; ++i) text += "</a>";
    return text + "</settings>";
  };
  Make(file(), nested(1000));
  EXPECT_EQ(kxCFGClose(kxCFGOpen(file().c_str(), 0), KX_CONFIG_DISCARD), 0) << "as deep as may be";
  for (const std::string& text :
       {std::string(), std::string("x"), std::string("<other/>"), std::string("<settings>"),
        std::string("<settings/>tail"), std::string("<settings/><settings/>"),
        std::string("<settings/>\0<x/>", 16), std::string("<settings><section path='\xFF'/></settings>"),
        deep, nested(1001), std::string("<settings><a b=1 b=2/></settings>")}) {
    Make(file(), text);
    MessageCapture capture;
    EXPECT_EQ(kxCFGOpen(file().c_str(), 0), 0) << text;
    EXPECT_EQ(capture.messages().size(), 1u) << text;
    EXPECT_EQ(Text(file()), text);
  }
  MessageCapture capture;
  EXPECT_EQ(kxCFGOpen(folder_.path().c_str(), 0), 0);
  EXPECT_EQ(kxCFGOpen("/dev/zero", 0), 0);
  EXPECT_EQ(capture.messages().size(), 2u);
}

TEST_F(StoreSafety, AFileThatBecameSomethingElseIsNotOverwritten) {
  ASSERT_EQ(SetInFile("A", 1), 0);
  const KXConfigHandle store = kxCFGOpen(file().c_str(), 0);
  SetNumber(store, kSection, "B", 2);
  Make(file(), "<other/>");
  MessageCapture capture;
  EXPECT_NE(kxCFGClose(store, 1), 0);
  EXPECT_EQ(Text(file()), "<other/>");
  EXPECT_EQ(capture.messages().size(), 1u);
}

TEST_F(StoreSafety, NothingIsWrittenWhereNothingChanged) {
  EXPECT_EQ(kxCFGClose(kxCFGOpen(file().c_str(), 0), 1), 0);
  EXPECT_FALSE(std::filesystem::exists(file()));
  const KXConfigHandle none = kxCFGOpen(file().c_str(), 0);
  kxCFGDeleteValue(none, kSection, "A");
  EXPECT_EQ(kxCFGClose(none, 1), 0);
  EXPECT_FALSE(std::filesystem::exists(file()));

  Make(file(),
       "<settings   ><section path='Tarnwick\\Test'><value key='A' number='1'/></section></settings>");
  const std::string before = Text(file());
  EXPECT_EQ(SetInFile("A", 1), 0);  // as it is
  EXPECT_EQ(Text(file()), before);
  EXPECT_EQ(SetInFile("A", 2, 0), 0);  // dropped
  EXPECT_EQ(Text(file()), before);
  EXPECT_EQ(SetInFile("A", 2), 0);
  EXPECT_NE(Text(file()), before);
}

TEST_F(StoreSafety, WhatElseStandsInTheFileStays) {
  Make(file(),
       "<?xml version=\"1.0\"?><!-- mine --><settings by=\"me\"><note>keep</note><section "
       "path=\"Tarnwick\\Test\" x=\"1\">"
       "<value key=\"A\" number=\"1\"/><value key=\"A\" number=\"7\"/><value key=\"Odd\" "
       "number=\"abc\"/></section>"
       "</settings>");
  EXPECT_EQ(InFile("A"), 1u);  // the first of a name
  EXPECT_EQ(InFile("Odd"), std::nullopt);
  EXPECT_EQ(SetInFile("A", 5), 0);
  EXPECT_EQ(SetInFile("B", 6), 0);
  const std::string text = Text(file());
  for (const char* kept : {"<!-- mine -->", "by=\"me\"", "<note>keep</note>", "x=\"1\"", "number=\"abc\"",
                           "number=\"5\"", "number=\"6\""}) {
    EXPECT_NE(text.find(kept), std::string::npos) << kept;
  }
  EXPECT_EQ(text.find("number=\"7\""), std::string::npos);
}

TEST_F(StoreSafety, ANumberTakesThePlaceOfATextAndATextThatOfANumber) {
  Make(file(),
       "<settings><section path='Tarnwick\\Test'><value key='A' text='old'/><value key='B' bytes='01'/>"
       "<value key='C' number='1'/></section></settings>");
  const KXConfigHandle store = kxCFGOpen(file().c_str(), 0);
  SetNumber(store, kSection, "A", 5);
  SetNumber(store, kSection, "B", 6);
  SetText(store, kSection, "C", "new");
  ASSERT_EQ(kxCFGClose(store, KX_CONFIG_SAVE), 0);
  const std::string text = Text(file());
  for (const char* const value : {"<value key=\"A\" number=\"5\" />", "<value key=\"B\" number=\"6\" />",
                                  "<value key=\"C\" text=\"new\" />"}) {
    EXPECT_NE(text.find(value), std::string::npos) << value;
  }
}

TEST_F(StoreSafety, PermissionsAndLinksAreKept) {
  ASSERT_EQ(SetInFile("A", 1), 0);
  chmod(file().c_str(), 0640);
  const std::string link = folder_ / "Link.xml";
  std::filesystem::create_symlink(file(), link);
  const KXConfigHandle store = kxCFGOpen(link.c_str(), 0);
  SetNumber(store, kSection, "A", 2);
  EXPECT_EQ(kxCFGClose(store, 1), 0);
  EXPECT_TRUE(std::filesystem::is_symlink(link));
  EXPECT_EQ(InFile("A"), 2u);
  struct stat status;
  ASSERT_EQ(stat(file().c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 0777, 0640u);
}

TEST_F(StoreSafety, DocumentsAreReadAsTheyWereLaidDown) {
  Make(file(),
       "<settings><section pathBytes='5Cff'><value keyBytes='01' bytes='FE0a'/><value key='T' "
       "text='a&#10;b&lt;'/>"
       "<value key='N' number='4294967295'/><value key='M' number='4294967296'/><value key='B' bytes='0'/>"
       "<value key='Z' bytes='4100'/><value text='no key'/></section><section><value key='x' "
       "number='1'/></section>"
       "</settings>");
  const KXConfigHandle store = kxCFGOpen(file().c_str(), 0);
  ASSERT_NE(store, 0);
  EXPECT_EQ(GetText(store, "\\\xFF", "\x01"), "\xFE\n");
  EXPECT_EQ(GetText(store, "\\\xFF", "T"), "a\nb<");
  EXPECT_EQ(GetNumber(store, "\\\xFF", "N"), 0xFFFFFFFFu);
  EXPECT_EQ(GetNumber(store, "\\\xFF", "M"), std::nullopt);
  EXPECT_EQ(GetText(store, "\\\xFF", "B"), std::nullopt);
  EXPECT_EQ(GetText(store, "\\\xFF", "Z"), std::nullopt);
  kxCFGClose(store, 0);
}

}  // namespace
}  // namespace qln::test
