// The JSON form of the command record. Not exported: a host reaches these only when the export list takes
// them up.
#ifndef QLNUTIL_MEDIACMD_COMMAND_JSON_H
#define QLNUTIL_MEDIACMD_COMMAND_JSON_H

#include <cstdint>

#include "qlnutil/mediacmd.h"

namespace qln {

// Writes a command as JSON text.
//
// Every member carries its comma behind it, also the last one before a closing brace, and no text is escaped:
// strict parsers refuse the form. MediaCmdFromJSON reads it, except where it has more than 100 tokens or a
// quote or backslash stands in a name, and not all of its members come back.
//
// `text` receives a block of KXAlloc, for MediaCmdFreeXMLString or KXFree; it is set to null first and stays
// so where there is no memory. Null: the text is thrown away, and what the walk does to the record stays.
// `command` is valid for `StructSize` bytes; under the state value "metabasefilename" a "$" in `FileName` is
// overwritten by zero. Null writes nothing. Of `tcType` the low byte counts; a type without a word is written
// as "drop-frame". A file name without terminator is left out, with a warning "WARNING(JSONmCmd): %s\n"
// through ErrFmtOut. Returns 0.
uint32_t MediaCmdToJSON(char** text, MediaCmd* command, uint32_t tcType);

// Reads a command from JSON text.
//
// Fields and flags that are found are written over or ORed in; all others stay. Every bound is the greater of
// 4188 and the record's `StructSize` at entry (below 2^31), whatever the text says. `StructSize` itself is
// stored as the text has it: see mediacmd.h. Only about the first half of an object's members is looked at,
// which the writers of such texts know.
//
// `command` is a whole record. `ignored` is not looked at. `text` is NUL-terminated.
// Returns 0; -1 for a null command, silently, and for text that does not parse, holds more than 100 tokens or
// is null, with "Failed to parse JSON: %d\n" through ErrOut; 1, with "Object expected\n", for text without an
// object at its head; -2 where its first key is neither "MediaCmd" nor "ClipInfo". The record stays as it was
// in all of these.
int32_t MediaCmdFromJSON(MediaCmd* command, const uint32_t* ignored, const char* text);

}  // namespace qln

#endif
