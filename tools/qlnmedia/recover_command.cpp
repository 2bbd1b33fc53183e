// qlnmedia recover: what a change in place left behind that was cut off.

#include <CLI/CLI.hpp>
#include <memory>
#include <string>

#include "commands.h"
#include "inputs.h"
#include "output.h"
#include "qlnmedia/patch.h"
#include "sandbox.h"
#include "value_hints.h"

namespace qlnmedia {

namespace {

void Run(const std::string& file) {
  ConfineCommand({{}, {file, FolderOfPath(file)}});
  switch (RecoverFile(file)) {
    case Recovery::kNothing:
      return Print("nothing to recover\n");
    case Recovery::kUntouched:
      return Print("the change was cut off before the file was touched; its journal is taken away\n");
    case Recovery::kPutBack:
      return Print("the file is as it was before the change\n");
  }
}

}  // namespace

void AddRecoverCommand(CLI::App& app) {
  CLI::App* const command =
      app.add_subcommand("recover", "Put a file back where patch --in-place was cut off");
  auto file = std::make_shared<std::string>();
  command->add_option("FILE", *file, "The file that was being changed")
      ->check(OffersFiles(MediaEndings))
      ->required();
  command->callback([file] { Run(*file); });
}

}  // namespace qlnmedia
