// What independent readers said of files, kept by the files' bytes: the same bytes are not read a second
// time, by another test or in another build.
#ifndef TESTS_SUPPORT_READINGS_H
#define TESTS_SUPPORT_READINGS_H

#include <optional>
#include <string>

namespace qln::test {

struct CommandResult;

class Readings {
 public:
  // `folder` keeps them; it is made with the first one.
  explicit Readings(std::string folder) : folder_(std::move(folder)) {}

  // The name under which the result of a command is kept: what it says, with the bytes of files in place of
  // their paths. None for a command that does more than let ffmpeg or ffprobe print what they find in whole
  // files.
  std::optional<std::string> NameOf(const std::string& command) const;
  std::optional<CommandResult> Find(const std::string& name) const;
  // A result that tells of the paths is not kept, nor one of a reader that was stopped.
  void Keep(const std::string& name, const std::string& command, const CommandResult& result) const;

 private:
  std::string folder_;
};

}  // namespace qln::test

#endif
