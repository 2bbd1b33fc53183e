// Keeps what ffmpeg and ffprobe print, one file a command.

#include "support/readings.h"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <set>
#include <sstream>
#include <string_view>
#include <vector>

#include "support/media.h"

namespace qln::test {
namespace {

namespace fs = std::filesystem;

constexpr size_t kLargestKept = 4 << 20;

// FNV-1a over eight bytes at a time, and the length: nobody makes these files collide on purpose.
struct Digest {
  uint64_t value = 0xCBF29CE484222325;
  void Add(std::string_view bytes) {
    for (size_t at = 0; at < bytes.size(); at += sizeof(uint64_t)) {
      uint64_t word = 0;
      const std::string_view part = bytes.substr(at, sizeof word);
      std::copy(part.begin(), part.end(), reinterpret_cast<char*>(&word));
      value = (value ^ word) * 0x100000001B3;
      value ^= value >> 29;
    }
    value = (value ^ bytes.size()) * 0x100000001B3;
  }
};

std::string ContentOf(const fs::path& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

// A simple command of a pipeline and its words, without their quotes. Empty for what a shell does more with.
std::vector<std::vector<std::string>> PipelineOf(const std::string& command) {
  std::vector<std::vector<std::string>> commands(1);
  std::string word;
  bool inWord = false;
  char quote = 0;
  const auto end = [&] {
    if (inWord) commands.back().push_back(std::exchange(word, {}));
    inWord = false;
  };
  for (size_t at = 0; at < command.size(); ++at) {
    const char c = command[at];
    if (quote != 0) {
      if (c == quote) {
        quote = 0;
      } else if (quote == '"' && (c == '$' || c == '`' || c == '\\')) {
        return {};
      } else {
        word += c;
      }
    } else if (c == '\'' || c == '"') {
      quote = c;
      inWord = true;
    } else if (c == ' ') {
      end();
    } else if (c == '|') {
      end();
      commands.emplace_back();
    } else if (command.compare(at, 4, "2>&1") == 0) {
      at += 3;
    } else if (command.compare(at, 11, "2>/dev/null") == 0) {
      at += 10;
    } else if (std::string_view(";&<>()$`\\*?[]{}~#\n\t!").find(c) != std::string_view::npos) {
      return {};
    } else {
      word += c;
      inWord = true;
    }
  }
  end();
  return quote == 0 ? commands : std::vector<std::vector<std::string>>{};
}

bool OnlyReads(const std::vector<std::string>& words) {
  static const std::set<std::string> kFilters = {"awk",  "cut",  "grep", "head", "md5sum", "sed",
                                                 "sort", "tail", "tr",   "uniq", "wc"};
  if (words.empty()) return false;
  if (words[0] == "ffprobe") return true;
  if (words[0] == "ffmpeg") {
    // One output, which is standard output, and inputs that are files or made up.
    for (size_t at = 1; at + 1 < words.size(); ++at) {
      if (words[at] == "-i" && words[at + 1].find('/') == std::string::npos && words[at - 1] != "lavfi")
        return false;
    }
    return words.back() == "-" && std::count(words.begin(), words.end(), "-") == 1 &&
           std::count(words.begin(), words.end(), "-y") == 0 &&
           std::count(words.begin(), words.end(), "-f") >= 1;
  }
  return kFilters.contains(words[0]);
}

// The first line that names a version, asked once.
const std::string& ReaderVersion() {
  static const std::string version = [] {
    std::string text;
    FILE* const pipe = popen("ffmpeg -version 2>&1 | head -n 1; ffprobe -version 2>&1 | head -n 1", "r");
    if (pipe == nullptr) return text;
    std::array<char, 4096> buffer;
    for (size_t n; (n = fread(buffer.data(), 1, buffer.size(), pipe)) != 0;) text.append(buffer.data(), n);
    pclose(pipe);
    return text;
  }();
  return version;
}

// Each path in a command: from a slash in front of which no name stands to what cannot be part of one.
std::vector<std::pair<size_t, size_t>> PathsIn(const std::string& command) {
  std::vector<std::pair<size_t, size_t>> paths;
  for (size_t at = command.find('/'); at != std::string::npos; at = command.find('/', at)) {
    const size_t end = std::min(command.find_first_of(" '\"|:;,[]=", at), command.size());
    const bool begins =
        at == 0 || std::string_view(" '\"=:|").find(command[at - 1]) != std::string_view::npos;
    if (begins) paths.emplace_back(at, end);
    at = end;
  }
  return paths;
}

}  // namespace

std::optional<std::string> Readings::NameOf(const std::string& command) const {
  const auto pipeline = PipelineOf(command);
  if (pipeline.empty() || !std::all_of(pipeline.begin(), pipeline.end(), OnlyReads)) return std::nullopt;
  static const std::set<std::string> kLists = {".m3u8", ".mpd", ".txt", ".ffconcat", ".sdp", ""};
  Digest digest;
  digest.Add(ReaderVersion());
  size_t told = 0, files = 0;
  for (const auto& [begin, end] : PathsIn(command)) {
    const fs::path path = command.substr(begin, end - begin);
    if (path == "/dev/null") continue;
    if (!fs::is_regular_file(path) || kLists.contains(path.extension())) return std::nullopt;
    digest.Add(command.substr(told, begin - told));
    digest.Add(path.extension().string());
    digest.Add(ContentOf(path));
    told = end;
    ++files;
  }
  if (files == 0) return std::nullopt;
  digest.Add(command.substr(told));
  std::ostringstream name;
  name << std::hex << digest.value;
  return name.str();
}

std::optional<CommandResult> Readings::Find(const std::string& name) const {
  std::ifstream file(fs::path(folder_) / name, std::ios::binary);
  CommandResult result{0, {}};
  if (!(file >> result.exitCode) || file.get() != '\n') return std::nullopt;
  result.output.assign(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
  return result;
}

void Readings::Keep(const std::string& name, const std::string& command, const CommandResult& result) const {
  constexpr int kStopped = 124;  // by timeout(1); above it are signals and what could not be started
  if (result.exitCode >= kStopped || result.output.size() > kLargestKept) return;
  for (const auto& [begin, end] : PathsIn(command)) {
    const std::string path = command.substr(begin, end - begin);
    if (path != "/dev/null" && result.output.find(path) != std::string::npos) return;
  }
  std::error_code ignored;
  fs::create_directories(folder_, ignored);
  const fs::path beside = fs::path(folder_) / ("new-" + std::to_string(getpid()) + "-" + name);
  {
    std::ofstream file(beside, std::ios::binary);
    file << result.exitCode << '\n' << result.output;
    if (!file.flush()) return;
  }
  fs::rename(beside, fs::path(folder_) / name, ignored);
}

}  // namespace qln::test
