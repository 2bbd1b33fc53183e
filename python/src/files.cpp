// Media files: inspected, checked, patched, their captions read. The interpreter's lock is free meanwhile.

#include <pybind11/stl.h>

#include "changes.h"
#include "failure.h"
#include "module.h"
#include "paths.h"
#include "qlnmedia/captions.h"
#include "qlnmedia/check.h"
#include "qlnmedia/inspect.h"
#include "qlnmedia/patch.h"
#include "released.h"

namespace qlnpython {

namespace py = pybind11;
using qlnmedia::ProgressCallback;

namespace {

py::object Text(const std::string& text) {
  return py::reinterpret_steal<py::object>(
      PyUnicode_DecodeUTF8(text.data(), static_cast<Py_ssize_t>(text.size()), "replace"));
}

py::object Inspect(const py::object& path, int frames, bool units, bool details) {
  const std::string file = PathOf(path);
  if (frames < 0) throw py::value_error("frames are counted from 0");
  std::string json;
  {
    const py::gil_scoped_release release;
    json = qlnmedia::InspectFile(file, {frames, units, details}).ToJson(-1);
  }
  return Text(json);
}

// (stream, kind, text, frame or None, count, severity) each
py::list Check(const py::object& path, const py::object& progress) {
  const std::string file = PathOf(path);
  const auto findings = Released(
      progress, [&](const ProgressCallback& callback) { return qlnmedia::CheckFile(file, callback); });
  py::list list;
  for (const qlnmedia::Finding& finding : findings)
    list.append(py::make_tuple(finding.stream, qlnmedia::FindingWord(finding.kind), Text(finding.text),
                               finding.frame < 0 ? py::none() : py::object(py::int_(finding.frame)),
                               finding.count, qlnmedia::SeverityWord(finding.severity)));
  return list;
}

qlnmedia::PatchOptions ReadPatch(const py::object& in, const py::object& out, const py::dict& values) {
  CheckKeys(
      values,
      std::string(kChangeKeys) +
          "captions captions_offset caption_track caption_stream caption_language in_place initialization "
          "segments timecode_track keep_rate "
          "dry_run verify ");
  qlnmedia::PatchOptions options;
  options.in = PathOf(in);
  if (!out.is_none()) options.out = PathOf(out);
  ReadChanges(values, options);
  Given<py::object>(values, "captions", [&](const py::object& file) {
    options.captions.emplace();
    options.captions->file = PathOf(file);
    options.captions->replace = options.replaceCaptions;
    options.replaceCaptions = false;
  });
  Given<std::string>(values, "captions_offset", [&](const std::string& offset) {
    if (!options.captions) throw py::value_error("captions_offset goes with captions");
    options.captions->offset = offset;
  });
  Given<bool>(values, "caption_track", [&](bool track) {
    if (!track) return;
    if (!options.captions) throw py::value_error("caption_track goes with captions");
    options.captions->place = qlnmedia::CaptionPlace::kTrack;
  });
  Given<bool>(values, "caption_stream", [&](bool stream) {
    if (!stream) return;
    if (!options.captions) throw py::value_error("caption_stream goes with captions");
    options.captions->place = qlnmedia::CaptionPlace::kStream;
  });
  Given<std::string>(values, "caption_language", [&](const std::string& language) {
    if (!options.captions) throw py::value_error("caption_language goes with captions");
    options.captions->language = language;
  });
  const auto flag = [&values](const char* key, bool& target) {
    Given<bool>(values, key, [&target](bool value) { target = value; });
  };
  flag("in_place", options.inPlace);
  flag("segments", options.segments);
  flag("timecode_track", options.timecodeTrack);
  flag("keep_rate", options.keepRate);
  flag("dry_run", options.dryRun);
  flag("verify", options.verify);
  Given<py::object>(values, "initialization",
                    [&](const py::object& file) { options.initialization = PathOf(file); });
  if (options.out.empty() && !options.inPlace && !options.dryRun)
    throw py::value_error("there is no file to write to: dst is None without in_place or dry_run");
  if (!options.any()) throw py::value_error("there is nothing to change");
  return options;
}

py::list Patch(const py::object& in, const py::object& out, const py::dict& values,
               const py::object& progress) {
  qlnmedia::PatchOptions options = ReadPatch(in, out, values);
  const auto result = Released(progress, [&](const ProgressCallback& callback) {
    options.progress = callback;
    return qlnmedia::PatchFile(options);
  });
  py::list lines;
  for (const std::string& line : result.lines) lines.append(Text(line));
  return lines;
}

std::string Recover(const py::object& path) {
  const std::string file = PathOf(path);
  const py::gil_scoped_release release;
  switch (qlnmedia::RecoverFile(file)) {
    case qlnmedia::Recovery::kUntouched:
      return "untouched";
    case qlnmedia::Recovery::kPutBack:
      return "put back";
    case qlnmedia::Recovery::kNothing:
      break;
  }
  return "nothing";
}

py::list LineList(const std::vector<qlnmedia::CaptionLine>& lines) {
  py::list list;
  for (const auto& line : lines) list.append(py::make_tuple(line.begin, line.end, Text(line.text)));
  return list;
}

// (stream, pictures, captioned pictures, [(service, [(begin, end, text)])])
py::tuple Captions(const py::object& path, const std::string& rate, const py::object& progress) {
  const std::string file = PathOf(path);
  const auto captions = Released(progress, [&](const ProgressCallback& callback) {
    return qlnmedia::ReadFileCaptions(file, callback, {rate, {}, {}});
  });
  py::list services;
  for (const auto& service : captions.services)
    services.append(py::make_tuple(Text(service.name), LineList(service.lines)));
  return py::make_tuple(captions.stream, captions.pictures, captions.captioned, services);
}

void ExtractCaptions(const py::object& in, const py::object& out, const std::string& service,
                     const std::string& rate, const std::string& timecodeType, const std::string& start,
                     const py::object& progress) {
  const std::string from = PathOf(in), to = PathOf(out);
  Released(progress, [&](const ProgressCallback& callback) {
    qlnmedia::WriteCaptionFile(from, to, service, callback, {rate, timecodeType, start});
  });
}

}  // namespace

void AddFiles(py::module_& module) {
  module.def("inspect_file", &Inspect, py::arg("path"), py::arg("frames"), py::arg("units"),
             py::arg("details"));
  module.def("check_file", &Check, py::arg("path"), py::arg("progress"));
  module.def("patch_file", &Patch, py::arg("src"), py::arg("dst"), py::arg("options"), py::arg("progress"));
  module.def("recover_file", &Recover, py::arg("path"));
  module.def("read_file_captions", &Captions, py::arg("path"), py::arg("rate"), py::arg("progress"));
  module.def("extract_captions", &ExtractCaptions, py::arg("src"), py::arg("dst"), py::arg("service"),
             py::arg("rate"), py::arg("timecode_type"), py::arg("start"), py::arg("progress"));
}

}  // namespace qlnpython
