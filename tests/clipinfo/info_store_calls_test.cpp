// The defaults in a store: the exact calls, over a recording store.

#include <gtest/gtest.h>

#include <algorithm>

#include "clipinfo/clip_info_support.h"
#include "clipinfo/expected_fields.h"
#include "clipinfo/info_store_support.h"
#include "clipinfo/utility_layer_double.h"
#include "support/test_support.h"

namespace qln::test {
namespace {

std::string Key(KXConfigHandle handle, const char* name) {
  return std::to_string(handle) + " " + kSection + " " + name;
}

TEST(InfoStoreCalls, WritingAnEmptyRecordDeletesAllKeysInOrder) {
  Record record;
  ScriptedStore store;
  EXPECT_EQ(qlnInfoWriteRegSet(42, &record.info), 0u);
  std::vector<std::string> expected;
  for (const ExpectedSlot& slot : kExpectedSlots) {
    if (slot.stored != Stored::kNo) expected.push_back("delete " + Key(42, slot.name));
  }
  for (const ExpectedNumber& number : kExpectedNumbers) {
    expected.push_back(number.initial == 0 ? "dword write " + Key(42, number.name) + " 0"
                                           : "delete " + Key(42, number.name));
  }
  EXPECT_EQ(store.calls, expected);
  EXPECT_EQ(expected.size(), 93u + 49);
}

TEST(InfoStoreCalls, WritingAFullRecordWritesAllKeysInOrder) {
  Record record;
  Fill(record);
  ScriptedStore store;
  std::vector<std::string> texts;
  store.wroteString = [&](const std::string&, const std::string& bytes) { texts.push_back(bytes); };
  qlnInfoWriteRegSet(-1, &record.info);
  std::vector<std::string> expected, expectedTexts;
  for (const ExpectedSlot& slot : kExpectedSlots) {
    if (slot.stored == Stored::kNo) continue;
    const std::string text = "text of " + std::to_string(slot.slot);
    expected.push_back("string write " + Key(-1, slot.name) + " " + std::to_string(text.size() + 2));
    expectedTexts.push_back(text + std::string(2, '\0'));
  }
  uint32_t value = 1000;
  for (const ExpectedNumber& number : kExpectedNumbers) {
    expected.push_back("dword write " + Key(-1, number.name) + " " + std::to_string(value++));
  }
  EXPECT_EQ(store.calls, expected);
  EXPECT_EQ(texts, expectedTexts);
}

TEST(InfoStoreCalls, AllChangesOfARecordAreOneGroup) {
  for (const int32_t beginResult : {0, -1}) {
    Record record;
    Fill(record);
    record.info.UserBits = 0xFFFFFFFF;
    ScriptedStore store;
    qlnInfoWriteRegSet(42, &record.info);
    std::vector<std::string> expected = store.calls;
    EXPECT_EQ(expected.size(), 93u + 49);
    expected.insert(expected.begin(), "begin 42");
    if (beginResult == 0) expected.push_back("end 42");  // what did not begin has no end
    store.calls.clear();
    store.beginResult = beginResult;
    store.writeResult = -1;
    EXPECT_EQ(qlnInfoWriteRegSet(42, &record.info), 0u);
    EXPECT_EQ(store.calls, expected);
    store.calls.clear();
    qlnInfoReadRegSet(42, &record.info);
    EXPECT_FALSE(std::count(store.calls.begin(), store.calls.end(), "begin 42"));
  }
}

TEST(InfoStoreCalls, ReadingAsksForEachSizeThenForTheText) {
  Record record;
  ScriptedStore store;
  store.readString = [](const std::string& key, char* buffer, uint32_t* size) {
    if (key == "Album") return -1;  // absent
    if (buffer == nullptr) {
      *size = 3;
      return -7;  // only the size counts
    }
    EXPECT_EQ(*size, 3u);
    std::memcpy(buffer, "abc", 3);  // without a terminator
    return 0;
  };
  store.readDword = [](const std::string& key, uint32_t* value) {
    if (key == "UserBits") return -1;
    if (value != nullptr) *value = 99;
    return 0;
  };
  EXPECT_EQ(qlnInfoReadRegSet(7, &record.info), 0u);
  std::vector<std::string> expected;
  for (const ExpectedSlot& slot : kExpectedSlots) {
    if (slot.stored != Stored::kYes) {
      EXPECT_EQ(*record.slot(slot.slot), nullptr);
      continue;
    }
    expected.push_back("string size " + Key(7, slot.name) + " 0");
    if (std::string(slot.name) == "Album") continue;
    expected.push_back("string read " + Key(7, slot.name) + " 3");
    EXPECT_EQ(record.text(slot.slot), "abc");
    EXPECT_EQ(KXAllocSize(*record.slot(slot.slot)), 3u + 4);
  }
  for (size_t i = 0; i < kNumbers; ++i) {
    const ExpectedNumber& number = kExpectedNumbers[i];
    if (number.stored != Stored::kYes) {
      EXPECT_EQ(*record.number(i), number.initial);
      continue;
    }
    expected.push_back("dword probe " + Key(7, number.name));
    if (std::string(number.name) == "UserBits") continue;
    expected.push_back("dword read " + Key(7, number.name));
    EXPECT_EQ(*record.number(i), 99u);
  }
  EXPECT_EQ(store.calls, expected);
  EXPECT_EQ(record.info.UserBits, 0xFFFFFFFFu);
  EXPECT_EQ(record.info.VersionString, nullptr);
  EXPECT_EQ(record.info.VersionNumber, 0xFFFFFFFFu);
}

TEST(InfoStoreCalls, ATextThatCannotBeReadLeavesNull) {
  Record record;
  record.setText(8, "old");
  record.setText(9, "kept");
  ScriptedStore store;
  store.readString = [](const std::string& key, char* buffer, uint32_t* size) {
    if (key != "Title") return 0;  // size stays 0: an empty text
    if (buffer == nullptr) *size = 5;
    return buffer == nullptr ? 0 : -1;
  };
  qlnInfoReadRegSet(7, &record.info);
  EXPECT_EQ(*record.slot(8), nullptr);
  EXPECT_EQ(record.text(9), "kept");
}

TEST(InfoStoreCalls, SizesNearTheEndOfTheirRangeAreFailedReads) {
  for (const uint32_t told : {0xFFFFFFFFu, 0xFFFFFFFEu, 0xFFFFFFFCu, 0xFFFFFFFBu}) {
    Record record;
    record.setText(8, "old");
    ScriptedStore store;
    store.readString = [told](const std::string& key, char* buffer, uint32_t* size) {
      EXPECT_EQ(buffer, nullptr);
      if (key == "Title") *size = told;
      return 0;
    };
    qlnInfoReadRegSet(7, &record.info);
    EXPECT_EQ(*record.slot(8), nullptr);
  }
}

TEST(InfoStoreCalls, WithoutMemoryAReadSlotIsNull) {
  Record record;
  record.setText(5, "old");
  ScriptedStore store;
  store.readString = [](const std::string&, char*, uint32_t* size) {
    *size = 4;
    return 0;
  };
  const FailAllocations fail(0, true);
  qlnInfoReadRegSet(7, &record.info);
  for (size_t i = 0; i < kSlots; ++i) EXPECT_EQ(*record.slot(i), nullptr);
}

TEST(InfoStoreCalls, WithoutMemoryATextIsNotWrittenAndTheOthersAre) {
  Record record;
  record.setText(8, "first");
  record.setText(9, "second");
  ScriptedStore store;
  std::vector<std::string> texts;
  store.wroteString = [&](const std::string&, const std::string& bytes) {
    texts.push_back(bytes.substr(0, bytes.find('\0')));
  };
  const FailAllocations fail(0);
  EXPECT_EQ(qlnInfoWriteRegSet(3, &record.info), 0u);
  EXPECT_EQ(texts, std::vector<std::string>{"second"});
}

TEST(InfoStoreCalls, ANumberThatCannotBeReadKeepsItsValue) {
  Record record;
  record.info.FileSize = 12;
  ScriptedStore store;
  store.readDword = [](const std::string&, uint32_t* value) {
    if (value == nullptr) return 0;
    *value = 66;  // written, and still failed
    return -1;
  };
  qlnInfoReadRegSet(7, &record.info);
  EXPECT_EQ(record.info.FileSize, 12u);
  EXPECT_EQ(record.info.TimeCode, 0u);
}

TEST(InfoStoreCalls, AStoredNumberOfAllOnesUnsetsTheField) {
  Record record;
  record.info.FileSize = 12;
  ScriptedStore store;
  store.readDword = [](const std::string&, uint32_t* value) {
    if (value != nullptr) *value = 0xFFFFFFFF;
    return 0;
  };
  qlnInfoReadRegSet(7, &record.info);
  EXPECT_EQ(record.info.FileSize, 0xFFFFFFFFu);
}

TEST(InfoStoreCalls, WithNothingWantedNothingIsCalled) {
  Record record;
  ScriptedStore store;
  EXPECT_EQ(qlnInfoReadReg(&record.info, 0, 0), 0u);
  EXPECT_EQ(qlnInfoWriteReg(&record.info, 0, 0), 0u);
  EXPECT_TRUE(store.calls.empty());
}

TEST(InfoStoreCalls, TheDisableKeyDecidesBetweenSeedingAndReading) {
  Record record;
  {
    ScriptedStore store;  // every read fails
    qlnInfoReadReg(&record.info, 1, 0);
    ASSERT_FALSE(store.calls.empty());
    EXPECT_EQ(store.calls[0], "dword read -1 Tarnwick\\MetaData XMLDisable");
    EXPECT_EQ(store.calls[1], "delete " + Key(-1, "ChannelIdentifier"));
    EXPECT_EQ(store.calls.size(), 1u + 93 + 49);
  }
  for (const uint32_t disabled : {0u, 1u}) {
    ScriptedStore store;
    store.readDword = [disabled](const std::string& key, uint32_t* value) {
      if (key != "XMLDisable") return -1;
      *value = disabled;
      return 0;
    };
    qlnInfoReadReg(&record.info, 0x80000000u, 0);
    EXPECT_EQ(store.calls[1], "string size " + Key(-1, "ChannelIdentifier") + " 0");
    EXPECT_EQ(store.calls.size(), 1u + 92 + 48);
  }
}

TEST(InfoStoreCalls, TheUserFileIsOpenedReadAndClosedBehindTheDefaultStore) {
  Record record;
  ScriptedStore store;
  qlnInfoReadReg(&record.info, 0, 1);
  EXPECT_EQ(store.calls, std::vector<std::string>{"exists UserMetadata.xml"});
  store.calls.clear();
  store.fileExists = true;
  qlnInfoReadReg(&record.info, 0, 1);
  qlnInfoWriteReg(&record.info, 0, 1);
  const std::vector<std::string> notOpened = {"exists UserMetadata.xml", "open UserMetadata.xml 0"};
  EXPECT_EQ(store.calls, (std::vector<std::string>{notOpened[0], notOpened[1], notOpened[0], notOpened[1]}));
  store.calls.clear();
  store.openResult = 5;
  store.readDword = [](const std::string&, uint32_t*) { return 0; };
  qlnInfoReadReg(&record.info, 1, 1);
  ASSERT_EQ(store.calls.size(), 1u + 92 + 2 * 48 + 2 + 92 + 2 * 48 + 1);
  EXPECT_EQ(store.calls[1 + 92 + 96], "exists UserMetadata.xml");
  EXPECT_EQ(store.calls[1 + 92 + 97], "open UserMetadata.xml 0");
  EXPECT_EQ(store.calls[1 + 92 + 98], "string size " + Key(5, "ChannelIdentifier") + " 0");
  EXPECT_EQ(store.calls.back(), "close 5 1");
  store.calls.clear();
  qlnInfoWriteReg(&record.info, 1, 1);
  EXPECT_EQ(store.calls[0], "delete " + Key(-1, "ChannelIdentifier"));  // with no look at XMLDisable
  EXPECT_EQ(store.calls.back(), "close 5 1");
}

TEST(InfoStoreCalls, WhatTheStoreRefusesIsNotTold) {
  Record record;
  Fill(record);
  ScriptedStore store;
  store.writeResult = -1;
  EXPECT_EQ(qlnInfoWriteRegSet(3, &record.info), 0u);
  EXPECT_EQ(store.calls.size(), 93u + 49);
}

TEST(InfoStoreCalls, TextsAreHandedOverInBlocksOfTheirToldSize) {
  Record record;
  record.setBlock(8, "noend");                         // no terminator: ends with its block
  record.setBlock(81, std::string("\x05\0\0\0a", 5));  // a block, taken as a text
  ScriptedStore store;
  std::vector<std::string> texts;
  store.wroteString = [&](const std::string& key, const std::string& bytes) {
    texts.push_back(key + "=" + bytes);
  };
  qlnInfoWriteRegSet(3, &record.info);
  EXPECT_EQ(texts, (std::vector<std::string>{std::string("Title=noend\0\0", 13),
                                             std::string("ImageInfo=\x05\0\0", 13)}));
}

}  // namespace
}  // namespace qln::test
