// The report of `qlnmedia inspect` in the form in which a page takes it.
#ifndef MEDIA_HTML_REPORT_JSON_H
#define MEDIA_HTML_REPORT_JSON_H

#include "base/report.h"

namespace qlnmedia::html {

// The entries that people read, without those that a page shows in another way: frames, units, sets, and what
// the library makes of them.
Json ReportJson(const ReportItem& root);

}  // namespace qlnmedia::html

#endif
