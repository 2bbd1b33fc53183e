// Checks of files in processes of their own, with a journal.
#ifndef TOOLS_QLNMEDIA_JOURNALED_CHECK_H
#define TOOLS_QLNMEDIA_JOURNALED_CHECK_H

#include <string>
#include <vector>

#include "journal.h"
#include "qlnmedia/check.h"

namespace qlnmedia {

// What is found in a file: from the journal, where the file is done and still the same, else by a check that
// is then put into the journal. Throws NotApplicable and Error as CheckFile does, also for failures that the
// journal has, and Error for a check whose process ended by a signal.
std::vector<Finding> CheckWithJournal(const std::string& path, Journal& journal);

}  // namespace qlnmedia

#endif
