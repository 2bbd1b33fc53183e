// Settings as rows: told apart from other databases by the exact text of the table, read under their
// checksums, and changed in a copy in memory only.

#include "kxutil/settings_table.h"

#include <cstring>
#include <tuple>
#include <utility>
#include <vector>

#include "kxutil/crc64.h"

namespace qln {
namespace {

// Names and texts are blobs, since their bytes need not be UTF-8; numbers are integers. The text of the table
// is what a settings store is told by, so that a changed one is never taken for it.
constexpr char kTable[] =
    "CREATE TABLE settings (section BLOB NOT NULL, key BLOB NOT NULL, value NOT NULL, sum INTEGER, "
    "PRIMARY KEY (section, key)) WITHOUT ROWID";
constexpr char kEarlierTable[] =
    "CREATE TABLE settings (section BLOB NOT NULL, key BLOB NOT NULL, value NOT NULL, "
    "PRIMARY KEY (section, key)) WITHOUT ROWID";
constexpr char kAddColumn[] = "ALTER TABLE settings ADD COLUMN sum INTEGER";
// "TNWK": the mark in the database's header by which a store is known whose table is damaged.
constexpr char kMark[] = "1414420299";
constexpr char kSetMark[] = "PRAGMA application_id = 1414420299";

constexpr char kSelect[] = "SELECT value, sum FROM settings WHERE section = ?1 AND key = ?2";
constexpr char kEarlierSelect[] = "SELECT value, NULL FROM settings WHERE section = ?1 AND key = ?2";
constexpr char kScan[] = "SELECT section, key, value, sum FROM settings";
constexpr char kEarlierScan[] = "SELECT section, key, value, NULL FROM settings";
constexpr char kUpsert[] =
    "INSERT INTO settings (section, key, value, sum) VALUES (?1, ?2, ?3, ?4) ON CONFLICT (section, key) DO "
    "UPDATE SET value = excluded.value, sum = excluded.sum";
constexpr char kRemove[] = "DELETE FROM settings WHERE section = ?1 AND key = ?2";
constexpr char kSetSum[] = "UPDATE settings SET sum = ?3 WHERE section = ?1 AND key = ?2";

// Covers the names too, so that no row can pass for another.
Crc64 SumOfNames(std::string_view section, std::string_view key) {
  Crc64 sum;
  sum.Add(uint64_t{section.size()});
  sum.Add(section);
  sum.Add(uint64_t{key.size()});
  sum.Add(key);
  return sum;
}
int64_t SumOf(std::string_view section, std::string_view key, uint64_t number) {
  Crc64 sum = SumOfNames(section, key);
  sum.Add("n");
  sum.Add(number);
  return static_cast<int64_t>(sum.value());
}
int64_t SumOf(std::string_view section, std::string_view key, std::string_view text) {
  Crc64 sum = SumOfNames(section, key);
  sum.Add("t");
  sum.Add(text);
  return static_cast<int64_t>(sum.value());
}

bool IsText(int type) { return type == SQLITE_BLOB || type == SQLITE_TEXT; }

// The checksum that a row should have.
int64_t SumOfRow(SqliteStatement& row, int column, std::string_view section, std::string_view key) {
  const int type = row.Type(column);
  if (type == SQLITE_INTEGER) return SumOf(section, key, static_cast<uint64_t>(row.Number(column)));
  if (IsText(type)) return SumOf(section, key, row.Bytes(column));
  return static_cast<int64_t>(SumOfNames(section, key).value());  // no setting; counts as absent
}

// Whether the row is what was written, with the checksum in the column behind the value.
bool SumHolds(SqliteStatement& row, int column, std::string_view section, std::string_view key) {
  return row.Type(column + 1) == SQLITE_INTEGER &&
         row.Number(column + 1) == SumOfRow(row, column, section, key);
}

// A text ends at its first NUL, as all texts of a store do.
std::optional<ConfigValue> ValueOfRow(SqliteStatement& row, int column) {
  const int type = row.Type(column);
  if (type == SQLITE_INTEGER) {
    const int64_t number = row.Number(column);
    if (number < 0 || number > 0xFFFFFFFF) return std::nullopt;
    return static_cast<uint32_t>(number);
  }
  if (!IsText(type)) return std::nullopt;
  const std::string_view text = row.Bytes(column);
  return std::string(text.substr(0, text.find('\0')));
}

}  // namespace

TableState SettingsTable::Attach() {
  const auto troubled = [this] {
    problem_ = connection_.problem();
    return connection_.damaged() ? TableState::kDamaged : TableState::kFailed;
  };
  std::string mark, text;
  if (!connection_.Ask("PRAGMA application_id", mark)) return troubled();
  if (!connection_.Ask("SELECT CASE type WHEN 'table' THEN sql ELSE '?' END FROM sqlite_schema WHERE name = "
                       "'settings' COLLATE NOCASE",
                       text)) {
    return troubled();
  }
  if (text == kTable) {
    form_ = Form::kWithChecksums;
  } else if (text == kEarlierTable) {
    form_ = Form::kWithoutChecksums;
  } else if (mark == kMark) {
    problem_ = "its table is damaged";
    return TableState::kDamaged;
  } else if (!text.empty()) {
    problem_ = "it holds something else";
    return TableState::kForeign;
  } else {
    form_ = Form::kNone;
    return TableState::kReady;
  }
  const char* const select = form_ == Form::kWithChecksums ? kSelect : kEarlierSelect;
  return select_.Prepare(connection_, select) ? TableState::kReady : troubled();
}

RowState SettingsTable::Read(const ConfigName& name, std::optional<ConfigValue>& value) {
  if (form_ == Form::kNone) return RowState::kAbsent;
  select_.Reset();
  RowState state = RowState::kFailed;
  if (select_.BindBytes(1, name.section) && select_.BindBytes(2, name.key)) {
    if (!select_.Step()) {
      if (!select_.failed()) state = RowState::kAbsent;
    } else if (form_ == Form::kWithChecksums && !SumHolds(select_, 0, name.section, name.key)) {
      state = RowState::kDamaged;
    } else if (std::optional<ConfigValue> found = ValueOfRow(select_, 0)) {
      value = std::move(found);
      state = RowState::kFound;
    } else {
      state = RowState::kAbsent;
    }
  }
  select_.Reset();  // no lock is held between calls
  return state;
}

CheckResult SettingsTable::Check() {
  const auto troubled = [this] {
    return connection_.damaged() ? CheckResult::kDamaged : CheckResult::kFailed;
  };
  std::string answer;
  if (!connection_.Ask("PRAGMA quick_check(1)", answer)) return troubled();
  if (answer != "ok") return CheckResult::kDamaged;
  if (form_ == Form::kNone) return CheckResult::kSound;
  SqliteStatement scan;
  if (!scan.Prepare(connection_, form_ == Form::kWithChecksums ? kScan : kEarlierScan)) return troubled();
  // Rows out of order are whole as pages, but a search misses them. Names that are no blobs are no settings,
  // and were none before there were checksums; SQLite puts them in front of all blobs.
  std::tuple<bool, std::string, bool, std::string> last;
  bool first = true;
  bool allHold = true;
  while (scan.Step()) {
    const auto part = [&scan](int column) {
      const bool isBlob = scan.Type(column) == SQLITE_BLOB;
      return std::make_tuple(isBlob, isBlob ? std::string(scan.Bytes(column)) : std::string());
    };
    auto row = std::tuple_cat(part(0), part(1));
    if (scan.failed()) break;  // a name that there is no memory for is not empty
    const bool isSetting = std::get<0>(row) && std::get<2>(row);
    if (!first && (row < last || (isSetting && row == last))) return CheckResult::kDamaged;
    allHold = allHold && isSetting && SumHolds(scan, 2, std::get<1>(row), std::get<3>(row));
    last = std::move(row);
    first = false;
  }
  if (scan.failed()) return troubled();
  return allHold || form_ == Form::kWithoutChecksums ? CheckResult::kSound : CheckResult::kDamagedValues;
}

bool SettingsTable::Make() {
  if (form_ == Form::kWithChecksums) return true;
  select_.Reset();
  if (form_ == Form::kNone ? !connection_.Run(kTable) : !AddChecksums()) return false;
  form_ = Form::kWithChecksums;
  return connection_.Run(kSetMark) && select_.Prepare(connection_, kSelect);
}

bool SettingsTable::AddChecksums() {
  struct Sum {
    std::string section, key;
    int64_t sum;
  };
  std::vector<Sum> sums;
  SqliteStatement scan;
  if (!scan.Prepare(connection_, kEarlierScan)) return false;
  while (scan.Step()) {
    if (scan.Type(0) != SQLITE_BLOB || scan.Type(1) != SQLITE_BLOB) continue;
    const int64_t sum = SumOfRow(scan, 2, scan.Bytes(0), scan.Bytes(1));
    sums.push_back({std::string(scan.Bytes(0)), std::string(scan.Bytes(1)), sum});
  }
  if (scan.failed() || !connection_.Run(kAddColumn)) return false;
  SqliteStatement set;
  if (!set.Prepare(connection_, kSetSum)) return false;
  for (const Sum& row : sums) {
    if (!set.BindBytes(1, row.section) || !set.BindBytes(2, row.key) || !set.BindNumber(3, row.sum))
      return false;
    set.Step();
    if (set.failed()) return false;
    set.Reset();
  }
  return true;
}

bool SettingsTable::Apply(const ConfigChanges& changes) {
  if (!upsert_.Prepare(connection_, kUpsert) || !remove_.Prepare(connection_, kRemove)) return false;
  for (const auto& [name, value] : changes) {
    if (value ? !Write(name, *value) : !Remove(name)) return false;
  }
  return true;
}

bool SettingsTable::Write(const ConfigName& name, const ConfigValue& value) {
  if (!upsert_.BindBytes(1, name.section) || !upsert_.BindBytes(2, name.key)) return false;
  int64_t sum = 0;
  if (const std::string* const text = std::get_if<std::string>(&value)) {
    sum = SumOf(name.section, name.key, std::string_view(*text));
    if (!upsert_.BindBytes(3, *text)) return false;
  } else {
    const uint64_t number = std::get<uint32_t>(value);
    sum = SumOf(name.section, name.key, number);
    if (!upsert_.BindNumber(3, static_cast<int64_t>(number))) return false;
  }
  if (!upsert_.BindNumber(4, sum)) return false;
  upsert_.Step();
  const bool done = !upsert_.failed();
  upsert_.Reset();
  return done;
}

bool SettingsTable::Remove(const ConfigName& name) {
  if (!remove_.BindBytes(1, name.section) || !remove_.BindBytes(2, name.key)) return false;
  remove_.Step();
  const bool done = !remove_.failed();
  remove_.Reset();
  return done;
}

bool SettingsTable::Holds(const ConfigChanges& changes) {
  for (const auto& [name, value] : changes) {
    std::optional<ConfigValue> found;
    const RowState state = Read(name, found);
    if (value ? state != RowState::kFound || found != value : state != RowState::kAbsent) return false;
  }
  return true;
}

}  // namespace qln
