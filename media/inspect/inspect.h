// The report of `qlnmedia inspect`, as those hold it who print it.
#ifndef MEDIA_INSPECT_INSPECT_H
#define MEDIA_INSPECT_INSPECT_H

#include <string>

#include "base/report.h"
#include "qlnmedia/inspect.h"

namespace qlnmedia {

// What InspectFile reports.
Section ReportOnFile(const std::string& path, const InspectOptions& options);

// A section in the form that hosts get.
Report ReportOf(Section section);

// A section as the tree that hosts walk.
ReportItem TreeOf(const Section& section);

}  // namespace qlnmedia

#endif
