/// @file command_text.h
/// Transport commands (qlnutil/mediacmd.h) as texts, XML and JSON, and the words that stand in them.
///
/// Functions may run in several threads at once, each on a record of its own.
#ifndef QLNMEDIA_COMMAND_TEXT_H
#define QLNMEDIA_COMMAND_TEXT_H

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "qlnmedia/api.h"
#include "qlnmedia/error.h"

struct MediaCmd;

namespace qlnmedia {

/// The forms in which a command stands as text.
enum class CommandForm {
  kXml,   ///< as MediaCmdToXMLString writes it
  kJson,  ///< its sister: members carry their comma behind them, also the last one, so that strict parsers
          ///< refuse it
  kStrictJson,  ///< the same members as JSON that every parser takes (RFC 8259), laid out in lines; bytes
                ///< that are no UTF-8 are taken for ISO 8859-1
};

/// The text of a command, without a line feed at its end.
///
/// @param command       a whole record; under the state value "metabasefilename" a "$" in `FileName` is
///                      overwritten by zero
/// @param form          what to write
/// @param timecodeType  in the low byte: how points in time are written
QLNMEDIA_API std::string CommandText(MediaCmd& command, CommandForm form, uint32_t timecodeType);

/// Reads a text of either form into a record that it sets to its defaults first; `StructSize` is at most the
/// record's afterwards, whatever the text says.
///
/// @param text          JSON where it begins with "{" behind blanks, else XML
/// @param timecodeType  in the low byte: how points in time are read where the text does not say
/// @param where         what the text of a failure begins with
/// @param[out] command   a whole record
/// @return the form of the text, kXml or kJson
/// @throws Error for a text that holds no command; it has what the library says to that
QLNMEDIA_API CommandForm ReadCommandText(const std::string& text, uint32_t timecodeType,
                                         const std::string& where, MediaCmd& command);

/// "Stop" for ctStop and so on; "Unknown" above ctSwitch. Static storage, with a terminator behind it.
QLNMEDIA_API std::string_view CommandWord(uint32_t command);

/// The words that name flags (cfFromString takes them), "deferred" and so on; some flags have two. Static
/// storage, each with a terminator behind it.
QLNMEDIA_API std::vector<std::string_view> CommandFlagWords();

/// "pal" for 8 and so on; empty for a number that is no timecode type. Static storage, as above.
QLNMEDIA_API std::string_view TimecodeTypeWord(uint8_t type);

}  // namespace qlnmedia

#endif
