// TinyXML's header without <iostream>: that would add a start-up entry to every unit which includes it, and
// our libraries run nothing when they are loaded. The parts of it that TinyXML uses are included instead.
#ifndef KXUTIL_TINYXML_HEADER_H
#define KXUTIL_TINYXML_HEADER_H

#include <istream>
#include <ostream>
#include <sstream>
#include <string>

#if defined(__GLIBCXX__) && !defined(_GLIBCXX_IOSTREAM)
// NOLINTNEXTLINE(bugprone-reserved-identifier,cert-dcl37-c,cert-dcl51-cpp)
#define _GLIBCXX_IOSTREAM 1  // counts as included
#include <tinyxml.h>
#undef _GLIBCXX_IOSTREAM
#else
#include <tinyxml.h>
#endif

#endif
