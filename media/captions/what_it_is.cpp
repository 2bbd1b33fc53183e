// Beginnings of files that come where captions are asked for.

#include "captions/what_it_is.h"

#include <algorithm>
#include <cctype>

#include "captions/text_lines.h"

namespace qlnmedia::captions {

namespace {

using namespace std::string_view_literals;

struct Beginning {
  size_t at;
  std::string_view bytes;
  const char* name;
};

constexpr Beginning kBeginnings[] = {
    {0, "\xFF\xFE"sv, "a text in UTF-16, which is to be saved as UTF-8"},
    {0, "\xFE\xFF"sv, "a text in UTF-16, which is to be saved as UTF-8"},
    {3, "STL"sv, "EBU STL"},
    {4, "ftyp"sv, "MP4 or MOV"},
    {4, "moov"sv, "MP4 or MOV"},
    {4, "mdat"sv, "MP4 or MOV"},
    {4, "wide"sv, "MP4 or MOV"},
    {0, "\x1A\x45\xDF\xA3"sv, "Matroska"},
    {0, "\x06\x0E\x2B\x34"sv, "MXF"},
    {0, "PK\x03\x04"sv, "a ZIP archive, as office documents are"},
    {0, "\x1F\x8B"sv, "a gzip archive"},
    {0, "%PDF"sv, "a PDF document"},
    {0, "{\\rtf"sv, "a document in RTF"},
};

// Of texts, in small letters.
constexpr Beginning kTexts[] = {
    {0, "webvtt"sv, "WebVTT (.vtt)"},
    {0, "scenarist_scc v1.0"sv, "a Scenarist file (.scc)"},
    {0, "file format=maccaption"sv, "a MacCaption file (.mcc)"},
    {0, "[script info]"sv, "subtitles of the kind ASS"},
    {0, "<sami"sv, "SAMI"},
    {0, "<!doctype html"sv, "HTML"},
    {0, "<html"sv, "HTML"},
    {0, "{1}{"sv, "MicroDVD subtitles"},
    {0, "{0}{"sv, "MicroDVD subtitles"},
};

// Letters and numbers without their case.
std::string Small(std::string_view text) {
  std::string small(text);
  std::transform(small.begin(), small.end(), small.begin(),
                 [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  return small;
}

const char* NameOf(std::string_view file) {
  for (const Beginning& one : kBeginnings) {
    if (file.size() >= one.at && file.substr(one.at, one.bytes.size()) == one.bytes) return one.name;
  }
  constexpr size_t kPacket = 188, kHead = 4096;
  if (file.size() > kPacket && file[0] == 'G' && file[kPacket] == 'G') return "an MPEG transport stream";
  const std::string_view head = file.substr(0, kHead);
  if (head.find('\0') != std::string_view::npos) return "no text";
  TextLines lines(head);
  std::string_view line;
  while (lines.Next(&line) && line.empty()) {
  }
  const std::string small = Small(line);
  for (const Beginning& one : kTexts) {
    if (small.compare(0, one.bytes.size(), one.bytes) == 0) return one.name;
  }
  if (head.find("<tt ") != std::string_view::npos || head.find("<tt>") != std::string_view::npos ||
      head.find(":tt ") != std::string_view::npos)
    return "TTML";
  if (small.compare(0, 5, "<?xml") == 0) return "XML";
  std::string_view next;
  const bool numbered = !small.empty() && std::all_of(small.begin(), small.end(),
                                                      [](unsigned char c) { return std::isdigit(c) != 0; });
  if (numbered && lines.Next(&next) && next.find("-->") != std::string_view::npos) return "SubRip (.srt)";
  return nullptr;
}

}  // namespace

std::string WhatItSeems(std::string_view file) {
  const char* const name = NameOf(file);
  return name == nullptr ? std::string() : std::string("; seems to be ") + name;
}

}  // namespace qlnmedia::captions
