// qlnmedia command: makes the text of a transport command, and turns such texts from one form into the other.

#include <fmt/format.h>

#include <CLI/CLI.hpp>
#include <array>
#include <cmath>
#include <fstream>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "command_members.h"
#include "commands.h"
#include "output.h"
#include "qlnmedia/command_text.h"
#include "qlnutil/mediacmd.h"
#include "timecode/kxtimecode.h"
#include "value_hints.h"
#include "words.h"

namespace qlnmedia {

namespace {

// Frames as "HH:MM:SS:FF" or as a number; empty where the option was not given.
using Point = std::string;

struct CommandArguments {
  std::string word;
  std::string file;
  int32_t channel = -1;
  int32_t video = -1, audio = -1, info = -1;
  double speed = 100;
  Point position, start, end;
  std::string state;
  int32_t alternate = -1;
  std::vector<std::string> flags;
  std::string clip, name;
  std::string type;
  bool xml = false;
  bool json = false;
  bool strictJson = false;

  CommandForm FormOr(CommandForm usual) const {
    if (strictJson) return CommandForm::kStrictJson;
    return xml ? CommandForm::kXml : json ? CommandForm::kJson : usual;
  }
};

std::vector<std::string> CommandWords() {
  std::vector<std::string> all = {"convert"};
  for (uint32_t cmd = ctStop; cmd <= ctSwitch; ++cmd) all.push_back(Lower(CommandWord(cmd)));
  return all;
}

uint32_t CommandOf(const std::string& word) {
  for (uint32_t cmd = ctStop; cmd <= ctSwitch; ++cmd) {
    if (Lower(CommandWord(cmd)) == Lower(word)) return cmd;
  }
  RefuseUsage(word + " is no command; " + WordsThereAre(word, CommandWords()));
}

std::vector<std::string> FlagWords() {
  std::vector<std::string> all;
  for (const std::string_view known : CommandFlagWords()) all.emplace_back(known);
  return all;
}

uint32_t FlagOf(const std::string& word) {
  uint32_t flag = 0;
  if (cfFromString(word.c_str(), &flag) == 0) return flag;
  RefuseUsage("--flag: " + word + " is no flag; " + WordsThereAre(word, FlagWords()));
}

// The types that have a word, and in `words` those words.
std::optional<uint32_t> FindType(const std::string& word, std::vector<std::string>* words = nullptr) {
  for (uint32_t type = 0; type <= 0xFF; ++type) {
    const std::string known(TimecodeTypeWord(static_cast<uint8_t>(type)));
    if (known.empty()) continue;
    if (known == Lower(word)) return type;
    if (words != nullptr) words->push_back(known);
  }
  return {};
}

std::vector<std::string> TypeWords() {
  std::vector<std::string> all;
  FindType("", &all);
  return all;
}

uint32_t TypeOf(const std::string& word) {
  if (const std::optional<uint32_t> type = FindType(word)) return *type;
  RefuseUsage("--tctype: " + word + " is no timecode type; " + WordsThereAre(word, TypeWords()));
}

// Identifiers stand far apart, the last ones a little above a million.
std::vector<std::string> StateWords() {
  constexpr uint32_t kBehindLast = 1'200'000;
  std::vector<std::string> all;
  char word[GS_WORD_SIZE] = {};
  for (uint32_t state = 0; state < kBehindLast; ++state) {
    if (gsToString(state, word) == 0) all.emplace_back(word);
  }
  return all;
}

// How the points of a command's text count, by the first that says so; both forms call it "TcType".
std::optional<uint32_t> TypeIn(const std::string& text) {
  constexpr std::string_view kName = "TcType";
  constexpr std::string_view kQuotes = "\"'";
  for (size_t at = text.find(kName); at != std::string::npos; at = text.find(kName, at + 1)) {
    // A quote of its own stands behind the name in JSON.
    const size_t value = text.find_first_not_of(" \t\r\n\"':=", at + kName.size());
    const size_t end = value == std::string::npos ? value : text.find_first_of(kQuotes, value);
    if (end == std::string::npos) return {};
    if (const std::optional<uint32_t> type = FindType(text.substr(value, end - value))) return type;
  }
  return {};
}

int32_t PointOf(const Point& text, uint32_t type, const char* option) {
  uint32_t frames = 0;
  if (TimeCodeFromString(text.c_str(), type, &frames) != 0) {
    RefuseUsage(std::string(option) + ": " + text +
                " is no timecode such as 01:00:00:00 and no number of frames");
  }
  return static_cast<int32_t>(frames);
}

// Of a fresh record, whose texts are all zeros.
void SetTexts(MediaCmd& command, const CommandArguments& options) {
  // The writers leave out a name that reaches the record's last two bytes.
  constexpr size_t kLongestName = sizeof command.FileName - 2;
  if (options.clip.size() >= sizeof command.ClipID)
    RefuseUsage("--clip: a clip identifier has 8 characters at most");
  if (options.name.size() > kLongestName) RefuseUsage("--file: a file name has 4101 characters at most");
  options.clip.copy(command.ClipID, sizeof command.ClipID);
  options.name.copy(command.FileName, sizeof command.FileName);
}

// Fields whose options were given become valid; the rest is repaired as hosts do before they send a command.
MediaCmd MakeCommand(const CommandArguments& options, const CLI::App& given, uint32_t type) {
  MediaCmd command;
  initMediaCmd(&command, CommandOf(options.word));
  command.Channel = options.channel;
  const auto take = [&](const char* option, uint32_t flag) {
    const bool isGiven = given.count(option) != 0;
    if (isGiven) command.Flags |= flag;
    return isGiven;
  };
  if (take("--speed", CF_USE_SPEED)) {
    const double units = options.speed / 100 * MEDIACMD_PLAY_SPEED;
    if (!(std::fabs(units) < MEDIACMD_NO_SPEED)) RefuseUsage("--speed: the percentage is out of range");
    command.Speed = static_cast<int32_t>(std::lround(units));
  }
  if (take("--video", CF_USE_PRESETS)) command.VideoChannels = options.video;
  if (take("--audio", CF_USE_PRESETS)) command.AudioChannels = options.audio;
  if (take("--info", CF_USE_PRESETS)) command.InfoChannels = options.info;
  if (take("--position", CF_USE_POSITION)) command.Position = PointOf(options.position, type, "--position");
  if (take("--start", CF_USE_START)) command.Start = PointOf(options.start, type, "--start");
  if (take("--end", CF_USE_END)) command.End = PointOf(options.end, type, "--end");
  if (take("--alternate", CF_USE_CMD_ALT)) command.CmdAlt = options.alternate;
  if (take("--state", CF_USE_CMD_ALT)) {
    uint32_t state = 0;
    if (gsFromString(options.state.c_str(), &state) != 0)
      RefuseUsage("--state: " + options.state + " is no state value");
    command.CmdAlt = static_cast<int32_t>(state);
  }
  const bool clip = take("--clip", CF_USE_CLIP_ID);
  const bool file = take("--file", CF_USE_CLIP_ID);
  if (clip || file) SetTexts(command, options);
  for (const std::string& word : options.flags) command.Flags |= FlagOf(word);
  fixMediaCmd(&command, 0);
  return command;
}

// Piece by piece: what is read and not what could be read is what it costs.
std::string ReadText(const std::string& path) {
  constexpr size_t kMost = size_t{64} << 20;
  std::ifstream file(path, std::ios::binary);
  if (!file) throw Error(path, "cannot be opened");
  std::string text;
  std::array<char, 65536> piece{};
  while (file.read(piece.data(), piece.size()), file.gcount() != 0) {
    text.append(piece.data(), static_cast<size_t>(file.gcount()));
    if (text.size() >= kMost) throw Error(path, "is too long for a command");
  }
  if (file.bad() || !file.eof()) throw Error(path, "cannot be read");
  return text;
}

// Reads and prints a command, and names what of a JSON text has no place in the other: its reader takes about
// half of an object's members, and passes over what it does not know.
void Convert(const CommandArguments& options, std::optional<uint32_t> asked) {
  const std::string text = ReadText(options.file);
  const uint32_t type = asked.value_or(TypeIn(text).value_or(TypeOf("frames")));
  MediaCmd command;
  const bool wasJson = ReadCommandText(text, type, options.file, command) == CommandForm::kJson;
  const CommandForm form = options.FormOr(wasJson ? CommandForm::kXml : CommandForm::kJson);
  std::vector<std::string> lost;
  if (wasJson) {
    MediaCmd copy = command;  // writing may change a record
    lost = LostMembers(CommandMembers(text), CommandMembers(CommandText(copy, CommandForm::kJson, type)));
  }
  Print(CommandText(command, form, type) + "\n");
  if (lost.empty()) return;
  std::string names;
  for (const std::string& name : lost) names += (names.empty() ? "" : ", ") + name;
  FlushOutput();
  PrintError(fmt::format("{} {}: not carried over: {}\n", Style::ForStream(stderr).Warning("qlnmedia:"),
                         options.file, names));
}

void Run(const CommandArguments& options, const CLI::App& given) {
  std::optional<uint32_t> asked;
  if (!options.type.empty()) asked = TypeOf(options.type);
  if (options.word == "convert") {
    if (options.file.empty()) RefuseUsage("convert: give the FILE that holds the command");
    return Convert(options, asked);
  }
  if (!options.file.empty())
    RefuseUsage("a FILE goes with convert; a file name of the clip goes behind --file");
  const uint32_t type = asked.value_or(TypeOf("frames"));
  MediaCmd command = MakeCommand(options, given, type);
  Print(CommandText(command, options.FormOr(CommandForm::kXml), type) + "\n");
}

}  // namespace

void AddCommandCommand(CLI::App& app) {
  CLI::App* const command = app.add_subcommand(
      "command", "Make the text of a transport command, or convert one between XML and JSON");
  auto options = std::make_shared<CommandArguments>();
  command->add_option("WORD", options->word, "play, stop, record, getvalue ... or convert")
      ->check(Offers(CommandWords))
      ->required();
  command
      ->add_option("FILE", options->file,
                   "With convert: the text of a command; comes out in the other form, and what of "
                   "JSON is not carried over is named")
      ->check(OffersFiles({".xml", ".json"}));
  command->add_option("--channel", options->channel, "Channel number");
  command->add_option("--speed", options->speed, "Percent of forward play");
  command->add_option("--video", options->video, "Video channel mask");
  command->add_option("--audio", options->audio, "Audio channel mask");
  command->add_option("--info", options->info, "Info channel mask");
  command->add_option("--position", options->position, "Timecode or number of frames");
  command->add_option("--start", options->start, "Timecode or number of frames");
  command->add_option("--end", options->end, "Timecode or number of frames");
  CLI::Option* const alternate =
      command->add_option("--alternate", options->alternate, "Second operand as a number");
  command
      ->add_option("--state", options->state, "Second operand as a state value's word, such as channelname")
      ->check(Offers(StateWords))
      ->excludes(alternate);
  command->add_option("--flag", options->flags, "A flag's word, such as loop or deferred; may be repeated")
      ->check(Offers(FlagWords))
      ->take_all()
      ->allow_extra_args(false);
  command->add_option("--clip", options->clip, "Clip identifier");
  command->add_option("--file", options->name, "File name of the clip")->check(OffersFiles());
  command
      ->add_option("--tctype", options->type,
                   "Timecode type, such as pal, drop-frame or 59.94; default: with convert what the text "
                   "says, else frames")
      ->check(Offers(TypeWords));
  CLI::Option* const xml = command->add_flag("--xml", options->xml, "Print XML (the default)");
  CLI::Option* const json =
      command->add_flag("--json", options->json, "Print the library's own JSON, which strict parsers refuse");
  json->excludes(xml);
  command->add_flag("--strict-json", options->strictJson, "Print JSON for every parser, such as jq")
      ->excludes(xml)
      ->excludes(json);
  command->callback([options, command] { Run(*options, *command); });
}

}  // namespace qlnmedia
