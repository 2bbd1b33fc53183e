// The library's calls that allocate or touch files, each call under them failing once: the told result, files
// that are the old ones or the new ones, nothing leaked, and no descriptor left open.

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <string>

#include "faults/library_faults.h"
#include "kxutil/kxutil.h"
#include "qlnutil/kxdiskcache.h"
#include "qlnutil/kxprojecttoxml.h"
#include "qlnutil/mediacmd.h"
#include "qlnutil/qlninfo.h"
#include "support/fault_layer.h"
#include "support/test_support.h"

namespace qln::test {
namespace {

TEST_F(LibraryFaults, AChangeOfTheDefaultStoreIsMadeOrNot) {
  const std::string path = PathOf("settings.db");
  int32_t result = 0;
  kxCFGSetDefaultStore(path.c_str());
  char old[] = "old";
  ASSERT_EQ(kxCFGValueString(KX_DEFAULT_STORE, kSection, "Title", old, nullptr, KX_CONFIG_WRITE), 0);
  const Bytes before = ReadFile(path);
  ForEachFault(
      [&] {
        for (const auto& entry : fs::directory_iterator(folder_)) fs::remove(entry.path());
        WriteFile(path, before);
        kxCFGSetDefaultStore(path.c_str());
      },
      [&] {
        char text[] = "new";
        result = kxCFGValueString(KX_DEFAULT_STORE, kSection, "Title", text, nullptr, KX_CONFIG_WRITE);
      },
      [&](bool) {
        kxCFGSetDefaultStore("/nonexistent");
        kxCFGSetDefaultStore(path.c_str());
        const std::string now = TextIn(KX_DEFAULT_STORE, "Title");
        EXPECT_TRUE(now == "new" || (result != 0 && now == "old")) << result << " " << now;
        for (const auto& entry : fs::directory_iterator(folder_))
          EXPECT_EQ(entry.path().filename().string().find("damaged"), std::string::npos);
      });
}

TEST_F(LibraryFaults, AReadOfTheDefaultStoreIsTheValueOrNone) {
  const std::string path = PathOf("settings.db");
  kxCFGSetDefaultStore(path.c_str());
  char text[] = "old";
  ASSERT_EQ(kxCFGValueString(KX_DEFAULT_STORE, kSection, "Title", text, nullptr, KX_CONFIG_WRITE), 0);
  const Bytes before = ReadFile(path);
  std::string got;
  ForEachFault([&] { kxCFGSetDefaultStore(path.c_str()); },
               [&] {
                 // A buffer of the caller's, so that the fault is the store's.
                 static char found[64];
                 uint32_t size = sizeof found;
                 const int32_t result =
                     kxCFGValueString(KX_DEFAULT_STORE, kSection, "Title", found, &size, KX_CONFIG_READ);
                 if (result != 0) std::strcpy(found, "absent");
                 got.reserve(64);
                 got.assign(found);
               },
               [&](bool fired) {
                 EXPECT_TRUE(got == "old" || (fired && got == "absent")) << got;
                 EXPECT_EQ(ReadFile(path), before);
               });
}

TEST_F(LibraryFaults, ASettingsFileIsTheOldOneOrTheNewOne) {
  const std::string path = PathOf("UserMetadata.xml");
  int32_t saved = 0;
  const auto set = [&](const char* value) {
    const KXConfigHandle store = kxCFGOpen(path.c_str(), 0);
    if (store == 0) return -1;
    char text[8];
    std::strcpy(text, value);
    const int32_t written = kxCFGValueString(store, kSection, "Title", text, nullptr, KX_CONFIG_WRITE);
    const int32_t closed = kxCFGClose(store, written == 0 ? KX_CONFIG_SAVE : KX_CONFIG_DISCARD);
    return written == 0 ? closed : written;
  };
  ForEachFault([&] { ASSERT_EQ(set("old"), 0); }, [&] { saved = set("new"); },
               [&](bool) {
                 const KXConfigHandle store = kxCFGOpen(path.c_str(), 0);
                 ASSERT_NE(store, 0u);
                 const std::string now = TextIn(store, "Title");
                 EXPECT_TRUE(now == "new" || (saved != 0 && now == "old")) << saved << " " << now;
                 kxCFGClose(store, KX_CONFIG_DISCARD);
               });
}

TEST_F(LibraryFaults, AProjectIsTheOldOneOrTheNewOne) {
  const std::string path = PathOf("project.xml");
  uint32_t saved = 0;
  const std::string more(20000, 'x');  // so that it is written in several pieces
  const auto save = [&](const char* value) {
    CKXProjectToXML project;
    project.SetConfigString("More", more.c_str());
    project.SetXMLName(path.c_str());
    project.SetConfigString("Key", value);
    return project.SaveXMLFile();
  };
  ForEachFault([&] { ASSERT_NE(save("old"), 0u); }, [&] { saved = save("new"); },
               [&](bool fired) {
                 CKXProjectToXML project;
                 ASSERT_NE(project.LoadXMLFile(path.c_str()), 0u);
                 char text[260] = "absent";
                 project.GetConfigString("Key", text);
                 const std::string now = text;
                 // A setting for which there was no memory is not in the document.
                 EXPECT_TRUE(now == "new" || (saved == 0 && now == "old") || (fired && now == "absent"))
                     << saved << " " << now;
               });
}

// The texts that a project carries are taken over, and made again beside it; what a dead process left there
// goes.
TEST_F(LibraryFaults, ATextOfAProjectIsCarriedWholeOrNotAtAll) {
  const pid_t dead = fork();
  if (dead == 0) _exit(0);
  waitpid(dead, nullptr, 0);
  const std::string path = PathOf("project.xml");
  const std::string clip = PathOf("clip.txt");
  const std::string left = PathOf(".project-") + std::to_string(dead) + "-0";
  const Bytes text(5000, 'c');
  const std::string elsewhere = PathOf("elsewhere");
  fs::create_directory(elsewhere);
  const std::string source = elsewhere + "/clip.txt";
  WriteFile(source, text);
  uint32_t taken = 0, loaded = 0;
  bool carries = false;
  const auto take = [&] {
    CKXProjectToXML project;
    taken = project.SetClipFile(source.c_str());
    project.SetXMLName(path.c_str());
    if (project.SaveXMLFile() == 0) taken = KX_PROJECT_REFUSED;
  };
  ForEachFault([&] { fs::remove(path); }, take,
               [&](bool fired) {
                 EXPECT_TRUE(taken == 0 || fired);
                 if (taken != 0) return;
                 const Bytes document = ReadFile(path);
                 carries = std::search(document.begin(), document.end(), text.begin(), text.end()) !=
                           document.end();
                 EXPECT_TRUE(carries || fired);
               });
  take();
  fs::remove(source);
  ForEachFault(
      [&] {
        fs::remove(clip);
        WriteFile(left, text);
      },
      [&] {
        CKXProjectToXML project;
        loaded = project.LoadXMLFile(path.c_str());
      },
      [&](bool fired) {
        EXPECT_TRUE(loaded != 0 || fired);
        EXPECT_TRUE(fs::exists(clip) ? ReadFile(clip) == text : fired);
        EXPECT_TRUE(!fs::exists(left) || fired);
      });
}

TEST_F(LibraryFaults, CommandsAndTheirTextsComeWholeOrNotAtAll) {
  MediaCmd command;
  initMediaCmd(&command, ctPlay);
  command.Flags |= CF_USE_START;
  command.Start = 25;
  char* whole = nullptr;
  ASSERT_EQ(MediaCmdToXMLString(&whole, &command, 0), 0u);
  const std::string expected = whole;
  MediaCmdFreeXMLString(&whole);
  char* text = nullptr;
  uint32_t result = 0;
  int64_t live = 0;
  ForEachFault([&] { live = qlnFaultLiveBlocks(); },
               [&] {
                 text = nullptr;
                 result = MediaCmdToXMLString(&text, &command, 0);
               },
               [&](bool) {
                 if (text != nullptr) {
                   EXPECT_EQ(text, expected);
                   MediaCmdFreeXMLString(&text);
                 }
               });
  ForEachFault([&] {},
               [&] {
                 MediaCmd read;
                 initMediaCmd(&read, ctStop);
                 result = MediaCmdFromXMLString(&read, nullptr, expected.c_str());
                 if (result == 0 && read.Start == 25) result = 1;
               },
               [&](bool fired) { EXPECT_TRUE(fired || result == 1); });
}

TEST_F(LibraryFaults, ClipInformationIsCopiedOrAbsentAndAllFreed) {
  QLNInfo source = {}, copy = {};
  const auto text = [](const char* from) {
    char* const block = static_cast<char*>(KXAlloc(std::strlen(from) + 1));
    return std::strcpy(block, from);
  };
  source.Title = text("Dawn");
  source.FileName = text("clip");
  int64_t before = 0;
  ForEachFault([&] { before = qlnFaultLiveBlocks(); }, [&] { qlnInfoSet(&copy, &source); },
               [&](bool fired) {
                 EXPECT_TRUE(copy.Title == nullptr ? fired : std::strcmp(copy.Title, "Dawn") == 0);
                 EXPECT_TRUE(copy.FileName == nullptr ? fired : std::strcmp(copy.FileName, "clip") == 0);
                 qlnInfoDelete(&copy);
               });
  qlnInfoDelete(&source);
}

TEST_F(LibraryFaults, TheReadCacheTellsWhatItGot) {
  const std::string path = PathOf("data");
  const Bytes bytes = Random(3).bytes(20000);
  WriteFile(path, bytes);
  static uint8_t got[1000];
  uint32_t made = 0, result = 0, delivered = 0;
  bool opened = false;
  ForEachFault([] {},
               [&] {
                 const KXFileHandle handle =
                     kxOSCreateFile(path.c_str(), 0x80000000, 1, nullptr, 3, 0, nullptr);
                 opened = handle != KX_INVALID_FILE_HANDLE;
                 if (!opened) return;
                 CKXDiskCache cache;
                 made = cache.SetHandleAndCacheSize(handle, 16384, false);
                 result = cache.Read(got, 5000, sizeof got, &delivered, 0);
                 kxOSCloseFile(handle);
               },
               [&](bool fired) {
                 EXPECT_TRUE(opened || fired);
                 if (!opened) return;
                 EXPECT_TRUE(made == 0 || (fired && made == 0xFFFFFFFF));
                 EXPECT_TRUE(result == 0 || fired);
                 if (result == 0 && delivered == sizeof got) {
                   EXPECT_EQ(std::memcmp(got, bytes.data() + 5000, sizeof got), 0);
                 }
                 EXPECT_TRUE(delivered == sizeof got || fired);
               });
}

// Blocks that are allocated behind many failing calls are those in front of them.
TEST_F(LibraryFaults, NothingIsLeaked) {
  MediaCmd command;
  initMediaCmd(&command, ctPlay);
  QLNInfo info = {};
  const std::string path = PathOf("UserMetadata.xml");
  const auto work = [&] {
    char* text = nullptr;
    MediaCmdToXMLString(&text, &command, 0);
    if (text != nullptr) MediaCmdFreeXMLString(&text);
    CKXProjectToXML project;
    project.SetConfigString("Key", "value");
    const KXConfigHandle store = kxCFGOpen(path.c_str(), 0);
    if (store == 0) return;
    qlnInfoWriteRegSet(store, &info);
    qlnInfoReadRegSet(store, &info);
    qlnInfoDelete(&info);
    kxCFGClose(store, KX_CONFIG_DISCARD);
  };
  MessageCapture capture;
  qlnInfoDelete(&info);
  work();
  for (uint64_t at = 1; at < 100000; ++at) {
    capture.clear();
    const int64_t before = qlnFaultLiveBlocks();
    ASSERT_NE(qlnFaultArm("allocate", "ENOMEM", at), 0);
    work();
    qlnFaultDisarm();
    const bool fired = qlnFaultFired() != 0;
    // What was said is the only thing that is kept.
    const auto messages = static_cast<int64_t>(capture.messages().size());
    EXPECT_LE(qlnFaultLiveBlocks(), before + 2 * messages + 2) << "allocation " << at;
    if (!fired || HasFailure()) break;
  }
}

}  // namespace
}  // namespace qln::test
