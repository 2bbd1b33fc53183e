// What holds for every configuration store, whether it is the default one or stands in a file.

#include <gtest/gtest.h>

#include <cstring>

#include "kxutil/kxutil.h"
#include "kxutil/store_test_support.h"
#include "support/test_support.h"

namespace qln::test {
namespace {

constexpr char kSection[] = "Tarnwick\\Advanced";

class StoreTest : public testing::TestWithParam<bool> {
 protected:
  void SetUp() override {
    kxCFGSetDefaultStore((folder_ / "settings.db").c_str());
    handle_ = GetParam() ? KX_DEFAULT_STORE : kxCFGOpen((folder_ / "User.xml").c_str(), 0);
    ASSERT_NE(handle_, 0);
  }
  void TearDown() override {
    EXPECT_EQ(kxCFGClose(handle_, 0), 0);
    kxCFGSetDefaultStore(nullptr);
  }
  // What is written now is there for whoever opens the store next.
  void Reopen() {
    if (GetParam()) {
      kxCFGSetDefaultStore((folder_ / "settings.db").c_str());
    } else {
      ASSERT_EQ(kxCFGClose(handle_, 1), 0);
      handle_ = kxCFGOpen((folder_ / "User.xml").c_str(), 0);
      ASSERT_NE(handle_, 0);
    }
  }

  TemporaryFolder folder_;
  KXConfigHandle handle_ = 0;
};

INSTANTIATE_TEST_SUITE_P(Stores, StoreTest, testing::Bool(),
                         [](const auto& store) { return store.param ? "Default" : "File"; });

TEST_P(StoreTest, AbsentKeysLeaveTheValueAlone) {
  EXPECT_EQ(GetNumber(handle_, kSection, "ForceVideoRangeMatrix"), std::nullopt);
  uint32_t value = 77;
  EXPECT_NE(kxCFGValueDword(handle_, kSection, "None", &value, 0), 0);
  EXPECT_EQ(value, 77u);
  EXPECT_NE(kxCFGValueDword(handle_, kSection, "None", nullptr, 0), 0);
  char buffer[4] = "abc";
  uint32_t size = sizeof buffer;
  EXPECT_NE(kxCFGValueString(handle_, kSection, "None", buffer, &size, 0), 0);
  EXPECT_EQ(size, 4u);
  EXPECT_STREQ(buffer, "abc");
  EXPECT_NE(kxCFGValueString(handle_, kSection, "None", nullptr, &size, 0), 0);
  EXPECT_EQ(size, 0u);
}

TEST_P(StoreTest, NumbersComeBack) {
  for (const uint32_t value : {0u, 1u, 0x7FFFFFFFu, 0x80000000u, 0xFFFFFFFFu}) {
    EXPECT_EQ(SetNumber(handle_, kSection, "Number", value), 0);
    EXPECT_EQ(GetNumber(handle_, kSection, "Number"), value);
    Reopen();
    EXPECT_EQ(GetNumber(handle_, kSection, "Number"), value);
    EXPECT_EQ(kxCFGValueDword(handle_, kSection, "Number", nullptr, 0), 0);
  }
}

TEST_P(StoreTest, TextsOfAnyBytesComeBack) {
  std::string all;
  for (int c = 1; c < 256; ++c) all.push_back(static_cast<char>(c));
  std::vector<std::string> texts = {"",
                                    "plain",
                                    " blanks  at the ends ",
                                    "line\nfeed\r\n\ttab",
                                    "\x01\x02",
                                    "\xFF\xFE",
                                    "\xC3\xA4\xE2\x82\xAC\xF0\x9F\x8E\xAC",
                                    "\xEF\xBB\xBF"
                                    "mark",
                                    "\xEF\xBF\xBE",
                                    "\xED\xA0\x80",
                                    "&amp;&#x41;&#65;<b a='1'>\"]]>--",
                                    "&#x",
                                    all,
                                    std::string(100000, 'x'),
                                    "\xF0",
                                    "\xE2\x82"};
  for (size_t i = 0; i < texts.size(); ++i) {
    const std::string key = "Text" + std::to_string(i);
    EXPECT_EQ(SetText(handle_, kSection, key.c_str(), texts[i]), 0);
    EXPECT_EQ(GetText(handle_, kSection, key.c_str()), texts[i]) << i;
  }
  Reopen();
  for (size_t i = 0; i < texts.size(); ++i) {
    EXPECT_EQ(GetText(handle_, kSection, ("Text" + std::to_string(i)).c_str()), texts[i]) << i;
  }
}

TEST_P(StoreTest, RandomTextsAndNamesComeBack) {
  Random random(3);
  const auto text = [&](size_t most) {
    const Bytes bytes =
        random.below(2) == 0 ? random.bytes(random.below(most)) : Bytes(random.below(most), 'a');
    std::string made(bytes.begin(), bytes.end());
    std::erase(made, '\0');
    return made;
  };
  struct Entry {
    std::string section, key, text;
  };
  std::vector<Entry> entries;
  for (size_t i = 0; i < 40; ++i) {
    entries.push_back({text(20) + std::to_string(i), text(20), text(200)});
    ASSERT_EQ(SetText(handle_, entries[i].section.c_str(), entries[i].key.c_str(), entries[i].text), 0);
  }
  Reopen();
  for (const Entry& entry : entries) {
    ASSERT_EQ(GetText(handle_, entry.section.c_str(), entry.key.c_str()), entry.text);
  }
}

TEST_P(StoreTest, AnySectionAndAnyKeyIsAName) {
  const std::vector<std::string> names = {"",   "\\", "a\\b\\c", "\\a\\", "a\\\\b", "A",     "a",
                                          "a ", " a", "\xE4",    "\x01",  "a/b",    "'\"<>&"};
  uint32_t number = 0;
  for (const std::string& section : names) {
    for (const std::string& key : names) {
      ASSERT_EQ(SetNumber(handle_, section.c_str(), key.c_str(), number++), 0);
    }
  }
  Reopen();
  number = 0;
  for (const std::string& section : names) {
    for (const std::string& key : names) {
      ASSERT_EQ(GetNumber(handle_, section.c_str(), key.c_str()), number++) << section << " " << key;
    }
  }
}

TEST_P(StoreTest, TypesAreKept) {
  SetText(handle_, kSection, "Text", "12");
  SetNumber(handle_, kSection, "Number", 12);
  Reopen();
  EXPECT_EQ(GetNumber(handle_, kSection, "Text"), std::nullopt);
  EXPECT_EQ(GetText(handle_, kSection, "Number"), std::nullopt);
  EXPECT_EQ(kxCFGValueDword(handle_, kSection, "Text", nullptr, 0), 0);  // the key is there
  uint32_t size = 9;
  EXPECT_NE(kxCFGValueString(handle_, kSection, "Number", nullptr, &size, 0), 0);
  EXPECT_EQ(size, 0u);
  SetNumber(handle_, kSection, "Text", 5);
  SetText(handle_, kSection, "Number", "five");
  Reopen();
  EXPECT_EQ(GetNumber(handle_, kSection, "Text"), 5u);
  EXPECT_EQ(GetText(handle_, kSection, "Text"), std::nullopt);
  EXPECT_EQ(GetText(handle_, kSection, "Number"), "five");
}

TEST_P(StoreTest, SizeProtocol) {
  SetText(handle_, kSection, "Three", "abc");
  SetText(handle_, kSection, "Empty", "");
  uint32_t size = 99;
  EXPECT_EQ(kxCFGValueString(handle_, kSection, "Three", nullptr, &size, 0), 0);
  EXPECT_EQ(size, 4u);
  char buffer[8];
  std::memset(buffer, '#', sizeof buffer);
  for (uint32_t room = 0; room < 4; ++room) {
    size = room;
    EXPECT_NE(kxCFGValueString(handle_, kSection, "Three", buffer, &size, 0), 0);
    EXPECT_EQ(size, 4u);
    EXPECT_EQ(std::string(buffer, 8), "########");
  }
  size = 4;
  EXPECT_EQ(kxCFGValueString(handle_, kSection, "Three", buffer, &size, 0), 0);
  EXPECT_EQ(size, 4u);
  EXPECT_EQ(std::string(buffer, 8), std::string("abc\0####", 8));
  size = 8;
  EXPECT_EQ(kxCFGValueString(handle_, kSection, "Three", buffer, &size, 0), 0);
  EXPECT_EQ(size, 4u);
  EXPECT_EQ(std::string(buffer, 8), std::string("abc\0####", 8));

  size = 99;
  EXPECT_EQ(kxCFGValueString(handle_, kSection, "Empty", nullptr, &size, 0), 0);
  EXPECT_EQ(size, 0u);
  EXPECT_NE(kxCFGValueString(handle_, kSection, "Empty", buffer, &size, 0), 0);
  EXPECT_EQ(size, 1u);
  EXPECT_EQ(buffer[0], 'a');
  EXPECT_EQ(kxCFGValueString(handle_, kSection, "Empty", buffer, &size, 0), 0);
  EXPECT_EQ(size, 0u);
  EXPECT_EQ(buffer[0], '\0');
}

TEST_P(StoreTest, WritesUpToTheTerminatorOrTheSize) {
  char text[] = "abcdef";
  uint32_t size = 3;
  EXPECT_EQ(kxCFGValueString(handle_, kSection, "Cut", text, &size, 1), 0);
  EXPECT_EQ(GetText(handle_, kSection, "Cut"), "abc");
  size = 100;
  EXPECT_EQ(kxCFGValueString(handle_, kSection, "Whole", text, &size, 1), 0);
  EXPECT_EQ(GetText(handle_, kSection, "Whole"), "abcdef");
  EXPECT_EQ(size, 100u);
}

TEST_P(StoreTest, RemovedKeysAreGone) {
  SetText(handle_, kSection, "Text", "x");
  SetNumber(handle_, kSection, "Number", 1);
  Reopen();
  EXPECT_EQ(kxCFGDeleteValue(handle_, kSection, "Text"), 0);
  EXPECT_EQ(kxCFGDeleteValue(handle_, kSection, "Never"), 0);
  EXPECT_EQ(GetText(handle_, kSection, "Text"), std::nullopt);
  Reopen();
  EXPECT_EQ(GetText(handle_, kSection, "Text"), std::nullopt);
  EXPECT_EQ(GetNumber(handle_, kSection, "Number"), 1u);
}

TEST_P(StoreTest, WrongArgumentsAreRefused) {
  uint32_t value = 1;
  char text[] = "x";
  EXPECT_NE(kxCFGValueDword(handle_, nullptr, "k", &value, 0), 0);
  EXPECT_NE(kxCFGValueDword(handle_, "s", nullptr, &value, 1), 0);
  EXPECT_NE(kxCFGValueDword(handle_, "s", "k", nullptr, 1), 0);
  EXPECT_NE(kxCFGValueDword(handle_, "s", "k", &value, 2), 0);
  EXPECT_NE(kxCFGValueString(handle_, nullptr, "k", text, &value, 0), 0);
  EXPECT_NE(kxCFGValueString(handle_, "s", nullptr, text, &value, 1), 0);
  EXPECT_NE(kxCFGValueString(handle_, "s", "k", text, nullptr, 0), 0);
  EXPECT_NE(kxCFGValueString(handle_, "s", "k", nullptr, &value, 1), 0);
  EXPECT_NE(kxCFGValueString(handle_, "s", "k", text, &value, 3), 0);
  EXPECT_NE(kxCFGDeleteValue(handle_, nullptr, "k"), 0);
  EXPECT_NE(kxCFGDeleteValue(handle_, "s", nullptr), 0);
  EXPECT_NE(kxCFGValueDword(0, "s", "k", &value, 1), 0);
  EXPECT_NE(kxCFGValueDword(12345678, "s", "k", &value, 0), 0);
  EXPECT_NE(kxCFGDeleteValue(12345678, "s", "k"), 0);
  EXPECT_NE(kxCFGClose(0, 1), 0);
  EXPECT_NE(kxCFGClose(12345678, 1), 0);
  EXPECT_EQ(kxCFGOpen(nullptr, 0), 0);
  EXPECT_EQ(kxCFGOpen("", 0), 0);
  EXPECT_EQ(GetNumber(handle_, "s", "k"), std::nullopt);
  // Nor for a text that is there.
  EXPECT_EQ(SetText(handle_, "s", "k", "text"), 0);
  EXPECT_NE(kxCFGValueString(handle_, "s", "k", text, nullptr, 0), 0);
  EXPECT_STREQ(text, "x");
}

}  // namespace
}  // namespace qln::test
