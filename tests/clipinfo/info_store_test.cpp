// The defaults in a store: the rules, over the real stores.

#include <gtest/gtest.h>

#include <filesystem>

#include "clipinfo/clip_info_support.h"
#include "clipinfo/expected_fields.h"
#include "clipinfo/info_store_support.h"
#include "kxutil/store_test_support.h"
#include "support/test_support.h"

namespace qln::test {
namespace {

// The real stores, in a folder of their own that is also the working folder.
class InfoStore : public testing::Test {
 protected:
  void SetUp() override {
    before_ = std::filesystem::current_path();
    std::filesystem::current_path(folder_.path());
    kxCFGSetDefaultStore((folder_ / "settings.db").c_str());
  }
  void TearDown() override {
    kxCFGSetDefaultStore(nullptr);
    std::filesystem::current_path(before_);
  }
  // The key without which a read seeds.
  void AllowReading(uint32_t value = 0) {
    ASSERT_EQ(kxCFGValueDword(KX_DEFAULT_STORE, "Tarnwick\\MetaData", "XMLDisable", &value, 1), 0);
  }
  TemporaryFolder folder_;
  std::filesystem::path before_;
};

TEST_F(InfoStore, TheFirstReadSeedsTheStoreAndLeavesTheRecord) {
  Record record;
  record.setText(8, "Dawn");
  record.setText(0, "clip.mov");
  record.setText(58, "1.2");
  record.info.FileSize = 12;
  record.info.VersionNumber = 3;
  const QLNInfo before = record.info;
  qlnInfoReadReg(&record.info, 1, 0);
  EXPECT_EQ(std::memcmp(&before, &record.info, sizeof before), 0);
  EXPECT_EQ(GetText(KX_DEFAULT_STORE, kSection, "Title"), "Dawn");
  EXPECT_EQ(GetText(KX_DEFAULT_STORE, kSection, "VersionString"), "1.2");
  EXPECT_EQ(GetText(KX_DEFAULT_STORE, kSection, "FileName"), std::nullopt);
  EXPECT_EQ(GetNumber(KX_DEFAULT_STORE, kSection, "FileSize"), 12u);
  EXPECT_EQ(GetNumber(KX_DEFAULT_STORE, kSection, "VersionNumber"), 3u);
  EXPECT_EQ(GetNumber(KX_DEFAULT_STORE, kSection, "TimeCode"), 0u);
  EXPECT_EQ(GetNumber(KX_DEFAULT_STORE, kSection, "UserBits"), std::nullopt);
  EXPECT_EQ(GetNumber(KX_DEFAULT_STORE, "Tarnwick\\MetaData", "XMLDisable"), std::nullopt);
}

TEST_F(InfoStore, WhatWasWrittenComesBackButForTheVersion) {
  Record written;
  Fill(written);
  AllowReading(1);
  qlnInfoWriteReg(&written.info, 1, 0);
  Record read;
  read.setText(10, "replaced");
  qlnInfoReadReg(&read.info, 1, 0);
  for (const ExpectedSlot& slot : kExpectedSlots) {
    EXPECT_EQ(read.text(slot.slot), slot.stored == Stored::kYes ? written.text(slot.slot) : "(null)")
        << slot.slot;
  }
  for (size_t i = 0; i < kNumbers; ++i) {
    EXPECT_EQ(*read.number(i), kExpectedNumbers[i].stored == Stored::kYes ? 1000 + i : 0xFFFFFFFFu);
  }
}

TEST_F(InfoStore, TheStoreMirrorsTheRecord) {
  Record record;
  Fill(record);
  qlnInfoWriteRegSet(KX_DEFAULT_STORE, &record.info);
  EXPECT_EQ(GetText(KX_DEFAULT_STORE, kSection, "Title"), "text of 8");
  qlnInfoDelete(&record.info);
  qlnInfoWriteRegSet(KX_DEFAULT_STORE, &record.info);
  EXPECT_EQ(GetText(KX_DEFAULT_STORE, kSection, "Title"), std::nullopt);
  EXPECT_EQ(GetNumber(KX_DEFAULT_STORE, kSection, "UserBits"), std::nullopt);
  EXPECT_EQ(GetNumber(KX_DEFAULT_STORE, kSection, "TimeCode"), 0u);
}

TEST_F(InfoStore, SetThenWriteChangesWhatIsSetAndKeepsTheRest) {
  SetText(KX_DEFAULT_STORE, kSection, "Title", "Dusk");
  SetText(KX_DEFAULT_STORE, kSection, "Author", "me");
  SetNumber(KX_DEFAULT_STORE, kSection, "TimeCode", 90000);
  SetNumber(KX_DEFAULT_STORE, kSection, "FileSize", 12);
  SetNumber(KX_DEFAULT_STORE, kSection, "VersionNumber", 3);
  Record all;
  Record change;
  change.info.TimeCode = change.info.VITCTimeCode = QLN_INFO_UNSET;
  change.info.PosterFrame = change.info.A_Frame = QLN_INFO_UNSET;
  change.info.Title = std::strcpy(static_cast<char*>(KXAlloc(5)), "Dawn");
  qlnInfoReadRegSet(KX_DEFAULT_STORE, &all.info);
  qlnInfoSet(&all.info, &change.info);
  qlnInfoWriteRegSet(KX_DEFAULT_STORE, &all.info);
  EXPECT_EQ(GetText(KX_DEFAULT_STORE, kSection, "Title"), "Dawn");
  EXPECT_EQ(GetText(KX_DEFAULT_STORE, kSection, "Author"), "me");
  EXPECT_EQ(GetNumber(KX_DEFAULT_STORE, kSection, "TimeCode"), 90000u);
  EXPECT_EQ(GetNumber(KX_DEFAULT_STORE, kSection, "FileSize"), 12u);
  EXPECT_EQ(GetNumber(KX_DEFAULT_STORE, kSection, "VersionNumber"), std::nullopt);
}

TEST_F(InfoStore, AnEmptyTextInTheStoreLeavesTheSlot) {
  AllowReading();
  SetText(KX_DEFAULT_STORE, kSection, "Title", "");
  Record record;
  record.setText(8, "mine");
  qlnInfoReadReg(&record.info, 1, 0);
  EXPECT_EQ(record.text(8), "mine");
}

TEST_F(InfoStore, AKeyOfTheWrongTypeLeavesTheField) {
  AllowReading();
  SetNumber(KX_DEFAULT_STORE, kSection, "Title", 5);
  SetText(KX_DEFAULT_STORE, kSection, "FileSize", "5");
  Record record;
  record.setText(8, "mine");
  record.info.FileSize = 7;
  qlnInfoReadReg(&record.info, 1, 0);
  EXPECT_EQ(record.text(8), "mine");
  EXPECT_EQ(record.info.FileSize, 7u);
}

TEST_F(InfoStore, TheUserFileIsNeverMade) {
  Record record;
  Fill(record);
  qlnInfoWriteReg(&record.info, 0, 1);
  qlnInfoReadReg(&record.info, 0, 1);
  EXPECT_TRUE(std::filesystem::is_empty(folder_.path()));
}

TEST_F(InfoStore, TheUserFileWinsOverTheDefaultStore) {
  AllowReading();
  const KXConfigHandle file = kxCFGOpen("UserMetadata.xml", 0);
  SetText(file, kSection, "Title", "from the file");
  SetNumber(file, kSection, "FileSize", 2);
  ASSERT_EQ(kxCFGClose(file, 1), 0);
  SetText(KX_DEFAULT_STORE, kSection, "Title", "from the store");
  SetText(KX_DEFAULT_STORE, kSection, "Album", "only in the store");
  SetNumber(KX_DEFAULT_STORE, kSection, "FileSize", 1);
  Record record;
  qlnInfoReadReg(&record.info, 1, 1);
  EXPECT_EQ(record.text(8), "from the file");
  EXPECT_EQ(record.text(24), "only in the store");
  EXPECT_EQ(record.info.FileSize, 2u);
  const Bytes before = ReadFile("UserMetadata.xml");
  record.setText(8, "changed");
  qlnInfoWriteReg(&record.info, 0, 1);
  EXPECT_NE(ReadFile("UserMetadata.xml"), before);
  Record again;
  qlnInfoReadReg(&again.info, 0, 1);
  EXPECT_EQ(again.text(8), "changed");
  EXPECT_EQ(GetText(KX_DEFAULT_STORE, kSection, "Title"), "from the store");
}

TEST_F(InfoStore, AUserFileThatIsNoStoreIsPassedOverAndKept) {
  const std::string other = "<other/>";
  WriteFile("UserMetadata.xml", Bytes(other.begin(), other.end()));
  Record record;
  Fill(record);
  MessageCapture capture;
  qlnInfoReadReg(&record.info, 0, 1);
  qlnInfoWriteReg(&record.info, 0, 1);
  EXPECT_EQ(ReadFile("UserMetadata.xml"), Bytes(other.begin(), other.end()));
  EXPECT_EQ(capture.messages().size(), 2u);
}

TEST_F(InfoStore, AnImageTextFromTheStoreIsHarmlessToTheMerge) {
  AllowReading();
  SetText(KX_DEFAULT_STORE, kSection, "ImageInfo",
          "\xFF\xFF\xFF\x7F"
          "evil");
  SetNumber(KX_DEFAULT_STORE, kSection, "CustomMetadataBlockSize", 1000000);
  Record read, destination;
  qlnInfoReadReg(&read.info, 1, 0);
  ASSERT_NE(read.info.ImageInfo, nullptr);
  qlnInfoSet(&destination.info, &read.info);
  EXPECT_EQ(destination.info.ImageInfo, nullptr);
}

TEST_F(InfoStore, RandomRecordsComeBackThroughBothStores) {
  Random random(8);
  const KXConfigHandle file = kxCFGOpen("Other.xml", 0);
  for (const KXConfigHandle store : {KX_DEFAULT_STORE, file}) {
    Record written, read;
    for (size_t i = 0; i < kSlots; ++i) {
      const Bytes bytes = random.bytes(random.below(30));
      std::string text(bytes.begin(), bytes.end());
      std::erase(text, '\0');
      if (!text.empty() && random.below(3) != 0) written.setText(i, text);
    }
    for (size_t i = 0; i < kNumbers; ++i)
      *written.number(i) = random.below(3) == 0 ? 0xFFFFFFFF : static_cast<uint32_t>(random.next());
    for (size_t i = 0; i < kNumbers; ++i) *read.number(i) = 0xFFFFFFFF;
    qlnInfoWriteRegSet(store, &written.info);
    qlnInfoReadRegSet(store, &read.info);
    for (const ExpectedSlot& slot : kExpectedSlots) {
      if (slot.stored == Stored::kYes) {
        EXPECT_EQ(read.text(slot.slot), written.text(slot.slot)) << slot.slot;
      }
    }
    for (size_t i = 0; i < kNumbers; ++i) {
      if (kExpectedNumbers[i].stored == Stored::kYes) {
        EXPECT_EQ(*read.number(i), *written.number(i)) << i;
      }
    }
  }
  kxCFGClose(file, 0);
}

}  // namespace
}  // namespace qln::test
