// A project's XML document on the disk: read whole within safe limits, and replaced in one step.
#ifndef QLNUTIL_FILES_PROJECT_DOCUMENT_H
#define QLNUTIL_FILES_PROJECT_DOCUMENT_H

#include "kxutil/tinyxml_header.h"

namespace qln {

// Empties the document and reads a file into it. False if the file cannot be read or has an error; what
// stands in front of the error is in the document then. May throw std::bad_alloc, the document being safe to
// use.
bool LoadProjectDocument(TiXmlDocument& document, const char* path);

// Writes the document to a file, which stays as it was when that fails. May throw std::bad_alloc.
bool SaveProjectDocument(const TiXmlDocument& document, const char* path);

// Whether the text can be the name of an attribute that is read back as it was written.
bool IsAttributeName(const char* text);

}  // namespace qln

#endif
