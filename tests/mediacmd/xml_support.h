// XML documents of commands as lists of lines that a test can hold against what it expects.
#ifndef TESTS_MEDIACMD_XML_SUPPORT_H
#define TESTS_MEDIACMD_XML_SUPPORT_H

#include <tinyxml.h>

#include <string>
#include <vector>

#include "mediacmd/command_support.h"

namespace qln::test {

using Lines = std::vector<std::string>;

// "Name A=1 B=2 |text" for an element: attributes in order, and a text (also an empty one) behind the bar.
inline std::string Line(const TiXmlElement& element) {
  std::string line = element.ValueStr();
  for (const TiXmlAttribute* a = element.FirstAttribute(); a != nullptr; a = a->Next()) {
    line += std::string(" ") + a->Name() + "=" + a->Value();
  }
  for (const TiXmlNode* child = element.FirstChild(); child != nullptr; child = child->NextSibling()) {
    line += child->ToText() != nullptr ? " |" + child->ValueStr() : " ?";
  }
  return line;
}

// The elements below the (first) root.
inline Lines ElementsOf(const TiXmlDocument& document) {
  Lines lines;
  const TiXmlElement* root = document.FirstChildElement("MediaCmd");
  if (root == nullptr) return {"no root"};
  for (const TiXmlElement* e = root->FirstChildElement(); e != nullptr; e = e->NextSiblingElement()) {
    lines.push_back(Line(*e));
  }
  return lines;
}

inline Lines Xml(MediaCmd& command, uint32_t tcType = 0) {
  TiXmlDocument document;
  EXPECT_EQ(MediaCmdToXML(&document, &command, tcType), 0u);
  return ElementsOf(document);
}
inline Lines Xml(const MediaCmd& command, uint32_t tcType = 0) {
  MediaCmd copy = command;
  return Xml(copy, tcType);
}

// The elements whose lines begin with one of the names.
inline Lines Only(const Lines& lines, const Lines& names) {
  Lines found;
  for (const std::string& line : lines) {
    const std::string name = line.substr(0, line.find(' '));
    for (const std::string& wanted : names) {
      if (name == wanted) found.push_back(line);
    }
  }
  return found;
}

// What stands behind the points: the elements of the data area.
inline Lines Data(const Lines& lines) {
  size_t first = 0;
  for (size_t i = 0; i < lines.size(); ++i) {
    if (lines[i].starts_with("Position ")) first = i + 1;
  }
  while (first < lines.size() && (lines[first].find(" TcType=") != std::string::npos)) ++first;
  return Lines(lines.begin() + static_cast<ptrdiff_t>(first), lines.end());
}

inline std::string XmlText(MediaCmd command, uint32_t tcType = 0) {
  char* text = nullptr;
  EXPECT_EQ(MediaCmdToXMLString(&text, &command, tcType), 0u);
  if (text == nullptr) return "(null)";
  std::string copy(text);
  EXPECT_EQ(MediaCmdFreeXMLString(&text), 0u);
  EXPECT_EQ(text, nullptr);
  return copy;
}

// Any record: fields, flags and texts at random, words that the writers look at more often than others.
inline MediaCmd RandomCommand(Random& random, bool printable) {
  static constexpr int32_t kStates[] = {25,   150,   162,     166,     801,     802,
                                        1054, 60002, 1000007, 1100000, 1100001, 1100002};
  MediaCmd command = Command(static_cast<uint32_t>(random.below(24)), static_cast<uint32_t>(random.next()));
  if (random.below(4) != 0) command.Cmd = 14 + static_cast<uint32_t>(random.below(3));
  if (random.below(8) != 0) command.Flags |= CF_USE_CLIP_ID;
  command.Channel = static_cast<int32_t>(random.next());
  for (int32_t* field :
       {&command.Speed, &command.VideoChannels, &command.AudioChannels, &command.InfoChannels,
        &command.CmdAlt, &command.Position, &command.Start, &command.End}) {
    *field = static_cast<int32_t>(random.next() >> random.below(64));
  }
  if (random.below(4) != 0) command.CmdAlt = kStates[random.below(std::size(kStates))];
  if (random.below(2) != 0) command.Speed = static_cast<int32_t>(random.below(2));
  if (random.below(2) != 0) command.End = static_cast<int32_t>(random.below(300)) - 100;
  char* const area = command.ClipID;
  const size_t room = sizeof command - 76;
  size_t at = 0;
  while (at < room && random.below(24) != 0) {
    const size_t count = std::min<size_t>(random.below(12), room - at);
    for (size_t i = 0; i < count; ++i) {
      const char c = static_cast<char>(printable ? 33 + random.below(94) : 1 + random.below(255));
      area[at++] = c;
    }
    if (at < room) area[at++] = '\0';
  }
  if (random.below(8) == 0) std::memset(area, 'x', room);
  return command;
}

}  // namespace qln::test

#endif
