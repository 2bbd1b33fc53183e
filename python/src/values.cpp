// Captions as triplets, formats and timecodes, transport values, commands and clip information.

#include <pybind11/stl.h>

#include <optional>

#include "byte_view.h"
#include "failure.h"
#include "module.h"
#include "paths.h"
#include "qlnmedia/caption_file.h"
#include "qlnmedia/clip_info.h"
#include "qlnmedia/command_text.h"
#include "qlnmedia/numbers.h"
#include "qlnmedia/signal_format.h"
#include "qlnutil/mediacmd.h"

namespace qlnpython {

namespace py = pybind11;

namespace {

py::object Text(const std::string& text) {
  return py::reinterpret_steal<py::object>(
      PyUnicode_DecodeUTF8(text.data(), static_cast<Py_ssize_t>(text.size()), "replace"));
}

// ---- Captions
// ------------------------------------------------------------------------------------------------

using Plain = std::tuple<bool, int, int, int>;  // valid, type, first, second
using Picture = std::pair<int64_t, std::vector<Plain>>;

// (numerator, denominator, drop frame, [(number, [triplet])])
py::tuple ParseCaptions(const py::object& data, const std::string& where) {
  const ByteView view(data);
  const auto list =
      qlnmedia::ParseCaptionFile({reinterpret_cast<const char*>(view.data()), view.size()}, where);
  py::list pictures;
  for (const auto& picture : list.pictures) {
    py::list triplets;
    for (const auto& one : picture.triplets)
      triplets.append(py::make_tuple(one.valid, static_cast<int>(one.type), one.first, one.second));
    pictures.append(py::make_tuple(picture.number, triplets));
  }
  return py::make_tuple(list.rate.numerator, list.rate.denominator, list.dropFrame, pictures);
}

qlnmedia::CaptionPictureList ListOf(int32_t numerator, int32_t denominator, bool dropFrame,
                                    const std::vector<Picture>& pictures) {
  qlnmedia::CaptionPictureList list{{numerator, denominator}, dropFrame, {}};
  for (const auto& [number, triplets] : pictures) {
    qlnmedia::CaptionPicture picture{number, {}};
    for (const auto& [valid, type, first, second] : triplets) {
      if (type < 0 || type > 3 || first < 0 || first > 255 || second < 0 || second > 255)
        throw py::value_error("a caption triplet is (valid, type 0 to 3, byte, byte)");
      picture.triplets.push_back({valid, static_cast<qlnmedia::captions::CcType>(type),
                                  static_cast<uint8_t>(first), static_cast<uint8_t>(second)});
    }
    list.pictures.push_back(std::move(picture));
  }
  return list;
}

py::bytes CaptionBytes(int32_t numerator, int32_t denominator, bool dropFrame,
                       const std::vector<Picture>& pictures, bool scc) {
  using qlnmedia::CaptionFileKind;
  return qlnmedia::CaptionFileText(ListOf(numerator, denominator, dropFrame, pictures),
                                   scc ? CaptionFileKind::kScc : CaptionFileKind::kMcc);
}

py::list CaptionTexts(int32_t numerator, int32_t denominator, bool dropFrame,
                      const std::vector<Picture>& pictures) {
  py::list services;
  for (const auto& service :
       qlnmedia::DecodeCaptionPictures(ListOf(numerator, denominator, dropFrame, pictures))) {
    py::list lines;
    for (const auto& line : service.lines)
      lines.append(py::make_tuple(line.begin, line.end, Text(line.text)));
    services.append(py::make_tuple(Text(service.name), lines));
  }
  return services;
}

py::bytes FileCaptionBytes(const py::object& path, const std::string& rate) {
  const std::string file = PathOf(path);
  std::string text;
  {
    const py::gil_scoped_release release;
    text = qlnmedia::CaptionFileText(file, qlnmedia::CaptionFileKind::kMcc, {}, {}, {rate, {}, {}});
  }
  return text;
}

// ---- Commands
// ------------------------------------------------------------------------------------------------

// The members that a host fills in; the links are its own.
const char* const kNumbers[] = {"CmdID", "StructSize", "Cmd", "Flags"};
const char* const kSigned[] = {"Channel",       "Speed",        "VideoChannels",
                               "AudioChannels", "InfoChannels", "CmdAlt",
                               "Position",      "Start",        "End"};

uint32_t* NumberIn(MediaCmd& command, size_t index) {
  uint32_t* const all[] = {&command.CmdID, &command.StructSize, &command.Cmd, &command.Flags};
  return all[index];
}
int32_t* SignedIn(MediaCmd& command, size_t index) {
  int32_t* const all[] = {&command.Channel,       &command.Speed,        &command.VideoChannels,
                          &command.AudioChannels, &command.InfoChannels, &command.CmdAlt,
                          &command.Position,      &command.Start,        &command.End};
  return all[index];
}

constexpr size_t kDataAt = offsetof(MediaCmd, ClipID);
constexpr size_t kDataBytes = sizeof(MediaCmd) - kDataAt;

// The members by name, and the bytes from ClipID on without the zeros at their end.
py::dict CommandDict(MediaCmd& command) {
  py::dict dict;
  for (size_t i = 0; i < std::size(kNumbers); ++i) dict[kNumbers[i]] = *NumberIn(command, i);
  for (size_t i = 0; i < std::size(kSigned); ++i) dict[kSigned[i]] = *SignedIn(command, i);
  const char* const data = reinterpret_cast<const char*>(&command) + kDataAt;
  size_t size = kDataBytes;
  while (size > 0 && data[size - 1] == 0) --size;
  dict["data"] = py::bytes(data, size);
  return dict;
}

void ReadCommandDict(const py::dict& dict, MediaCmd& command) {
  initMediaCmd(&command, 0);
  for (size_t i = 0; i < std::size(kNumbers); ++i)
    if (dict.contains(kNumbers[i])) *NumberIn(command, i) = dict[kNumbers[i]].cast<uint32_t>();
  for (size_t i = 0; i < std::size(kSigned); ++i)
    if (dict.contains(kSigned[i])) *SignedIn(command, i) = dict[kSigned[i]].cast<int32_t>();
  command.StructSize = MEDIACMD_SIZE;  // there is no more behind the record
  if (!dict.contains("data")) return;
  const py::object data = dict["data"];
  const ByteView view(data);
  if (view.size() > kDataBytes) throw py::value_error("the data of a command has at most 4112 bytes");
  std::copy(view.data(), view.data() + view.size(), reinterpret_cast<uint8_t*>(&command) + kDataAt);
}

py::bytes CommandToText(const py::dict& dict, const std::string& form, uint32_t timecodeType) {
  MediaCmd command;
  ReadCommandDict(dict, command);
  using qlnmedia::CommandForm;
  const CommandForm which = form == "xml"    ? CommandForm::kXml
                            : form == "json" ? CommandForm::kStrictJson
                                             : CommandForm::kJson;
  Listener listener;
  const std::string text = qlnmedia::CommandText(command, which, timecodeType);
  listener.Log();
  return text;
}

py::dict CommandFromText(const py::object& data, uint32_t timecodeType) {
  const ByteView view(data);
  MediaCmd command{};
  Listener listener;
  qlnmedia::ReadCommandText({reinterpret_cast<const char*>(view.data()), view.size()}, timecodeType, {},
                            command);
  listener.Log();
  return CommandDict(command);
}

// ---- Clip information
// ----------------------------------------------------------------------------------------

py::object ValueObject(const qlnmedia::ClipInfoValue& value) {
  if (const auto* number = std::get_if<uint32_t>(&value)) return py::int_(*number);
  const std::string& text = std::get<std::string>(value);
  // A single-byte character set or UTF-8; what is neither keeps its bytes.
  return py::reinterpret_steal<py::object>(
      PyUnicode_DecodeUTF8(text.data(), static_cast<Py_ssize_t>(text.size()), "surrogateescape"));
}

py::dict ReadClipInfo(const py::object& path) {
  const std::string file = path.is_none() ? std::string() : PathOf(path);
  const qlnmedia::ClipInfoStore store(file, true);
  py::dict dict;
  for (const auto& entry : store.ReadAll()) dict[entry.field.name] = ValueObject(entry.value);
  return dict;
}

void WriteClipInfo(const py::object& path, const py::dict& values) {
  const std::string file = path.is_none() ? std::string() : PathOf(path);
  std::vector<qlnmedia::ClipInfoChange> changes;
  for (const auto& [name, value] : values) {
    qlnmedia::ClipInfoChange change{qlnmedia::FindClipInfoField(py::str(name)), {}};
    if (value.is_none()) {
    } else if (change.field.isNumber) {
      const auto number = value.cast<int64_t>();
      if (number < 0 || number >= 0xFFFFFFFF) throw py::value_error("a number is from 0 to 4294967294");
      change.value = static_cast<uint32_t>(number);
    } else {
      const py::object bytes = py::reinterpret_steal<py::object>(
          PyUnicode_AsEncodedString(py::str(value).ptr(), "utf-8", "surrogateescape"));
      if (!bytes) throw py::error_already_set();
      const std::string text = bytes.cast<std::string>();
      if (text.find('\0') != std::string::npos) throw py::value_error("a text has no zero inside");
      change.value = text;
    }
    changes.push_back(std::move(change));
  }
  qlnmedia::ClipInfoStore store(file, false);
  for (const auto& change : changes) store.Write(change);
  store.Save();
}

}  // namespace

void AddValues(py::module_& module) {
  module.def("parse_captions", &ParseCaptions);
  module.def("caption_bytes", &CaptionBytes);
  module.def("caption_texts", &CaptionTexts);
  module.def("file_caption_bytes", &FileCaptionBytes);
  module.def("command_to_text", &CommandToText);
  module.def("command_from_text", &CommandFromText);
  module.def("command_words", [] {
    py::list list;
    for (uint32_t i = 0; i <= ctSwitch; ++i) list.append(py::str(qlnmedia::CommandWord(i).data()));
    return list;
  });
  module.def("command_flag_words", [] {
    py::dict dict;
    for (const std::string_view word : qlnmedia::CommandFlagWords()) {
      uint32_t bit = 0;
      if (cfFromString(word.data(), &bit) == 0) dict[word.data()] = bit;
    }
    return dict;
  });
  module.def("clip_info_fields", [] {
    py::list list;
    for (const auto& field : qlnmedia::ClipInfoFields())
      list.append(py::make_tuple(field.name, field.isNumber));
    return list;
  });
  module.def("read_clip_info", &ReadClipInfo);
  module.def("write_clip_info", &WriteClipInfo);
  module.def("report_on_format",
             [](uint32_t word) { return Text(qlnmedia::ReportOnFormat(word).ToJson(-1)); });
}

}  // namespace qlnpython
