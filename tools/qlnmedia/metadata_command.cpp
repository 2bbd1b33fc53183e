// qlnmedia metadata: shows and edits the clip information of the default store or of a user file, by tag
// name.

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>

#include "base/error.h"
#include "base/text_file.h"
#include "commands.h"
#include "metadata_record.h"
#include "output.h"
#include "qlnutil/clipinfo/info_fields.h"

namespace qlnmedia {

namespace {

struct Options {
  std::string file;
  std::string tag;
  std::string value;
  std::string path;
  bool json = false;
  bool all = false;
};

std::string TextOf(const MetadataValue& value) {
  if (const uint32_t* const number = std::get_if<uint32_t>(&value)) return std::to_string(*number);
  return std::get<std::string>(value);
}

void ListNames() {
  for (const qln::InfoField& field : qln::kInfoSlots) {
    if (field.persistence != qln::Persistence::kNone) Print(std::string(field.name) + "\n");
  }
  for (const qln::InfoField& field : qln::kInfoNumbers) Print(std::string(field.name) + " (number)\n");
}

void List(const Options& options) {
  if (options.all) return ListNames();
  const auto values = MetadataStore(options.file, true).ReadAll();
  if (options.json) return Print(ToJson(values).dump(2) + "\n");
  size_t width = 0;
  for (const auto& [field, value] : values) width = std::max(width, std::string(field.name).size());
  const Style style = Style::ForStream(stdout);
  for (const auto& [field, value] : values) {
    Print(style.Name(PadRight(field.name, width)) + "  " + Printable(TextOf(value)) + "\n");
  }
}

void Get(const Options& options) {
  const MetadataField field = FindField(options.tag);
  const MetadataStore store(options.file, true);
  const std::optional<MetadataValue> value = store.Read(field);
  if (!value) throw Error(store.Name(), std::string(field.name) + " is not set");
  Print(TextOf(*value) + "\n");
}

void Set(const Options& options) {
  const MetadataField field = FindField(options.tag);
  const MetadataValue value = ParseValue(field, options.value);
  MetadataStore store(options.file, false);
  store.Write(field, value);
  store.Save();
}

void Unset(const Options& options) {
  const MetadataField field = FindField(options.tag);
  MetadataStore store(options.file, true);
  store.Write(field, std::nullopt);
  store.Save();
}

struct CloseFile {
  void operator()(std::FILE* file) const { std::fclose(file); }
};
using FilePointer = std::unique_ptr<std::FILE, CloseFile>;

// True for a pipe or a device, which takes bytes as they come and has no name to give to a whole file.
bool IsStream(const std::string& path) {
  std::error_code none;
  const std::filesystem::file_status status = std::filesystem::status(path, none);
  return std::filesystem::exists(status) && !std::filesystem::is_regular_file(status) &&
         !std::filesystem::is_directory(status);
}

void Export(const Options& options) {
  const std::string text = ToJson(MetadataStore(options.file, true).ReadAll()).dump(2) + "\n";
  if (options.path == "-") return Print(text);
  if (!IsStream(options.path)) return WriteTextFile(options.path, text);
  FilePointer file(std::fopen(options.path.c_str(), "wb"));
  const bool written = file != nullptr && std::fwrite(text.data(), 1, text.size(), file.get()) == text.size();
  if (!written || std::fclose(file.release()) != 0) throw Error(options.path, "cannot be written");
}

std::string ReadWhole(const std::string& path) {
  const bool fromInput = path == "-";
  FilePointer file(fromInput ? nullptr : std::fopen(path.c_str(), "rb"));
  std::FILE* const input = fromInput ? stdin : file.get();
  if (input == nullptr) throw Error(path, "cannot be opened");
  std::string text;
  char block[4096];
  while (const size_t count = std::fread(block, 1, sizeof block, input)) text.append(block, count);
  if (std::ferror(input) != 0) throw Error(path, "cannot be read");
  return text;
}

// All of it is understood before any of it is changed.
void Import(const Options& options) {
  const auto json = nlohmann::ordered_json::parse(ReadWhole(options.path), nullptr, false);
  if (json.is_discarded()) throw Error(options.path, "is no JSON");
  const auto changes = FromJson(json, options.path);
  MetadataStore store(options.file, false);
  for (const auto& [field, value] : changes) store.Write(field, value);
  store.Save();
}

CLI::App* AddAction(CLI::App* command, const std::shared_ptr<Options>& options, const char* name,
                    const char* help, void (*action)(const Options&)) {
  CLI::App* const sub = command->add_subcommand(name, help);
  sub->add_option("--file", options->file,
                  "A user file such as UserMetadata.xml in place of the default store");
  sub->callback([options, action] { action(*options); });
  return sub;
}

}  // namespace

void AddMetadataCommand(CLI::App& app) {
  CLI::App* const command =
      app.add_subcommand("metadata", "Show and edit the stored clip information by tag name");
  command->require_subcommand(1);
  auto options = std::make_shared<Options>();
  CLI::App* const list = AddAction(command, options, "list", "Show all tags that are set", List);
  list->add_flag("--json", options->json, "Print JSON for programs instead of text");
  list->add_flag("--all", options->all, "Name every tag there is instead");
  CLI::App* const get = AddAction(command, options, "get", "Print the value of one tag", Get);
  get->add_option("TAG", options->tag, "The tag, as Title or FileSize")->required();
  CLI::App* const set =
      AddAction(command, options, "set", "Set one tag; a user file is made if it is not there", Set);
  set->add_option("TAG", options->tag, "The tag, as Title or FileSize")->required();
  set->add_option("VALUE", options->value, "A text, or a number (decimal or 0x)")->required();
  CLI::App* const unset = AddAction(command, options, "unset", "Remove one tag", Unset);
  unset->add_option("TAG", options->tag, "The tag, as Title or FileSize")->required();
  CLI::App* const out = AddAction(command, options, "export", "Write all tags that are set as JSON", Export);
  out->add_option("OUT", options->path, "A file, or - for standard output")->required();
  CLI::App* const in =
      AddAction(command, options, "import", "Set the tags of such a JSON text; null removes one", Import);
  in->add_option("IN", options->path, "A file, or - for standard input")->required();
}

}  // namespace qlnmedia
