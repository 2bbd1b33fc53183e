// The record by position, its merge rules with owned, shared, null and empty blocks, and its clearing.

#include <gtest/gtest.h>

#include "clipinfo/clip_info_support.h"
#include "clipinfo/expected_fields.h"
#include "clipinfo/utility_layer_double.h"
#include "qlnutil/clipinfo/info_fields.h"
#include "support/test_support.h"

namespace qln::test {
namespace {

std::string Word(uint32_t value) { return std::string(reinterpret_cast<const char*>(&value), sizeof value); }

TEST(InfoRecord, FieldsLieAsTheyWereLaidDown) {
  EXPECT_EQ(sizeof(QLNInfo), 1000u);
  EXPECT_EQ(offsetof(QLNInfo, FileName), 0u);
  EXPECT_EQ(offsetof(QLNInfo, Title), 8 * 8u);
  EXPECT_EQ(offsetof(QLNInfo, Owner), 15 * 8u);
  EXPECT_EQ(offsetof(QLNInfo, ProxyFile), 79 * 8u);
  EXPECT_EQ(offsetof(QLNInfo, CustomMetadataBlock), 640u);
  EXPECT_EQ(offsetof(QLNInfo, ImageInfo), 648u);
  EXPECT_EQ(offsetof(QLNInfo, NotUsed_99), 98 * 8u);
  EXPECT_EQ(offsetof(QLNInfo, Reserved), 792u);
  EXPECT_EQ(offsetof(QLNInfo, TimeCode), 796u);
  EXPECT_EQ(offsetof(QLNInfo, CustomMetadataBlockSize), 796 + 4 * 33u);
  EXPECT_EQ(offsetof(QLNInfo, Closing), 992u);
  ASSERT_EQ(std::size(kInfoSlots), kSlots);
  ASSERT_EQ(std::size(kInfoNumbers), kNumbers);
  for (size_t i = 0; i < kSlots; ++i) {
    EXPECT_EQ(kExpectedSlots[i].slot, i);
    EXPECT_EQ(kInfoSlots[i].offset, i * 8);
    if (i != 80) {
      EXPECT_STREQ(kInfoSlots[i].name, kExpectedSlots[i].name);
    }
  }
  for (size_t i = 0; i < kNumbers; ++i) {
    EXPECT_EQ(kInfoNumbers[i].offset, 796 + i * 4);
    EXPECT_STREQ(kInfoNumbers[i].name, kExpectedNumbers[i].name);
  }
}

TEST(InfoDelete, LeavesTheDefaults) {
  QLNInfo info = {};
  info.Reserved = 5;
  info.TimeCode = info.UserBits = info.FileSizeHi = 7;
  for (size_t i = 0; i < kSlots; ++i) reinterpret_cast<void**>(&info)[i] = KXAlloc(i + 1);
  qlnInfoDelete(&info);
  for (size_t i = 0; i < kSlots; ++i) EXPECT_EQ(reinterpret_cast<void**>(&info)[i], nullptr) << i;
  const uint32_t* const numbers = &info.TimeCode;
  for (size_t i = 0; i < kNumbers; ++i) EXPECT_EQ(numbers[i], kExpectedNumbers[i].initial) << i;
  EXPECT_EQ(info.TimeCode, 0u);
  EXPECT_EQ(info.VITCTimeCode, 0u);
  EXPECT_EQ(info.PosterFrame, 0u);
  EXPECT_EQ(info.A_Frame, 0u);
  EXPECT_EQ(info.UserBits, 0xFFFFFFFFu);
  EXPECT_EQ(info.Reserved, 0u);
  EXPECT_EQ(info.Closing, 0x7FFFFFFFu);
}

TEST(InfoSet, TheFirstLocatorsStayAndAllOtherTextsAreReplaced) {
  for (size_t i = 0; i < kSlots; ++i) {
    if (i == 80 || i == 81) continue;
    Record first, second, destination;
    first.setText(i, "first");
    second.setText(i, "second, longer");
    EXPECT_EQ(qlnInfoSet(&destination.info, &first.info), 0u);
    EXPECT_EQ(destination.text(i), "first") << i;
    EXPECT_NE(*destination.slot(i), *first.slot(i));  // a copy of its own
    EXPECT_EQ(KXAllocSize(*destination.slot(i)), 5u + 4);
    EXPECT_EQ(qlnInfoSet(&destination.info, &second.info), 0u);
    EXPECT_EQ(destination.text(i), i < 3 ? "first" : "second, longer") << i;
    EXPECT_EQ(first.text(i), "first");
    EXPECT_EQ(second.text(i), "second, longer");
    for (size_t k = 0; k < kSlots; ++k) {
      if (k != i) {
        EXPECT_EQ(*destination.slot(k), nullptr) << i << " " << k;
      }
    }
  }
}

TEST(InfoSet, ANullSourceSlotLeavesTheDestination) {
  Record source, destination;
  for (size_t i = 0; i < kSlots; ++i) destination.setText(i, "kept" + std::to_string(i));
  source.info.CustomMetadataBlockSize = 4;
  qlnInfoSet(&destination.info, &source.info);
  for (size_t i = 0; i < kSlots; ++i) EXPECT_EQ(destination.text(i), "kept" + std::to_string(i));
}

TEST(InfoSet, AnEmptyTextIsATextAndReplaces) {
  Record source, destination;
  source.setText(0, "");
  source.setText(8, "");
  destination.setText(8, "old");
  qlnInfoSet(&destination.info, &source.info);
  EXPECT_EQ(destination.text(0), "");
  EXPECT_EQ(destination.text(8), "");
}

TEST(InfoSet, SharedBlocksAreLeftAloneAndNotFreed) {
  Record source, destination;
  source.info.CustomMetadataBlockSize = 4;
  for (size_t i = 0; i < kSlots; ++i) {
    source.setBlock(i, i == 81 ? Word(4) : "abc" + std::string(1, '\0'));
    *destination.slot(i) = *source.slot(i);
  }
  qlnInfoSet(&destination.info, &source.info);
  for (size_t i = 0; i < kSlots; ++i) {
    EXPECT_EQ(*destination.slot(i), *source.slot(i)) << i;
    EXPECT_EQ(KXAllocSize(*source.slot(i)), 4u);
    *destination.slot(i) = nullptr;
  }
}

TEST(InfoSet, ARecordMergedIntoItselfStays) {
  Record record;
  for (size_t i = 0; i < kSlots; ++i) record.setBlock(i, i == 81 ? Word(4) : "abc" + std::string(1, '\0'));
  record.info.CustomMetadataBlockSize = 3;
  QLNInfo before = record.info;
  qlnInfoSet(&record.info, &record.info);
  EXPECT_EQ(std::memcmp(&before, &record.info, sizeof before), 0);
}

TEST(InfoSet, TheCustomBlockGoesByItsSize) {
  Record source, destination;
  source.setBlock(80, std::string("\0\1\2\3\4", 5));
  for (const uint32_t size : {0u, 0xFFFFFFFFu}) {
    source.info.CustomMetadataBlockSize = size;
    qlnInfoSet(&destination.info, &source.info);
    EXPECT_EQ(destination.info.CustomMetadataBlock, nullptr);
  }
  destination.setText(80, "old");
  source.info.CustomMetadataBlockSize = 5;
  qlnInfoSet(&destination.info, &source.info);
  EXPECT_EQ(std::string(*destination.slot(80), 5), std::string("\0\1\2\3\4", 5));
  EXPECT_EQ(KXAllocSize(*destination.slot(80)), 5u);
  EXPECT_EQ(destination.info.CustomMetadataBlockSize, 5u);
  source.info.CustomMetadataBlockSize = 2;
  qlnInfoSet(&destination.info, &source.info);
  EXPECT_EQ(KXAllocSize(*destination.slot(80)), 2u);
}

TEST(InfoSet, TheImageBlockGoesByItsFirstWordAndTheOtherBlocksSize) {
  Record source, destination;
  const std::string image = Word(7) + "img";
  source.setBlock(81, image);
  source.info.CustomMetadataBlockSize = 0;
  qlnInfoSet(&destination.info, &source.info);
  EXPECT_EQ(destination.info.ImageInfo, nullptr);
  source.info.CustomMetadataBlockSize = 0xFFFFFFFF;  // not 0 is enough
  qlnInfoSet(&destination.info, &source.info);
  ASSERT_NE(destination.info.ImageInfo, nullptr);
  EXPECT_EQ(std::string(destination.info.ImageInfo, 7), image);
  EXPECT_EQ(KXAllocSize(destination.info.ImageInfo), 7u);
  EXPECT_EQ(destination.info.CustomMetadataBlock, nullptr);
  // Lengths of 0 and of all ones are none.
  for (const uint32_t length : {0u, 0xFFFFFFFFu}) {
    source.setBlock(81, Word(length) + "xyz");
    qlnInfoSet(&destination.info, &source.info);
    EXPECT_EQ(std::string(destination.info.ImageInfo, 7), image);
  }
  // Less than the block holds is as good as any length, even less than the word itself.
  source.setBlock(81, Word(2) + "xyz");
  qlnInfoSet(&destination.info, &source.info);
  EXPECT_EQ(KXAllocSize(destination.info.ImageInfo), 2u);
}

TEST(InfoSet, SizeZeroCopiesNeitherBlock) {
  Record source, destination;
  source.setBlock(80, "abcd");
  source.setBlock(81, Word(4));
  source.info.CustomMetadataBlockSize = 0;
  qlnInfoSet(&destination.info, &source.info);
  EXPECT_EQ(destination.info.CustomMetadataBlock, nullptr);
  EXPECT_EQ(destination.info.ImageInfo, nullptr);
  EXPECT_EQ(destination.info.CustomMetadataBlockSize, 0u);  // as a numeric field it merges
}

TEST(InfoSet, KnownBlocksAreNeverReadBehindTheirEnd) {
  Record source, destination;
  source.setBlock(80, "abc");
  source.info.CustomMetadataBlockSize = 10;
  source.setBlock(8, "noend");  // a text without its terminator
  source.setBlock(0, "x");
  source.setBlock(81, Word(9) + "abcd");
  qlnInfoSet(&destination.info, &source.info);
  EXPECT_EQ(std::string(*destination.slot(80), 10), std::string("abc\0\0\0\0\0\0\0", 10));
  EXPECT_EQ(destination.text(8), "noend");
  EXPECT_EQ(destination.text(0), "x");
  EXPECT_EQ(destination.info.ImageInfo, nullptr);
  for (const std::string block : {"a", "ab", "abc"}) {  // the first word is not wholly inside
    source.setBlock(81, block);
    qlnInfoSet(&destination.info, &source.info);
    EXPECT_EQ(destination.info.ImageInfo, nullptr);
  }
  *source.slot(82) = static_cast<char*>(KXAlloc(0));
  qlnInfoSet(&destination.info, &source.info);
  KXFree(*source.slot(82));
  *source.slot(82) = nullptr;
}

TEST(InfoSet, UnknownBlocksAreBelieved) {
  const HideBlockSizes hidden;
  Record source, destination;
  source.setBlock(80, std::string(10, 'x'));
  source.info.CustomMetadataBlockSize = 10;
  source.setBlock(81, Word(8) + "abcd");
  source.setText(8, "text");
  qlnInfoSet(&destination.info, &source.info);
  EXPECT_EQ(std::string(*destination.slot(80), 10), std::string(10, 'x'));
  EXPECT_EQ(std::string(destination.info.ImageInfo, 8), Word(8) + "abcd");
  EXPECT_EQ(destination.text(8), "text");
}

TEST(InfoSet, NumbersThatAreSetReplaceZeroToo) {
  for (size_t i = 0; i < kNumbers; ++i) {
    Record source, destination;
    for (size_t k = 0; k < kNumbers; ++k) {
      *source.number(k) = 0xFFFFFFFF;
      *destination.number(k) = 100 + static_cast<uint32_t>(k);
    }
    *source.number(i) = 0;
    source.info.Reserved = 9;
    source.info.Closing = 9;
    qlnInfoSet(&destination.info, &source.info);
    for (size_t k = 0; k < kNumbers; ++k) EXPECT_EQ(*destination.number(k), k == i ? 0 : 100 + k);
    EXPECT_EQ(destination.info.Reserved, 0u);
    EXPECT_EQ(destination.info.Closing, 0x7FFFFFFFu);
  }
}

TEST(InfoSet, AFreshRecordOverwritesItsFourZeros) {
  Record source, destination;
  for (size_t k = 0; k < kNumbers; ++k) *destination.number(k) = 55;
  qlnInfoSet(&destination.info, &source.info);
  for (size_t k = 0; k < kNumbers; ++k)
    EXPECT_EQ(*destination.number(k), kExpectedNumbers[k].initial == 0 ? 0 : 55u);
}

TEST(InfoSet, WithoutMemoryTheSlotIsNull) {
  Record source;
  source.setText(0, "a");
  source.setText(8, "b");
  source.setBlock(80, "abcd");
  source.setBlock(81, Word(4));
  source.setText(98, "c");
  source.info.CustomMetadataBlockSize = 4;
  source.info.FileSize = 12;
  const size_t copied[] = {0, 8, 80, 81, 98};
  for (size_t failing = 0; failing < 5; ++failing) {
    Record destination;
    for (const size_t slot : copied) {
      if (slot != 0) destination.setText(slot, "old text");
    }
    {
      const FailAllocations fail(static_cast<int>(failing));
      EXPECT_EQ(qlnInfoSet(&destination.info, &source.info), 0u);
    }
    for (size_t i = 0; i < 5; ++i)
      EXPECT_EQ(*destination.slot(copied[i]) == nullptr, i == failing) << failing << i;
    EXPECT_EQ(destination.info.FileSize, 12u);
  }
}

TEST(InfoSet, ALengthThatCannotBeAllocatedLeavesTheSlotNull) {
  Record source, destination;
  source.setBlock(80, "abcd");
  source.info.CustomMetadataBlockSize = 0xFFFFFFFE;
  destination.setText(80, "old");
  const FailAllocations fail(0);
  qlnInfoSet(&destination.info, &source.info);
  EXPECT_EQ(destination.info.CustomMetadataBlock, nullptr);
}

TEST(InfoStubs, GiveOne) {
  EXPECT_EQ(XMLFromQLNAudio(), 1u);
  EXPECT_EQ(XMLFromQLNInfo(), 1u);
  EXPECT_EQ(XMLFromQLNSystem(), 1u);
  EXPECT_EQ(XMLFromQLNVideo(), 1u);
}

}  // namespace
}  // namespace qln::test
