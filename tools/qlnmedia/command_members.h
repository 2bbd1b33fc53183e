// The members of the text of a command in its JSON form, and those that are lost on the way through a record.
#ifndef TOOLS_QLNMEDIA_COMMAND_MEMBERS_H
#define TOOLS_QLNMEDIA_COMMAND_MEMBERS_H

#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace qlnmedia {

// A member that is no object: its path below the outermost one, as "Cmd.Value", and its value as it is
// written, texts with their quotes.
using CommandMember = std::pair<std::string, std::string>;

// All members in order. Takes the form as it is written and read: commas may be missing or stand in front of
// a closing brace, and texts are not escaped but for their quotes.
std::vector<CommandMember> CommandMembers(std::string_view json);

// The paths of `before` that `after` does not have with the same value, each once. Numbers are the same where
// their low 32 bits are, and a text that only spells a value out ("String", "TcString") goes with that value.
std::vector<std::string> LostMembers(const std::vector<CommandMember>& before,
                                     const std::vector<CommandMember>& after);

}  // namespace qlnmedia

#endif
