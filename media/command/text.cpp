// Texts of transport commands: the library's XML, and its JSON, which has no name outside of it.

#include <new>
#include <vector>

#include "base/library_messages.h"
#include "command/strict_json.h"
#include "qlnmedia/command_text.h"
#include "qlnutil/mediacmd.h"
#include "qlnutil/mediacmd/command_json.h"
#include "qlnutil/mediacmd/command_words.h"
#include "qlnutil/mediacmd/timecode_words.h"

namespace qlnmedia {

std::string CommandText(MediaCmd& command, CommandForm form, uint32_t timecodeType) {
  if (form == CommandForm::kStrictJson) return StrictCommandJson(command, static_cast<uint8_t>(timecodeType));
  char* made = nullptr;
  if (form == CommandForm::kJson) {
    qln::MediaCmdToJSON(&made, &command, timecodeType);
  } else {
    MediaCmdToXMLString(&made, &command, timecodeType);
  }
  if (made == nullptr) throw std::bad_alloc();
  std::string text;
  try {
    text = made;
  } catch (...) {
    MediaCmdFreeXMLString(&made);
    throw;
  }
  MediaCmdFreeXMLString(&made);
  return text;
}

CommandForm ReadCommandText(const std::string& text, uint32_t timecodeType, const std::string& where,
                            MediaCmd& command) {
  initMediaCmd(&command, ctStop);
  const size_t first = text.find_first_not_of(" \t\r\n");
  const bool isJson = first != std::string::npos && text[first] == '{';
  MessageSink messages;
  const bool isRead = isJson ? qln::MediaCmdFromJSON(&command, nullptr, text.c_str()) == 0
                             : MediaCmdFromXMLString(&command, &timecodeType, text.c_str()) == 0;
  if (!isRead) {
    std::string why;
    for (const LibraryMessage& message : messages.Take()) why += " (" + message.text + ")";
    throw Error(where, "holds no command" + why,
                "give XML with the root MediaCmd, or JSON with that key first");
  }
  // The size in the text is a stranger's: a shorter one bounds data, a longer one would reach outside.
  if (command.StructSize > sizeof command) command.StructSize = sizeof command;
  return isJson ? CommandForm::kJson : CommandForm::kXml;
}

std::string_view CommandWord(uint32_t command) { return qln::CommandWord(command); }

std::vector<std::string_view> CommandFlagWords() {
  std::vector<std::string_view> words;
  for (const qln::WordRow& row : qln::kFlagWords) words.emplace_back(row.word);
  return words;
}

std::string_view TimecodeTypeWord(uint8_t type) { return qln::TcTypeWord(type); }

}  // namespace qlnmedia
