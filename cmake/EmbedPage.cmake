# Puts the page of `qlnmedia inspect --html` together from its parts and the installed charting library, and writes it as
# C++. Called as a script:
#   cmake -DPAGE=folder -DDYGRAPHS=folder -DLICENCE=file -DOUTPUT=file.cpp -P EmbedPage.cmake
# With DYGRAPHS empty the page is empty, and the engine says so where one is asked for.

# Base64 of hexadecimal digits, whose number is a multiple of 2.
function(base64_of_hex hex result)
  set(alphabet ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/)
  string(LENGTH "${hex}" length)
  set(text "")
  set(at 0)
  while(at LESS length)
    string(SUBSTRING "${hex}" ${at} 6 piece)
    string(LENGTH "${piece}" digits)
    string(SUBSTRING "${piece}0000" 0 6 whole)
    math(EXPR bits "0x${whole}")
    foreach(place RANGE 3)
      math(EXPR shift "18 - 6 * ${place}")
      math(EXPR index "(${bits} >> ${shift}) & 63")
      math(EXPR needed "${place} * 6")
      math(EXPR have "${digits} * 4")
      if(needed LESS have)
        string(SUBSTRING "${alphabet}" ${index} 1 letter)
      else()
        set(letter "=")
      endif()
      string(APPEND text "${letter}")
    endforeach()
    math(EXPR at "${at} + 6")
  endwhile()
  set(${result} "${text}" PARENT_SCOPE)
endfunction()

# A text as a list of bytes in C++.
function(bytes_of text result)
  file(WRITE ${OUTPUT}.piece "${text}")
  file(READ ${OUTPUT}.piece hex HEX)
  string(REGEX REPLACE "([0-9a-f][0-9a-f])" "0x\\1," bytes "${hex}")
  set(${result} "${bytes}" PARENT_SCOPE)
endfunction()

# The hash by which a content security policy knows an element's text.
function(policy_hash_of text result)
  file(WRITE ${OUTPUT}.piece "${text}")
  file(SHA256 ${OUTPUT}.piece hash)
  base64_of_hex("${hash}" hash)
  set(${result} "'sha256-${hash}'" PARENT_SCOPE)
endfunction()

set(head "")
set(tail "")
if(DYGRAPHS)
  set(STYLE "")
  foreach(part ${DYGRAPHS}/dygraph.min.css ${PAGE}/page.css)
    file(READ ${part} text)
    string(REGEX REPLACE "/\\*# sourceMappingURL=[^*]*\\*/" "" text "${text}")
    string(APPEND STYLE "${text}\n")
  endforeach()
  set(SCRIPT "")
  foreach(part ${DYGRAPHS}/dygraph.min.js ${PAGE}/unpack.js ${PAGE}/dom.js ${PAGE}/facts.js ${PAGE}/report.js
      ${PAGE}/charts.js ${PAGE}/series.js ${PAGE}/lanes.js ${PAGE}/units.js ${PAGE}/timeline.js ${PAGE}/sets.js
      ${PAGE}/captions.js ${PAGE}/main.js)
    file(READ ${part} text)
    # What looks for a file beside the page.
    string(FIND "${text}" "//# sourceMappingURL=" at)
    if(NOT at EQUAL -1)
      string(SUBSTRING "${text}" 0 ${at} text)
    endif()
    string(APPEND SCRIPT "${text}\n")
  endforeach()
  policy_hash_of("${STYLE}" STYLE_HASH)
  policy_hash_of("${SCRIPT}" SCRIPT_HASH)
  file(READ ${LICENCE} LICENCE_TEXT)
  string(REPLACE "&" "&amp;" LICENCE_TEXT "${LICENCE_TEXT}")
  string(REPLACE "<" "&lt;" LICENCE_TEXT "${LICENCE_TEXT}")
  string(REPLACE ">" "&gt;" LICENCE_TEXT "${LICENCE_TEXT}")
  file(READ ${PAGE}/page.html page)
  foreach(name STYLE_HASH SCRIPT_HASH LICENCE_TEXT STYLE SCRIPT)
    string(REPLACE "@${name}@" "${${name}}" page "${page}")
  endforeach()
  set(mark "<!-- data -->\n")
  string(FIND "${page}" "${mark}" at)
  string(LENGTH "${mark}" length)
  math(EXPR behind "${at} + ${length}")
  string(SUBSTRING "${page}" 0 ${at} head)
  string(SUBSTRING "${page}" ${behind} -1 tail)
endif()
bytes_of("${head}" head)
bytes_of("${tail}" tail)
file(REMOVE ${OUTPUT}.piece)
# An array of nothing is none: a byte behind each that does not count.
file(WRITE ${OUTPUT} "// The page, put together by cmake/EmbedPage.cmake.
#include \"html/page_text.h\"
namespace qlnmedia::html {
namespace {
constexpr unsigned char kHead[] = {${head}0};
constexpr unsigned char kTail[] = {${tail}0};
}  // namespace
std::string_view PageHead() { return {reinterpret_cast<const char*>(kHead), sizeof kHead - 1}; }
std::string_view PageTail() { return {reinterpret_cast<const char*>(kTail), sizeof kTail - 1}; }
}  // namespace qlnmedia::html
")
