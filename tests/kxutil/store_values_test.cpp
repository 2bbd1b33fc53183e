// Rows and elements that are no settings, or settings of another kind: what counts as absent, and what stays.

#include <filesystem>
#include <string>

#include "kxutil/default_store_support.h"
#include "kxutil/kxutil.h"

namespace qln::test {
namespace {

class StoreValues : public DefaultStoreTest {
 protected:
  static std::string Insert(const std::string& key, const std::string& value) {
    return "INSERT INTO settings VALUES (CAST('" + std::string(kSection) + "' AS BLOB), " + key + ", " +
           value + ");";
  }
  static std::string Blob(const std::string& text) { return "CAST('" + text + "' AS BLOB)"; }
  void MakeFile(const std::string& name, const std::string& text) {
    WriteFile(folder_ / name, Bytes(text.begin(), text.end()));
  }
};

// Of the earlier form, which a tool may have filled with anything.
TEST_F(StoreValues, RowsThatAreNoSettingsCountAsAbsentAndStay) {
  {
    Tool tool(path());
    ASSERT_TRUE(tool.Run(std::string(kEarlierTable) + ";" + Insert(Blob("Negative"), "-1") +
                         Insert(Blob("Large"), "4294967296") + Insert(Blob("Largest"), "4294967295") +
                         Insert(Blob("Real"), "1.5") + Insert(Blob("Text"), "'a text'") +
                         Insert(Blob("Bytes"), "x'41420043'") + Insert("'no blob'", "1") +
                         "INSERT INTO settings VALUES ('no blob', " + Blob("K") + ", 1)"));
  }
  const MessageCapture told;
  for (const bool changed : {false, true}) {
    EXPECT_EQ(Get("Negative"), std::nullopt);
    EXPECT_EQ(Get("Large"), std::nullopt);
    EXPECT_EQ(Get("Largest"), 4294967295u);
    EXPECT_EQ(Get("Real"), std::nullopt);
    EXPECT_EQ(Get("no blob"), std::nullopt);
    EXPECT_EQ(GetText(KX_DEFAULT_STORE, kSection, "Text"), "a text");
    EXPECT_EQ(GetText(KX_DEFAULT_STORE, kSection, "Bytes"), "AB");
    if (changed) break;
    ASSERT_EQ(Set("New", 1), 0);  // and with it the checksums
  }
  EXPECT_EQ(Tool(path()).Ask("SELECT count(*) FROM settings"), "9");
  EXPECT_TRUE(SetAside().empty());
}

TEST_F(StoreValues, AThousandDamagedValuesAreTold) {
  ASSERT_EQ(Set("Whole", 1), 0);
  {
    Tool tool(path());
    std::string statements = "BEGIN;";
    for (int i = 0; i < 1002; ++i)
      statements += "INSERT INTO settings VALUES (" + Blob(kSection) + ", " + Blob("K" + std::to_string(i)) +
                    ", 1, NULL);";
    ASSERT_TRUE(tool.Run(statements + "COMMIT"));
  }
  Reopen();
  MessageCapture capture;
  for (int i = 0; i < 1002; ++i) EXPECT_EQ(Get(("K" + std::to_string(i)).c_str()), std::nullopt);
  EXPECT_EQ(capture.messages().size(), 1000u);
  EXPECT_EQ(Get("Whole"), 1u);
}

// Of files that are no database nothing is read, and none is set aside.
TEST_F(StoreValues, ShortAndEmptyFilesAreNoDamage) {
  for (const size_t size : {size_t{1}, size_t{2}, size_t{15}, size_t{16}, size_t{19}}) {
    const Bytes bytes(size, 'x');
    WriteFile(path(), bytes);
    Reopen();
    MessageCapture capture;
    EXPECT_EQ(Get("A"), std::nullopt);
    EXPECT_NE(Set("A", 1), 0) << size;
    ASSERT_FALSE(capture.messages().empty());
    EXPECT_TRUE(capture.messages()[0].text.ends_with("file is not a database")) << capture.messages()[0].text;
    EXPECT_EQ(ReadFile(path()), bytes);
  }
  EXPECT_TRUE(SetAside().empty());
}

TEST_F(StoreValues, AFileAboveTheLimitIsNotChanged) {
  ASSERT_EQ(Set("A", 1), 0);
  const Bytes before = ReadFile(path());
  std::filesystem::resize_file(path(), (256u << 20) + 4096);
  Reopen();
  MessageCapture capture;
  EXPECT_NE(Set("B", 2), 0);
  ASSERT_EQ(capture.messages().size(), 1u);
  EXPECT_TRUE(capture.messages()[0].text.ends_with("it is too large"));
  std::filesystem::resize_file(path(), before.size());
  EXPECT_EQ(ReadFile(path()), before);
}

TEST_F(StoreValues, AnElementWithoutAReadableNameOrValueIsNone) {
  MakeFile("User.xml",
           "<settings><section path='S'>"
           "<value key='a' bytes='4g'/><value key='b' bytes='g4'/><value key='c' bytes='/4'/>"
           "<value key='d' bytes='G4'/><value key='e' bytes='4@'/><value key='f' bytes='5a5A'/>"
           "<value key='g' number='12x'/><value key='h' number=''/><value key='i' number='99999999999'/>"
           "<value key='j' number='7'/><value key='k' number='7'/><value/></section>"
           "<section><value key='l' number='7'/></section></settings>");
  const std::string file = folder_ / "User.xml";
  KXConfigHandle store = kxCFGOpen(file.c_str(), 0);
  ASSERT_NE(store, 0u);
  for (const char* const key : {"a", "b", "c", "d", "e"})
    EXPECT_EQ(GetText(store, "S", key), std::nullopt) << key;
  EXPECT_EQ(GetText(store, "S", "f"), "ZZ");
  for (const char* const key : {"g", "h", "i", "l"})
    EXPECT_EQ(GetNumber(store, "S", key), std::nullopt) << key;
  // A change goes past what has no name, and takes no place of its own where nothing changes.
  const KXConfigHandle other = kxCFGOpen(file.c_str(), 0);
  ASSERT_EQ(SetNumber(other, "S", "j", 8), 0);
  ASSERT_EQ(kxCFGClose(other, KX_CONFIG_SAVE), 0);
  const Bytes saved = ReadFile(file);
  ASSERT_EQ(SetNumber(store, "S", "j", 8), 0);
  ASSERT_EQ(kxCFGDeleteValue(store, "T", "never"), 0);
  ASSERT_EQ(kxCFGClose(store, KX_CONFIG_SAVE), 0);
  EXPECT_EQ(ReadFile(file), saved);
  const std::string text(saved.begin(), saved.end());
  EXPECT_NE(text.find("<value key=\"l\" number=\"7\""), std::string::npos);
  store = kxCFGOpen(file.c_str(), 0);
  EXPECT_EQ(GetNumber(store, "S", "j"), 8u);
  EXPECT_EQ(GetNumber(store, "S", "k"), 7u);
  kxCFGClose(store, KX_CONFIG_DISCARD);
}

TEST_F(StoreValues, ADocumentWithoutAnElementIsNone) {
  MakeFile("User.xml", "<!-- nothing -->");
  MessageCapture capture;
  EXPECT_EQ(kxCFGOpen((folder_ / "User.xml").c_str(), 0), 0u);
  EXPECT_EQ(capture.messages().size(), 1u);
}

TEST_F(StoreValues, AHandleThatIsNoneIsRefused) {
  constexpr KXConfigHandle kNone = 0x12345678;
  uint32_t number = 5;
  char text[8] = "x";
  uint32_t size = sizeof text;
  EXPECT_NE(kxCFGValueDword(kNone, kSection, "A", &number, KX_CONFIG_READ), 0);
  EXPECT_NE(kxCFGValueString(kNone, kSection, "A", text, &size, KX_CONFIG_READ), 0);
  EXPECT_NE(kxCFGDeleteValue(kNone, kSection, "A"), 0);
  EXPECT_NE(kxCFGBegin(kNone), 0);
  EXPECT_NE(kxCFGEnd(kNone), 0);
  EXPECT_EQ(number, 5u);
  EXPECT_STREQ(text, "x");
}

}  // namespace
}  // namespace qln::test
