// Looks up what a command line names.

#include "inputs.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <array>
#include <cctype>
#include <filesystem>
#include <string_view>

#include "qlnmedia/error.h"
#include "value_hints.h"

namespace qlnmedia {

namespace {

namespace fs = std::filesystem;

constexpr char kStandardInput[] = "/dev/stdin";

// Endings of what is opened in a folder; a file of any other name is named by itself.
constexpr std::array<std::string_view, 36> kEndings = {
    ".mp4", ".m4v",  ".mov", ".qt",  ".3gp", ".3g2", ".ismv", ".cmfv", ".f4v", ".mkv",  ".mk3d", ".webm",
    ".ts",  ".m2ts", ".mts", ".trp", ".tp",  ".m2t", ".mxf",  ".gxf",  ".avi", ".flv",  ".wmv",  ".asf",
    ".mpg", ".mpeg", ".m2p", ".vob", ".m2v", ".264", ".h264", ".avc",  ".265", ".h265", ".hevc", ".dv"};

bool IsMediaName(const fs::path& path) {
  std::string ending = path.extension().string();
  std::transform(ending.begin(), ending.end(), ending.begin(),
                 [](unsigned char c) { return std::tolower(c); });
  return std::find(kEndings.begin(), kEndings.end(), ending) != kEndings.end();
}

bool IsHidden(const fs::path& path) { return path.filename().string().starts_with("."); }

// Links to folders are not followed: they may lead back.
void AddFolder(const fs::path& folder, const fs::path& root, std::vector<Input>& files) {
  std::error_code error;
  std::vector<fs::path> entries;
  for (fs::directory_iterator it(folder, error), end; !error && it != end; it.increment(error))
    entries.push_back(it->path());
  if (error) throw Error(folder.string(), "cannot be read: " + error.message());
  std::sort(entries.begin(), entries.end());
  for (const fs::path& entry : entries) {
    if (IsHidden(entry)) continue;
    const bool below = fs::is_directory(fs::symlink_status(entry, error));
    const bool file = !below && error != std::errc::io_error && fs::is_regular_file(entry, error);
    if (error == std::errc::io_error) throw Error(entry.string(), error.message());
    if (below) {
      AddFolder(entry, root, files);
    } else if (file && IsMediaName(entry)) {
      files.push_back({entry.string(), entry.lexically_relative(root).string()});
    }
  }
}

}  // namespace

std::vector<std::string> MediaEndings() { return {kEndings.begin(), kEndings.end()}; }

std::vector<std::string> CaptionEndings() { return {".scc", ".mcc", ".anc", ".srt", ".vtt"}; }

void AddInputOptions(CLI::App& command, InputOptions& options, const std::string& help) {
  command
      .add_option("FILE", options.paths,
                  help + "; several, folders with --recursive, or - for standard input")
      ->check(OffersFiles(MediaEndings))
      ->required();
  command.add_flag("-r,--recursive", options.recursive,
                   "Take the media files in folders and in those below them, by their endings");
  command.add_option("-j,--jobs", options.jobs, "Files to work on at a time")
      ->check(CLI::Range(1, 256))
      ->capture_default_str();
}

Inputs FindInputs(const InputOptions& options) {
  Inputs inputs;
  inputs.several = options.paths.size() > 1;
  size_t standardInputs = 0;
  for (const std::string& path : options.paths) {
    const bool dash = path == "-" || path == kStandardInput;
    if (dash && ++standardInputs > 1) throw CLI::ValidationError("FILE: standard input can be named once");
    std::error_code error;
    const bool folder = !dash && fs::is_directory(path, error);
    if (error == std::errc::io_error) throw Error(path, error.message());
    if (!folder) {
      inputs.files.push_back(
          {dash ? kStandardInput : path, dash ? "stdin" : fs::path(path).filename().string()});
      continue;
    }
    if (!options.recursive)
      throw Error(path, "is a directory", "name a media file, or take those in it with --recursive");
    inputs.several = true;
    const size_t before = inputs.files.size();
    AddFolder(path, path, inputs.files);
    if (inputs.files.size() == before) inputs.emptyFolders.push_back(path);
  }
  return inputs;
}

std::vector<std::string> ReadPlaces(const InputOptions& options, const Inputs& inputs) {
  std::vector<std::string> places = options.paths;
  std::error_code unknown;
  for (const Input& input : inputs.files) {
    if (fs::is_symlink(input.path, unknown)) places.push_back(input.path);
  }
  return places;
}

}  // namespace qlnmedia
