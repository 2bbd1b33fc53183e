// The reader's two ways to the committed settings, and what a missing row means in a damaged store.

#include "kxutil/settings_reader.h"

#include <unistd.h>

#include <utility>

namespace qln {

SettingsReader::SettingsReader(std::string path) : path_(std::move(path)), process_(getpid()) {}

bool SettingsReader::belongsHere() const { return process_ == getpid(); }

ReadOutcome SettingsReader::Read(const ConfigName& name, std::optional<ConfigValue>& value) {
  FileState state;
  if (!LookAt(path_, state, problem_)) return ReadOutcome::kFailed;
  if (!state.exists || state.size == 0) {
    file_.reset();
    copy_.reset();
    return ReadOutcome::kDone;
  }
  if (copy_ == nullptr || StateOfDatabase(TargetOf(path_)) != copyState_) {
    copy_.reset();
    const ReadOutcome outcome = ReadFile(name, state, value);
    if (outcome != ReadOutcome::kFailed) return outcome;
  }
  const ReadOutcome outcome = ReadCopy(name, value);
  // Removed in between, it has no keys.
  std::string ignored;
  const bool gone = outcome == ReadOutcome::kFailed && LookAt(path_, state, ignored) && !state.exists;
  return gone ? ReadOutcome::kDone : outcome;
}

// Anything but data and damage (a lock, a journal, a right that is missing) is left to the copy.
ReadOutcome SettingsReader::ReadFile(const ConfigName& name, const FileState& state,
                                     std::optional<ConfigValue>& value) {
  if (file_ == nullptr || !state.SameFile(fileState_) || file_->connection.HasMoved()) {
    file_.reset();
    FileForm form;
    if (!FormOfFile(path_, form, problem_)) return ReadOutcome::kFailed;
    // A log is not opened: that would put files beside the database, and closing it would work them in.
    if (form == FileForm::kWithLog) return ReadOutcome::kFailed;
    auto view = std::make_unique<View>();
    if (!view->connection.OpenFile(path_, std::nullopt)) return Trouble(view->connection);
    const ReadOutcome outcome = Attach(*view);
    if (outcome != ReadOutcome::kDone) return outcome;
    file_ = std::move(view);
    fileState_ = state;
  }
  const ReadOutcome outcome = ReadView(*file_, state, name, value);
  if (outcome == ReadOutcome::kFailed) file_.reset();
  return outcome;
}

ReadOutcome SettingsReader::ReadCopy(const ConfigName& name, std::optional<ConfigValue>& value) {
  if (copy_ == nullptr) {
    const std::string target = TargetOf(path_);
    const DatabaseState state = StateOfDatabase(target);
    std::string image;
    auto view = std::make_unique<View>();
    if (!CommittedCopy(target, image, problem_)) return ReadOutcome::kFailed;
    if (!view->connection.OpenImage(image)) return Trouble(view->connection);
    const ReadOutcome outcome = Attach(*view);
    if (outcome != ReadOutcome::kDone) return outcome;
    copy_ = std::move(view);
    copyState_ = state;
  }
  return ReadView(*copy_, copyState_.file, name, value);
}

ReadOutcome SettingsReader::Attach(View& view) {
  view.table.emplace(view.connection);
  const TableState state = view.table->Attach();
  if (state == TableState::kReady) return ReadOutcome::kDone;
  problem_ = view.table->problem();
  if (state != TableState::kDamaged) return ReadOutcome::kFailed;
  FileForm form = FileForm::kPlain;
  std::string ignored;
  if (FormOfFile(path_, form, ignored) && form == FileForm::kNoDatabase) return ReadOutcome::kFailed;
  return ReadOutcome::kDamaged;
}

ReadOutcome SettingsReader::ReadView(View& view, const FileState& state, const ConfigName& name,
                                     std::optional<ConfigValue>& value) {
  switch (view.table->Read(name, value)) {
    case RowState::kFound:
      return ReadOutcome::kDone;
    case RowState::kDamaged:
      problem_ = "its value is damaged";
      return ReadOutcome::kDamagedValue;
    case RowState::kFailed:
      return Trouble(view.connection);
    case RowState::kAbsent:
      break;
  }
  // In a whole store the key is absent. In a damaged one it may be the very row that cannot be found.
  if (!view.checked || view.checkedState != state) {
    view.checked = view.table->Check();
    view.checkedState = state;
    if (view.checked == CheckResult::kFailed) {
      view.checked.reset();
      return Trouble(view.connection);
    }
  }
  if (view.checked == CheckResult::kSound) return ReadOutcome::kDone;
  problem_ =
      view.checked == CheckResult::kDamaged ? "database disk image is malformed" : "values in it are damaged";
  return ReadOutcome::kDamaged;
}

ReadOutcome SettingsReader::Trouble(SqliteConnection& connection) {
  problem_ = connection.problem();
  return connection.damaged() ? ReadOutcome::kDamaged : ReadOutcome::kFailed;
}

}  // namespace qln
