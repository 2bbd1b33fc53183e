// Runs encoders and readers, and parses what the readers print.

#include "support/media.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <optional>
#include <sstream>
#include <utility>

#include "support/readings.h"

namespace qln::test {

namespace fs = std::filesystem;

// What encoders made, for all programs, and where the environment says so for those of other builds too.
static std::string MadePath(const std::string& name) {
  const char* const shared = std::getenv("QLN_MADE_DIR");
  const std::string folder = shared != nullptr ? shared : QLN_MEDIA_DIR "/made";
  fs::create_directories(folder);
  return folder + "/" + name;
}

static CommandResult RunAnew(const std::string& command, int secondsLimit) {
  // The command goes through a file, so that its quotes need no second layer.
  std::string quoted = "'";
  for (const char c : command) quoted += c == '\'' ? std::string("'\\''") : std::string(1, c);
  quoted += "'";
  const std::string line =
      "timeout " + std::to_string(secondsLimit) + " sh -c " + quoted + " 2>&1 </dev/null";
  FILE* const pipe = popen(line.c_str(), "r");
  if (pipe == nullptr) return {127, "cannot start a shell"};
  CommandResult result{0, {}};
  std::array<char, 65536> buffer;
  for (size_t n; (n = std::fread(buffer.data(), 1, buffer.size(), pipe)) != 0;)
    result.output.append(buffer.data(), n);
  const int status = pclose(pipe);
  result.exitCode = WIFEXITED(status) ? WEXITSTATUS(status) : 128;
  return result;
}

CommandResult Run(const std::string& command, int secondsLimit) {
  const Readings readings(MadePath("readings"));
  const std::optional<std::string> name = readings.NameOf(command);
  if (name.has_value()) {
    if (std::optional<CommandResult> kept = readings.Find(*name)) return std::move(*kept);
  }
  CommandResult result = RunAnew(command, secondsLimit);
  if (name.has_value()) readings.Keep(*name, command, result);
  return result;
}

std::string MediaPath(const std::string& name) {
  // Shards of one program run at the same time, and its tests write files of the same names.
  const char* const shard = std::getenv("GTEST_SHARD_INDEX");
  const std::string folder = QLN_MEDIA_DIR + (shard != nullptr ? "/shard-" + std::string(shard) : "");
  fs::create_directories(folder);
  return folder + "/" + name;
}

namespace {

// Held by one test program at a time, as long as it lives.
class FileLock {
 public:
  explicit FileLock(const std::string& path)
      : file_(open(path.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0644)) {
    if (file_ >= 0) flock(file_, LOCK_EX);
  }
  ~FileLock() {
    if (file_ >= 0) close(file_);
  }
  FileLock(const FileLock&) = delete;
  FileLock& operator=(const FileLock&) = delete;

 private:
  int file_;
};

}  // namespace

std::string MediaFile(const std::string& name, const std::string& command, int secondsLimit) {
  const std::string path = MadePath(name);
  const std::string recipe = path + ".recipe";
  const auto isMade = [&] {
    const Bytes made = ReadFile(recipe);
    return fs::exists(path) && std::string(made.begin(), made.end()) == command;
  };
  if (isMade()) return path;

  // One program makes it, and no other puts a new one in its place while it is read.
  const FileLock lock(path + ".lock");
  if (isMade()) return path;
  const fs::path beside = MadePath("new-" + std::to_string(getpid()) + "-" + name);
  std::string filled = command;
  for (size_t at; (at = filled.find("{out}")) != std::string::npos;) filled.replace(at, 5, beside.string());
  const CommandResult result = Run(filled, secondsLimit);
  if (result.exitCode != 0 || !fs::exists(beside)) {
    ADD_FAILURE() << "cannot make " << name << ": " << filled << "\n" << result.output;
    return path;
  }
  fs::rename(beside, path);
  WriteFile(recipe, Bytes(command.begin(), command.end()));
  return path;
}

int64_t TracedUnit::value(const std::string& elementName, int64_t missing) const {
  for (const TracedElement& element : elements) {
    if (element.name == elementName) return element.value;
  }
  return missing;
}

bool TracedUnit::has(const std::string& elementName) const {
  for (const TracedElement& element : elements) {
    if (element.name == elementName) return true;
  }
  return false;
}

// "8           profile_idc                    01100100 = 100"
static std::optional<TracedElement> ParseElement(const std::string& line) {
  std::istringstream words(line);
  TracedElement element;
  std::string bits;
  std::string equals;
  if (!(words >> element.position >> element.name >> bits >> equals >> element.value) || equals != "=")
    return {};
  if (bits.find_first_not_of("01") != std::string::npos || !(words >> std::ws).eof()) return {};
  return element;
}

// "[trace_headers @ 0x...] " stands in front of a heading or an element; other lines are none of ours.
static std::vector<TracedUnit> ParseTrace(const std::string& text) {
  std::vector<TracedUnit> units;
  std::istringstream lines(text);
  for (std::string line; std::getline(lines, line);) {
    const size_t end = line.find("] ");
    if (line.rfind("[trace_headers", 0) != 0 || end == std::string::npos) continue;
    line.erase(0, end + 2);
    if (line.empty()) continue;
    if (std::isalpha(static_cast<unsigned char>(line[0])) != 0) {
      units.push_back({line, {}});
    } else if (std::optional<TracedElement> element = ParseElement(line)) {
      if (units.empty()) units.push_back({});
      units.back().elements.push_back(std::move(*element));
    }
  }
  return units;
}

std::vector<TracedUnit> TraceHeaders(const std::string& file, const std::string& inputOptions) {
  return ParseTrace(Run("ffmpeg -hide_banner -v trace -nostdin " + inputOptions + " -i '" + file +
                        "' -map 0:v:0 -c copy -bsf:v trace_headers -f null - 2>&1 | grep '^\\[trace_headers'")
                        .output);
}

std::vector<Bytes> SplitByteStream(const Bytes& stream) {
  std::vector<size_t> starts;
  for (size_t i = 0; i + 3 <= stream.size(); ++i) {
    if (stream[i] == 0 && stream[i + 1] == 0 && stream[i + 2] == 1) starts.push_back(i + 3);
  }
  std::vector<Bytes> units;
  for (size_t n = 0; n < starts.size(); ++n) {
    size_t end = n + 1 < starts.size() ? starts[n + 1] - 3 : stream.size();
    while (end > starts[n] && stream[end - 1] == 0) --end;
    units.emplace_back(stream.begin() + static_cast<std::ptrdiff_t>(starts[n]),
                       stream.begin() + static_cast<std::ptrdiff_t>(end));
  }
  return units;
}

}  // namespace qln::test
