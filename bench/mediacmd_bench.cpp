// The command record to text and back, beside the libraries that its forms stand on and beside other writers.

#include <benchmark/benchmark.h>
#include <tinyxml.h>

#define JSMN_HEADER
#include <jsmn.h>

#include <cstring>
#include <sstream>
#include <string>

#include "bench_support.h"
#include "kxutil/kxutil.h"
#include "qlnutil/mediacmd.h"
#include "qlnutil/mediacmd/command_json.h"
#include "timecode/kxtimecode.h"

#ifdef QLN_HAVE_PUGIXML
#include <pugixml.hpp>
#endif
#ifdef QLN_HAVE_RAPIDJSON
#include <rapidjson/document.h>
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>
#endif

namespace {

using qln::bench::Require;

constexpr uint32_t kDropFrame = 4;
constexpr uint32_t kTextTimecode = 0x32100 | kDropFrame;
constexpr uint32_t kServiceTimecode = 0xB2140;  // of a start point beside no alternate value

// A clip played from one point to another, as a host sends it all day.
MediaCmd PlayClip() {
  MediaCmd command;
  initMediaCmd(&command, ctPlay);
  command.Channel = 2;
  command.Flags = CF_DEFERRED | CF_LOOP | CF_USE_SPEED | CF_USE_PRESETS | CF_USE_POSITION | CF_USE_START |
                  CF_USE_END | CF_USE_CLIP_ID;
  command.Speed = MEDIACMD_PLAY_SPEED;
  command.VideoChannels = 1;
  command.AudioChannels = 0xFF;
  command.InfoChannels = 3;
  command.Position = 107892;
  command.Start = 107000;
  command.End = 215784;
  std::strcpy(command.ClipID, "CLIP0001");
  std::strcpy(command.FileName, "V:/media/2026/news/morning/interview_take_3.mov");
  return command;
}

std::string XmlText() {
  MediaCmd command = PlayClip();
  char* text = nullptr;
  MediaCmdToXMLString(&text, &command, kDropFrame);
  Require(text != nullptr, "command to XML");
  std::string copy(text);
  MediaCmdFreeXMLString(&text);
  return copy;
}

std::string JsonText() {
  MediaCmd command = PlayClip();
  char* text = nullptr;
  qln::MediaCmdToJSON(&text, &command, kDropFrame);
  Require(text != nullptr, "command to JSON");
  std::string copy(text);
  MediaCmdFreeXMLString(&text);
  return copy;
}

// Whether what was read is the clip again.
bool IsPlayClip(const MediaCmd& command) {
  const MediaCmd expected = PlayClip();
  return command.Cmd == expected.Cmd && command.Channel == 2 && command.Speed == expected.Speed &&
         command.VideoChannels == 1 && command.AudioChannels == 0xFF && command.InfoChannels == 3 &&
         command.Position == expected.Position && command.Start == expected.Start &&
         command.End == expected.End;
}

void ToXmlOurs(benchmark::State& run) {
  MediaCmd command = PlayClip();
  for (auto _ : run) {
    char* text = nullptr;
    MediaCmdToXMLString(&text, &command, kDropFrame);
    benchmark::DoNotOptimize(text);
    MediaCmdFreeXMLString(&text);
  }
}
BENCHMARK(ToXmlOurs)->Name("command_to_xml/ours");

void ToXmlTinyXml(benchmark::State& run) {
  MediaCmd command = PlayClip();
  TiXmlDocument document;
  MediaCmdToXML(&document, &command, kDropFrame);
  std::string printed;
  printed << document;
  Require(printed == XmlText(), "TinyXML prints the same document");
  for (auto _ : run) {
    std::string text;
    text << document;
    benchmark::DoNotOptimize(text.data());
  }
}
BENCHMARK(ToXmlTinyXml)->Name("command_to_xml/tinyxml");

void FromXmlOurs(benchmark::State& run) {
  const std::string text = XmlText();
  MediaCmd command;
  Require(MediaCmdFromXMLString(&command, nullptr, text.c_str()) == 0 && IsPlayClip(command),
          "XML to command");
  for (auto _ : run) {
    MediaCmdFromXMLString(&command, nullptr, text.c_str());
    benchmark::DoNotOptimize(command);
  }
}
BENCHMARK(FromXmlOurs)->Name("command_from_xml/ours");

void FromXmlTinyXml(benchmark::State& run) {
  const std::string text = XmlText();
  for (auto _ : run) {
    TiXmlDocument document;
    document.Parse(text.c_str());
    benchmark::DoNotOptimize(document.FirstChild("MediaCmd"));
  }
}
BENCHMARK(FromXmlTinyXml)->Name("command_from_xml/tinyxml");

#ifdef QLN_HAVE_PUGIXML
struct StringWriter : pugi::xml_writer {
  std::string text;
  void write(const void* data, size_t size) override { text.append(static_cast<const char*>(data), size); }
};

// All texts of a document behind each other: names and attributes in their order.
void AppendTexts(const pugi::xml_node& node, std::string& texts) {
  for (const pugi::xml_node& child : node.children()) {
    texts.append(child.name()).append("=").append(child.value()).append(";");
    for (const pugi::xml_attribute& attribute : child.attributes())
      texts.append(attribute.name()).append("=").append(attribute.value()).append(";");
    AppendTexts(child, texts);
  }
}

void ToXmlPugi(benchmark::State& run) {
  const std::string source = XmlText();
  pugi::xml_document document;
  Require(document.load_buffer(source.data(), source.size()).status == pugi::status_ok, "pugixml reads");
  const auto print = [&] {
    StringWriter writer;
    document.save(writer, "", pugi::format_raw | pugi::format_no_declaration);
    return std::move(writer.text);
  };
  pugi::xml_document again;
  const std::string printed = print();
  std::string texts;
  std::string expected;
  AppendTexts(document, expected);
  Require(again.load_buffer(printed.data(), printed.size()).status == pugi::status_ok, "pugixml prints");
  AppendTexts(again, texts);
  Require(texts == expected && texts.find("CLIP0001") != std::string::npos, "pugixml prints all of it");
  for (auto _ : run) benchmark::DoNotOptimize(print());
}
BENCHMARK(ToXmlPugi)->Name("command_to_xml/pugixml");

void FromXmlPugi(benchmark::State& run) {
  const std::string text = XmlText();
  for (auto _ : run) {
    pugi::xml_document document;
    Require(document.load_buffer(text.data(), text.size()).status == pugi::status_ok &&
                document.child("MediaCmd"),
            "pugixml reads");
    benchmark::DoNotOptimize(document);
  }
}
BENCHMARK(FromXmlPugi)->Name("command_from_xml/pugixml");
#endif

void ToJsonOurs(benchmark::State& run) {
  MediaCmd command = PlayClip();
  for (auto _ : run) {
    char* text = nullptr;
    qln::MediaCmdToJSON(&text, &command, kDropFrame);
    benchmark::DoNotOptimize(text);
    MediaCmdFreeXMLString(&text);
  }
}
BENCHMARK(ToJsonOurs)->Name("command_to_json/ours");

void StreamPoint(std::ostringstream& out, const char* name, int32_t value, uint32_t typeWord) {
  char timecode[32] = {};
  TimeCodeToString(static_cast<uint32_t>(value), typeWord, timecode);
  out << '"' << name << "\": {\"Value\":" << static_cast<uint32_t>(value)
      << ",\"TcType\":\"drop-frame\",\"TcString\":\"" << timecode << "\",},";
}

std::string StreamCommand(const MediaCmd& command) {
  std::ostringstream out;
  out << "{\"MediaCmd\" : {\"CmdID\":" << command.CmdID << ",\"StructSize\":" << command.StructSize
      << ",\"Channel\":" << static_cast<uint32_t>(command.Channel) << ",\"Cmd\": {\"Value\":" << command.Cmd
      << ",\"String\":\"Play\",";
  if (command.Flags & CF_DEFERRED) out << "\"Deferred\":1,";
  if (command.Flags & CF_LOOP) out << "\"Loop\":1,";
  if (command.Flags & CF_USE_CLIP_ID) out << "\"UseClipID\":1,";
  out << "},\"Speed\": {\"Value\":" << command.Speed << ",\"String\":\"" << command.Speed * 100 / 65520
      << "\",},\"VideoChannels\":" << static_cast<uint32_t>(command.VideoChannels)
      << ",\"AudioChannels\":" << static_cast<uint32_t>(command.AudioChannels)
      << ",\"InfoChannels\":" << static_cast<uint32_t>(command.InfoChannels) << ',';
  StreamPoint(out, "Position", command.Position, kTextTimecode);
  StreamPoint(out, "Start", command.Start, kServiceTimecode);
  StreamPoint(out, "End", command.End, kTextTimecode);
  out << "\"ClipID\":\"" << command.ClipID << "\",\"FileName\":\"" << command.FileName << "\",}}";
  return out.str();
}

void ToJsonStream(benchmark::State& run) {
  const MediaCmd command = PlayClip();
  Require(StreamCommand(command) == JsonText(), "the stream writes the same JSON");
  for (auto _ : run) {
    std::string text = StreamCommand(command);
    benchmark::DoNotOptimize(text.data());
  }
}
BENCHMARK(ToJsonStream)->Name("command_to_json/ostringstream");

#ifdef QLN_HAVE_RAPIDJSON
using JsonWriter = rapidjson::Writer<rapidjson::StringBuffer>;

void WritePoint(JsonWriter& writer, const char* name, int32_t value, uint32_t typeWord) {
  char timecode[32] = {};
  TimeCodeToString(static_cast<uint32_t>(value), typeWord, timecode);
  writer.Key(name);
  writer.StartObject();
  writer.Key("Value");
  writer.Uint(static_cast<uint32_t>(value));
  writer.Key("TcType");
  writer.String("drop-frame");
  writer.Key("TcString");
  writer.String(timecode);
  writer.EndObject();
}

void WriteFlag(JsonWriter& writer, const MediaCmd& command, uint32_t flag, const char* name) {
  if ((command.Flags & flag) == 0) return;
  writer.Key(name);
  writer.Int(1);
}

void WriteCommand(JsonWriter& writer, const MediaCmd& command) {
  const auto number = [&](const char* name, uint32_t value) {
    writer.Key(name);
    writer.Uint(value);
  };
  writer.StartObject();
  writer.Key("MediaCmd");
  writer.StartObject();
  number("CmdID", command.CmdID);
  number("StructSize", command.StructSize);
  number("Channel", static_cast<uint32_t>(command.Channel));
  writer.Key("Cmd");
  writer.StartObject();
  number("Value", command.Cmd);
  writer.Key("String");
  writer.String("Play");
  WriteFlag(writer, command, CF_DEFERRED, "Deferred");
  WriteFlag(writer, command, CF_LOOP, "Loop");
  WriteFlag(writer, command, CF_USE_CLIP_ID, "UseClipID");
  writer.EndObject();
  writer.Key("Speed");
  writer.StartObject();
  writer.Key("Value");
  writer.Int(command.Speed);
  writer.Key("String");
  writer.String(std::to_string(command.Speed * 100 / 65520).c_str());
  writer.EndObject();
  number("VideoChannels", static_cast<uint32_t>(command.VideoChannels));
  number("AudioChannels", static_cast<uint32_t>(command.AudioChannels));
  number("InfoChannels", static_cast<uint32_t>(command.InfoChannels));
  WritePoint(writer, "Position", command.Position, kTextTimecode);
  WritePoint(writer, "Start", command.Start, kServiceTimecode);
  WritePoint(writer, "End", command.End, kTextTimecode);
  writer.Key("ClipID");
  writer.String(command.ClipID);
  writer.Key("FileName");
  writer.String(command.FileName);
  writer.EndObject();
  writer.EndObject();
}

void ToJsonRapidJson(benchmark::State& run) {
  const MediaCmd command = PlayClip();
  {
    rapidjson::StringBuffer buffer;
    JsonWriter writer(buffer);
    WriteCommand(writer, command);
    // The same text, but for the commas behind last members and the blanks of our form.
    std::string ours = JsonText();
    for (size_t at; (at = ours.find(",}")) != std::string::npos;) ours.erase(at, 1);
    for (size_t at; (at = ours.find(" ")) != std::string::npos;) ours.erase(at, 1);
    Require(buffer.GetString() == ours, "rapidjson writes the same members");
  }
  for (auto _ : run) {
    rapidjson::StringBuffer buffer;
    JsonWriter writer(buffer);
    WriteCommand(writer, command);
    benchmark::DoNotOptimize(buffer.GetString());
  }
}
BENCHMARK(ToJsonRapidJson)->Name("command_to_json/rapidjson");
#endif

void FromJsonOurs(benchmark::State& run) {
  const std::string text = JsonText();
  MediaCmd command;
  initMediaCmd(&command, ctStop);
  Require(qln::MediaCmdFromJSON(&command, nullptr, text.c_str()) == 0 && command.Cmd == ctPlay &&
              command.Position == 107892 && command.AudioChannels == 0xFF,
          "JSON to command");
  for (auto _ : run) {
    qln::MediaCmdFromJSON(&command, nullptr, text.c_str());
    benchmark::DoNotOptimize(command);
  }
}
BENCHMARK(FromJsonOurs)->Name("command_from_json/ours");

void FromJsonJsmn(benchmark::State& run) {
  const std::string text = JsonText();
  for (auto _ : run) {
    jsmntok_t tokens[100];
    jsmn_parser parser;
    jsmn_init(&parser);
    benchmark::DoNotOptimize(jsmn_parse(&parser, text.c_str(), text.size(), tokens, 100));
    benchmark::DoNotOptimize(tokens);
  }
}
BENCHMARK(FromJsonJsmn)->Name("command_from_json/jsmn");

#ifdef QLN_HAVE_RAPIDJSON
// The document alone, members not looked at; it takes the commas behind last members only on request.
void FromJsonRapidJson(benchmark::State& run) {
  const std::string text = JsonText();
  for (auto _ : run) {
    rapidjson::Document document;
    document.Parse<rapidjson::kParseTrailingCommasFlag>(text.c_str());
    Require(!document.HasParseError() && document.HasMember("MediaCmd"), "rapidjson reads");
    benchmark::DoNotOptimize(document);
  }
}
BENCHMARK(FromJsonRapidJson)->Name("command_from_json/rapidjson");
#endif

}  // namespace
