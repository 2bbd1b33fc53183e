// Reading a command from the members of a JSON text.
#ifndef TESTS_MEDIACMD_JSON_READER_SUPPORT_H
#define TESTS_MEDIACMD_JSON_READER_SUPPORT_H

#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "kxutil/kxutil.h"
#include "mediacmd/xml_support.h"
#include "qlnutil/mediacmd/command_json.h"

namespace qln::test {

inline MediaCmd ReadInto(MediaCmd command, const std::string& members) {
  ExactRecord record(command, 4188);
  EXPECT_EQ(MediaCmdFromJSON(record.get(), nullptr, ("{\"MediaCmd\" : {" + members + "}}").c_str()), 0)
      << members;
  MediaCmd read;
  std::memcpy(&read, record.bytes(), sizeof read);
  return read;
}

inline MediaCmd Read(const std::string& members) { return ReadInto(Command(ctStop), members); }

}  // namespace qln::test

#endif
