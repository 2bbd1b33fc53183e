// Reading a command from the text of an XML document.
#ifndef TESTS_MEDIACMD_XML_READER_SUPPORT_H
#define TESTS_MEDIACMD_XML_READER_SUPPORT_H

#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "mediacmd/xml_support.h"

namespace qln::test {

inline std::string Rooted(const std::string& children) { return "<MediaCmd>" + children + "</MediaCmd>"; }

// Reads into an initialised record.
inline MediaCmd Read(const std::string& text, const uint32_t* type = nullptr) {
  MediaCmd command;
  std::memset(&command, 0xA5, sizeof command);
  EXPECT_EQ(MediaCmdFromXMLString(&command, type, text.c_str()), 0u) << text;
  return command;
}

inline MediaCmd ReadChildren(const std::string& children, const uint32_t* type = nullptr) {
  return Read(Rooted(children), type);
}

// Reads a document into a record as it is.
inline uint32_t ReadInto(MediaCmd* command, const std::string& text, const uint32_t* type = nullptr) {
  TiXmlDocument document;
  document.Parse(text.c_str());
  return MediaCmdFromXML(command, type, document);
}

}  // namespace qln::test

#endif
