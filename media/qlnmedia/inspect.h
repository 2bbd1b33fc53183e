/// @file inspect.h
/// What a media file says about itself, from the container down to the single unit, as a tree that a program
/// can walk or take as JSON.
///
/// Functions may run in several threads at once. Nothing is written.
#ifndef QLNMEDIA_INSPECT_H
#define QLNMEDIA_INSPECT_H

#include <memory>
#include <string>
#include <vector>

#include "qlnmedia/api.h"
#include "qlnmedia/error.h"

namespace qlnmedia {

/// How much of a file is laid out.
struct InspectOptions {
  int frames = 3;      ///< coded frames of each video stream
  bool units = false;  ///< every unit of those frames, with its header
  /// All that the file says, behind the summary. Without it the report holds the summary and its notes alone.
  bool details = true;
};

/// What an entry of a report belongs to, for those who show a part of it. What is inside an entry belongs to
/// it.
enum class ReportPart {
  kDetails,   ///< what container, streams, sets and frames say
  kSummary,   ///< the few lines in front
  kElements,  ///< all syntax elements of a set
  kUnits,     ///< the units of a frame
  kLibrary,   ///< what the library makes of sets and frames
};

/// What the facts of one column of a table have in common.
struct ReportColumn {
  std::string key;     ///< as the facts' own
  std::string label;   ///< its heading; empty for a column that programs alone get
  bool right = false;  ///< stands flush right, as numbers do
};

/// One entry of a report, in the order in which people read it.
struct ReportItem {
  /// What an entry is, and so how it is shown.
  enum class Kind {
    kSection,   ///< `label` is its title; the children are its entries
    kFact,      ///< one value
    kTable,     ///< the children are rows; `label` is its title, which may be empty
    kRow,       ///< the children are facts, one a column
    kElements,  ///< the children are elements; `label` is their title, which may be empty
    kElement,   ///< a syntax element by its published name: a fact of its own kind
    kNote,      ///< `text` is something that a reader should not miss
    kLine,      ///< `label` and `text` for people, of facts beside it that have no label
  };
  Kind kind = Kind::kSection;         ///< which of the following count
  std::string key;                    ///< its name in the JSON form; empty for rows, and for the root
  bool inList = false;                ///< a section that is one of several under its key, an array in JSON
  std::string label;                  ///< as people read it; empty for what programs alone get
  std::string value;                  ///< of facts and elements: the value as JSON text
  std::string text;                   ///< of facts and elements: the value as people read it
  std::string note;                   ///< said behind the value; mostly empty
  std::vector<ReportColumn> columns;  ///< of tables
  std::vector<ReportItem> children;   ///< in the order in which people read them
  ReportPart part = ReportPart::kDetails;  ///< who wants it
};

/// A whole report. Copies share their contents, which never change.
class QLNMEDIA_API Report {
 public:
  /// The file as a section; valid as long as any copy of the report.
  const ReportItem& root() const;
  /// The JSON form, in UTF-8: bytes of the file that are none come as U+FFFD. `indent` blanks a level, or all
  /// on one line for -1.
  std::string ToJson(int indent = 2) const;

  /// For the engine's own rooms.
  struct Contents;
  /// For the engine's own rooms.
  explicit Report(std::shared_ptr<const Contents> contents) : contents_(std::move(contents)) {}

 private:
  std::shared_ptr<const Contents> contents_;
};

/// Reads a file and reports on it.
///
/// @throws NotApplicable for a file that is empty or has no video
/// @throws Error         for one that is missing or is no media
QLNMEDIA_API Report InspectFile(const std::string& path, const InspectOptions& options = {});

}  // namespace qlnmedia

#endif
