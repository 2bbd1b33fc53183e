// The stream editor and its survey: access units in memory, in and out.

#include <pybind11/stl.h>

#include <atomic>
#include <memory>
#include <optional>

#include "byte_view.h"
#include "changes.h"
#include "module.h"
#include "qlnmedia/stream_editor.h"

namespace qlnpython {

namespace py = pybind11;

namespace {

using Time = std::optional<int64_t>;

// Times beyond this leave no room to count with.
constexpr int64_t kMostTime = int64_t{1} << 62;

int64_t TimeOf(const Time& time) {
  if (!time) return qlnmedia::kNoTime;
  if (*time > kMostTime || *time < -kMostTime) throw py::value_error("a time is beyond 62 bits");
  return *time;
}
py::object TimeObject(int64_t time) {
  return time == qlnmedia::kNoTime ? py::none() : py::object(py::int_(time));
}

// An object of the engine that belongs to one thread at a time, and is of no use after a failure: misuse is
// an exception. Calls hold it while the interpreter's lock is free.
class Use {
 public:
  explicit Use(std::atomic<bool>& busy) : busy_(busy) {
    if (busy_.exchange(true)) throw std::runtime_error("another call is still at work on this object");
  }
  ~Use() { busy_ = false; }
  Use(const Use&) = delete;
  Use& operator=(const Use&) = delete;

 private:
  std::atomic<bool>& busy_;
};

class Survey {
 public:
  explicit Survey(const py::dict& stream) : survey_(ReadDescription(stream)) {}

  void Add(const py::object& data, const Time& pts, const Time& dts, bool key) {
    const Use use(busy_);
    if (finished_) throw py::value_error("the survey is finished");
    const ByteView view(data);
    const qlnmedia::PacketView packet{view.span(), TimeOf(pts), TimeOf(dts), key, -1};
    const py::gil_scoped_release release;
    survey_.Add(packet);
  }
  void Finish() {
    const Use use(busy_);
    if (!finished_) survey_.Finish();
    finished_ = true;
  }
  const qlnmedia::StreamSurvey& Finished() const {
    if (!finished_ || busy_) throw py::value_error("the survey is not finished");
    return survey_;
  }

 private:
  qlnmedia::StreamSurvey survey_;
  std::atomic<bool> busy_ = false;
  bool finished_ = false;
};

// (valid, type, first, second) each
std::vector<qlnmedia::captions::Triplet> TripletsOf(const py::object& list) {
  std::vector<qlnmedia::captions::Triplet> triplets;
  for (const py::handle item : list) {
    const auto [valid, type, first, second] = item.cast<std::tuple<bool, int, int, int>>();
    if (type < 0 || type > 3 || first < 0 || first > 255 || second < 0 || second > 255)
      throw py::value_error("a caption triplet is (valid, type 0 to 3, byte, byte)");
    triplets.push_back({valid, static_cast<qlnmedia::captions::CcType>(type), static_cast<uint8_t>(first),
                        static_cast<uint8_t>(second)});
  }
  return triplets;
}

class Editor {
 public:
  Editor(const py::dict& stream, const py::dict& values, const py::object& survey, const py::object& captions,
         const std::string& where)
      : survey_(survey) {
    CheckKeys(values, kChangeKeys);
    qlnmedia::StreamChanges changes;
    ReadChanges(values, changes);
    if (!captions.is_none()) {
      // Copies of the function must not count references: the lock may be free.
      const auto provider = std::make_shared<py::object>(captions);
      changes.captionProvider = [provider](uint32_t place) {
        const py::gil_scoped_acquire lock;
        try {
          return TripletsOf((*provider)(place));
        } catch (const py::cast_error&) {
          throw py::type_error("a caption triplet is (valid, type, byte, byte)");
        }
      };
    }
    const qlnmedia::StreamSurvey* const finished =
        survey.is_none() ? nullptr : &survey.cast<Survey&>().Finished();
    if (finished == nullptr && (changes.captionProvider || changes.interlaced))
      throw py::value_error("captions and interlaced need a survey");
    editor_ = std::make_unique<qlnmedia::StreamEditor>(ReadDescription(stream), changes, finished, where);
  }

  py::bytes PrivateData() {
    const Use use(busy_);
    return BytesOf(editor_->privateData());
  }
  void Push(const py::object& data, const Time& pts, const Time& dts, bool key) {
    Call([&] {
      if (finished_) throw py::value_error("the editor is finished");
      qlnmedia::AccessUnit unit{{}, TimeOf(pts), TimeOf(dts), key};
      {
        const ByteView view(data);
        unit.data.assign(view.data(), view.data() + view.size());  // which the editor keeps
      }
      const py::gil_scoped_release release;
      working_ = true;
      editor_->Push(std::move(unit));
      working_ = false;
    });
  }
  // (bytes, pts, dts, key, changed) or None
  py::object Pull() {
    std::optional<qlnmedia::EditedUnit> edited;
    Call([&] {
      const py::gil_scoped_release release;
      working_ = true;
      edited = editor_->Pull();
      working_ = false;
    });
    if (!edited) return py::none();
    const qlnmedia::AccessUnit& unit = edited->unit;
    return py::make_tuple(BytesOf(unit.data), TimeObject(unit.pts), TimeObject(unit.dts), unit.key,
                          edited->changed);
  }
  void Finish() {
    Call([&] {
      if (finished_) return;
      finished_ = true;
      const py::gil_scoped_release release;
      working_ = true;
      editor_->Finish();
      working_ = false;
    });
  }
  py::dict Counts() {
    const Use use(busy_);
    const qlnmedia::EditCounts& counts = editor_->counts();
    using py::literals::operator""_a;
    return py::dict("sequence_sets"_a = counts.sequenceSets,
                    "private_sequence_sets"_a = counts.privateSequenceSets, "video_sets"_a = counts.videoSets,
                    "units_removed"_a = counts.unitsRemoved, "messages_removed"_a = counts.messagesRemoved,
                    "hdr_messages_removed"_a = counts.hdrMessagesRemoved, "hdr_units"_a = counts.hdrUnits,
                    "timings_changed"_a = counts.timingsChanged, "timings_added"_a = counts.timingsAdded,
                    "delimiters"_a = counts.delimiters, "recovery_points"_a = counts.recoveryPoints,
                    "intra_without_recovery"_a = counts.intraWithoutRecovery,
                    "timecodes"_a = counts.timecodes, "captions"_a = counts.captions,
                    "captions_removed"_a = counts.captionsRemoved);
  }

 private:
  // `working_` is left set where the engine throws.
  template <class Work>
  void Call(Work work) {
    const Use use(busy_);
    if (working_) throw py::value_error("the editor failed before, and is of no use");
    work();
  }

  py::object survey_;  // which the editor reads
  std::unique_ptr<qlnmedia::StreamEditor> editor_;
  std::atomic<bool> busy_ = false;
  bool finished_ = false;
  bool working_ = false;
};

}  // namespace

void AddEditor(py::module_& module) {
  py::class_<Survey>(module, "Survey")
      .def(py::init<const py::dict&>())
      .def("add", &Survey::Add)
      .def("finish", &Survey::Finish)
      .def("pictures", [](const Survey& self) { return self.Finished().pictures(); })
      .def("captioned", [](const Survey& self) { return self.Finished().captioned(); })
      .def("pictures_per_second", [](const Survey& self) { return self.Finished().picturesPerSecond(); })
      .def("steady", [](const Survey& self) { return self.Finished().steady(); });
  py::class_<Editor>(module, "Editor")
      .def(py::init<const py::dict&, const py::dict&, const py::object&, const py::object&,
                    const std::string&>())
      .def("private_data", &Editor::PrivateData)
      .def("push", &Editor::Push)
      .def("pull", &Editor::Pull)
      .def("finish", &Editor::Finish)
      .def("counts", &Editor::Counts);
}

}  // namespace qlnpython
