// qlnmedia metadata: shows and edits the clip information of the default store or of a user file, by tag
// name.

#include <fcntl.h>
#include <pwd.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "commands.h"
#include "memory_watch.h"
#include "output.h"
#include "qlnmedia/clip_info.h"
#include "qlnmedia/text.h"
#include "value_hints.h"

namespace qlnmedia {

namespace {

struct MetadataArguments {
  std::string file;
  std::string tag;
  std::string value;
  std::string path;
  bool json = false;
  bool all = false;
};

std::string TextOf(const ClipInfoValue& value) {
  if (const uint32_t* const number = std::get_if<uint32_t>(&value)) return std::to_string(*number);
  return std::get<std::string>(value);
}

std::vector<std::string> TagNames() {
  std::vector<std::string> names;
  for (const ClipInfoField& field : ClipInfoFields()) names.emplace_back(field.name);
  return names;
}

void ListNames() {
  for (const ClipInfoField& field : ClipInfoFields())
    Print(std::string(field.name) + (field.isNumber ? " (number)\n" : "\n"));
}

void List(const MetadataArguments& options) {
  if (options.all) return ListNames();
  const std::vector<ClipInfoEntry> entries = ClipInfoStore(options.file, true).ReadAll();
  if (options.json) return Print(ClipInfoJson(entries) + "\n");
  size_t width = 0;
  for (const auto& [field, value] : entries) width = std::max(width, std::strlen(field.name));
  const Style style = Style::ForStream(stdout);
  for (const auto& [field, value] : entries)
    Print(style.Name(PadRight(field.name, width)) + "  " + Printable(TextOf(value)) + "\n");
}

// Where the utility layer puts the default store (kxutil.h); a folder that is not absolute does not count.
std::string DefaultStorePath() {
  const char* const configured = std::getenv("XDG_CONFIG_HOME");
  if (configured != nullptr && *configured == '/') return std::string(configured) + "/tarnwick/settings.db";
  const char* const home = std::getenv("HOME");
  std::string folder = home != nullptr && *home == '/' ? home : "";
  const passwd* const user = folder.empty() ? getpwuid(getuid()) : nullptr;
  if (user != nullptr) folder = user->pw_dir;
  return folder.empty() ? folder : folder + "/.config/tarnwick/settings.db";
}

void Where(const MetadataArguments& options) {
  const std::string path = options.file.empty() ? DefaultStorePath() : options.file;
  if (path.empty()) throw Error("default store", "has no place", "set HOME or XDG_CONFIG_HOME");
  Print(path + "\n");
}

void Get(const MetadataArguments& options) {
  const ClipInfoField field = FindClipInfoField(options.tag);
  const ClipInfoStore store(options.file, true);
  const std::optional<ClipInfoValue> value = store.Read(field);
  if (!value) throw Error(store.name(), std::string(field.name) + " is not set");
  Print(TextOf(*value) + "\n");
}

void Set(const MetadataArguments& options) {
  const ClipInfoField field = FindClipInfoField(options.tag);
  const ClipInfoValue value = ParseClipInfoValue(field, options.value);
  ClipInfoStore store(options.file, false);
  store.Write({field, value});
  store.Save();
}

void Unset(const MetadataArguments& options) {
  const ClipInfoField field = FindClipInfoField(options.tag);
  ClipInfoStore store(options.file, true);
  store.Write({field, std::nullopt});
  store.Save();
}

void Export(const MetadataArguments& options) {
  const std::vector<ClipInfoEntry> entries = ClipInfoStore(options.file, true).ReadAll();
  RequireMemory();
  if (options.path == "-") return Print(ClipInfoJson(entries) + "\n");
  WriteClipInfoFile(entries, options.path);
}

std::string ReadWhole(const std::string& path) {
  const bool fromInput = path == "-";
  const int input = fromInput ? STDIN_FILENO : open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (input < 0) throw Error(path, std::string("cannot be opened: ") + std::strerror(errno));
  std::string text;
  char block[4096];
  ssize_t got = 0;
  while ((got = read(input, block, sizeof block)) > 0 || (got < 0 && errno == EINTR))
    text.append(block, static_cast<size_t>(std::max<ssize_t>(got, 0)));
  const int reason = errno;
  if (!fromInput) close(input);
  if (got < 0) throw Error(path, std::string("cannot be read: ") + std::strerror(reason));
  return text;
}

// All of it is understood before any of it is changed.
void Import(const MetadataArguments& options) {
  const std::vector<ClipInfoChange> changes = ParseClipInfoJson(ReadWhole(options.path), options.path);
  ClipInfoStore store(options.file, false);
  store.Write(changes);
  RequireMemory();
  store.Save();
}

CLI::App* AddAction(CLI::App* command, const std::shared_ptr<MetadataArguments>& options, const char* name,
                    const char* help, void (*action)(const MetadataArguments&)) {
  CLI::App* const sub = command->add_subcommand(name, help);
  sub->add_option("--file", options->file,
                  "A user file such as UserMetadata.xml in place of the default store")
      ->check(OffersFiles({".xml"}));
  sub->callback([options, action] { action(*options); });
  return sub;
}

}  // namespace

void AddMetadataCommand(CLI::App& app) {
  CLI::App* const command =
      app.add_subcommand("metadata", "Show and edit the stored clip information by tag name");
  command->footer(
      "The default store is $XDG_CONFIG_HOME/tarnwick/settings.db, or ~/.config/tarnwick/settings.db; "
      "it is made when the first tag is set.");
  command->require_subcommand(1);
  auto options = std::make_shared<MetadataArguments>();
  CLI::App* const list = AddAction(command, options, "list", "Show all tags that are set", List);
  list->add_flag("--json", options->json, "Print JSON for programs instead of text");
  list->add_flag("--all", options->all, "Name every tag there is instead");
  AddAction(command, options, "where", "Print where the tags are stored", Where);
  CLI::App* const get = AddAction(command, options, "get", "Print the value of one tag", Get);
  get->add_option("TAG", options->tag, "The tag, as Title or FileSize")->check(Offers(TagNames))->required();
  CLI::App* const set =
      AddAction(command, options, "set", "Set one tag; a user file is made if it is not there", Set);
  set->add_option("TAG", options->tag, "The tag, as Title or FileSize")->check(Offers(TagNames))->required();
  set->add_option("VALUE", options->value, "A text, or a number (decimal or 0x)")->required();
  CLI::App* const unset = AddAction(command, options, "unset", "Remove one tag", Unset);
  unset->add_option("TAG", options->tag, "The tag, as Title or FileSize")
      ->check(Offers(TagNames))
      ->required();
  CLI::App* const out = AddAction(command, options, "export", "Write all tags that are set as JSON", Export);
  out->add_option("OUT", options->path, "A file, or - for standard output")
      ->check(OffersFiles({".json"}))
      ->required();
  CLI::App* const in =
      AddAction(command, options, "import", "Set the tags of such a JSON text; null removes one", Import);
  in->add_option("IN", options->path, "A file, or - for standard input")
      ->check(OffersFiles({".json"}))
      ->required();
}

}  // namespace qlnmedia
