// A project in a folder of its own, and what its getters give.
#ifndef TESTS_FILES_PROJECT_SUPPORT_H
#define TESTS_FILES_PROJECT_SUPPORT_H

#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <string>
#include <vector>

#include "files/file_calls.h"
#include "qlnutil/kxprojecttoxml.h"
#include "support/temporary_folder.h"
#include "support/test_support.h"

namespace qln::test {

using Texts = std::vector<std::string>;

inline std::string Text(const Bytes& bytes) { return std::string(bytes.begin(), bytes.end()); }
inline std::string TextOfFile(const std::string& path) { return Text(ReadFile(path)); }
inline void Write(const std::string& path, const std::string& text) {
  WriteFile(path, Bytes(text.begin(), text.end()));
}

// A text that a getter puts into a buffer of 260 bytes with guard bytes behind it.
template <class Get>
std::string Got(Get get) {
  std::vector<char> buffer(264, '\xEE');
  get(buffer.data());
  EXPECT_EQ(std::string(buffer.data() + 260, 4), "\xEE\xEE\xEE\xEE");
  return std::string(buffer.data(), strnlen(buffer.data(), 260));
}

inline std::string ClipFile(const CKXProjectToXML& p) {
  return Got([&](char* b) { EXPECT_EQ(p.GetClipFile(b), 0u); });
}

inline std::string EdlName(const CKXProjectToXML& p) {
  return Got([&](char* b) { EXPECT_EQ(p.GetEDLName(b), 0u); });
}

inline std::string XmlName(const CKXProjectToXML& p) {
  return Got([&](char* b) { EXPECT_EQ(p.GetXMLName(b), 0u); });
}

inline std::string Config(const CKXProjectToXML& p, const char* key) {
  return Got([&](char* b) {
    b[0] = '?', b[1] = 0;
    EXPECT_EQ(p.GetConfigString(key, b), 0u);
  });
}

class Project : public testing::Test {
 protected:
  Project() : folder(temporary.path()) { std::filesystem::create_directories(folder + "/elsewhere"); }
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
    return static_cast<size_t>(
        std::distance(std::filesystem::directory_iterator(folder), std::filesystem::directory_iterator()));
  }

  TemporaryFolder temporary;
  std::string folder;
  CKXProjectToXML project;
};

inline constexpr char kHead[] = "<?xml version=\"1.0\" ?>\n";

}  // namespace qln::test

#endif
