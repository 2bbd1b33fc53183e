// An earlier release of the XML library, whose writer takes "&#x" for the beginning of a reference and leaves
// it as it is. This program has the call that tells, which goes on to the one that is there unless a test
// wants the earlier one.

#include <dlfcn.h>
#include <gtest/gtest.h>

#include <string>

#include "files/project_support.h"
#include "kxutil/tinyxml_header.h"

namespace {

bool isEarlier = false;

}  // namespace

__attribute__((visibility("default"))) void TiXmlBase::EncodeString(const TIXML_STRING& text,
                                                                    TIXML_STRING* output) {
  using Encode = void(const TIXML_STRING&, TIXML_STRING*);
  constexpr char kName[] =
      "_ZN9TiXmlBase12EncodeStringERKNSt7__cxx1112basic_stringIcSt11char_traitsIcESaIcEEEPS5_";
  static auto* const real = reinterpret_cast<Encode*>(dlsym(RTLD_NEXT, kName));
  if (isEarlier) {
    output->append(text);
  } else {
    real(text, output);
  }
}

namespace qln::test {
namespace {

class EarlierWriter : public Project {
 protected:
  EarlierWriter() { isEarlier = true; }
  ~EarlierWriter() override { isEarlier = false; }
};

// The ampersand in front of "#x" comes to that writer as a reference, which it leaves.
TEST_F(EarlierWriter, GetsNoTextThatLooksLikeAReference) {
  ASSERT_EQ(project.SetConfigString("A", "a&#x41;&#x42;b"), 0u);
  ASSERT_EQ(project.SetConfigString("B", "plain"), 0u);
  const std::string document = Save();
  EXPECT_NE(document.find("#x26;#x41;"), std::string::npos);
  EXPECT_NE(document.find("B=\"plain\""), std::string::npos);
  EXPECT_NE(document.find("#x26;#x42;b\""), std::string::npos);
}

}  // namespace
}  // namespace qln::test
