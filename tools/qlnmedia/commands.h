// The subcommands of qlnmedia. Each stands in a file of its own, which adds its options to the application
// and a callback that does the work: it prints through output.h, throws Error when it fails, and ToolExit
// when another status than success is its result.
#ifndef TOOLS_QLNMEDIA_COMMANDS_H
#define TOOLS_QLNMEDIA_COMMANDS_H

namespace CLI {
class App;
}

namespace qlnmedia {

void AddInspectCommand(CLI::App& app);
void AddPatchCommand(CLI::App& app);
void AddRecoverCommand(CLI::App& app);
void AddCheckCommand(CLI::App& app);
void AddCaptionsCommand(CLI::App& app);
void AddFormatCommand(CLI::App& app);
void AddMetadataCommand(CLI::App& app);
void AddCommandCommand(CLI::App& app);
void AddTransportCommand(CLI::App& app);

// Adds them all, in the order in which the help lists them.
inline void AddCommands(CLI::App& app) {
  AddInspectCommand(app);
  AddPatchCommand(app);
  AddRecoverCommand(app);
  AddCheckCommand(app);
  AddCaptionsCommand(app);
  AddFormatCommand(app);
  AddMetadataCommand(app);
  AddCommandCommand(app);
  AddTransportCommand(app);
}

}  // namespace qlnmedia

#endif
