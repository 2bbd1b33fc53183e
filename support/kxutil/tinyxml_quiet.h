// TinyXML without a start-up entry: its header wants <iostream>, whose stream objects every including unit
// would have set up when the library is loaded. The stream classes are all that it uses.
#ifndef KXUTIL_TINYXML_QUIET_H
#define KXUTIL_TINYXML_QUIET_H

#include <istream>
#include <ostream>

#ifndef _GLIBCXX_IOSTREAM
#define _GLIBCXX_IOSTREAM 1  // NOLINT(bugprone-reserved-identifier)
#include <tinyxml.h>
#undef _GLIBCXX_IOSTREAM
#else
#include <tinyxml.h>
#endif

#endif
