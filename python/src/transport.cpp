// Speeds, positions and the counter of a transport, as the library's classes are.

#include <pybind11/operators.h>

#include "module.h"
#include "qlnutil/qlntransport.h"

namespace qlnpython {

namespace py = pybind11;

namespace {

std::string SpeedText(const CQLNSpeed& speed) { return "Speed(" + std::to_string(speed.Get()) + ")"; }
std::string PositionText(const CQLNPos& position) {
  return "Position(" + std::to_string(position.floor()) + ", " + std::to_string(position.frac()) + ")";
}

bool Same(const CQLNPos& a, const CQLNPos& b) { return a.floor() == b.floor() && a.frac() == b.frac(); }

CQLNPos PositionOf(const CQLNTransTC2& counter) {
  CQLNPos position;
  counter.GetCPos(position);
  return position;
}
CQLNSpeed SpeedOf(const CQLNTransTC2& counter) {
  CQLNSpeed speed;
  counter.GetCSpeed(speed);
  return speed;
}

void AddSpeed(py::module_& module) {
  py::class_<CQLNSpeed>(
      module, "Speed",
      "A speed, or a distance, in 1/65520: 65520 is plain play, -65520 plain reverse, 0 stopped.\n\n"
      "Speed() is plain play, Speed(raw), Speed(numerator, denominator) a fraction of plain play,\n"
      "rounded to the nearest unit; a denominator of 0 gives NO_SPEED.")
      .def(py::init<>())
      .def(py::init<int32_t>(), py::arg("raw"))
      .def(py::init<int32_t, int32_t>(), py::arg("numerator"), py::arg("denominator"))
      .def_static(
          "times",
          [](double times) {
            CQLNSpeed speed;
            speed = times;
            return speed;
          },
          py::arg("times"), "A multiple of plain play, truncated toward 0 and held inside 32 bits.")
      .def_property("raw", &CQLNSpeed::Get, py::overload_cast<int32_t>(&CQLNSpeed::Set), "In 1/65520.")
      .def_property_readonly("whole", &CQLNSpeed::Whole, "Whole frames, truncated toward 0.")
      .def_property_readonly("fraction", &CQLNSpeed::Frac,
                             "What whole leaves, in 1/65520, with the sign of the value.")
      .def("fractionalize", &CQLNSpeed::Fractionalize,
           "Takes the whole frames, rounded down, out of the object, which keeps a fraction of 0 to 65519.")
      .def("__int__", &CQLNSpeed::Get)
      .def("__float__", &CQLNSpeed::Double)
      .def("__abs__", [](const CQLNSpeed& self) { return CQLNSpeed(self.Abs()); })
      .def(
          "__eq__", [](const CQLNSpeed& a, const CQLNSpeed& b) { return a.Get() == b.Get(); },
          py::is_operator())
      .def(
          "__mul__", [](const CQLNSpeed& a, const CQLNSpeed& b) { return a * b; }, py::is_operator())
      .def(
          "__truediv__", [](const CQLNSpeed& a, const CQLNSpeed& b) { return a / b; }, py::is_operator())
      .def("__repr__", &SpeedText)
      .def("__reduce__", [](const py::object& self) {
        return py::make_tuple(py::type::of(self), py::make_tuple(self.attr("raw")));
      });
}

void AddPosition(py::module_& module) {
  py::class_<CQLNPos>(
      module, "Position",
      "A frame number and the fraction of a frame behind it, 0 to 65519 in 1/65520; numbers wrap at\n"
      "32 bits.")
      .def(py::init<>())
      .def(py::init<const CQLNSpeed&>(), py::arg("distance"))
      .def(py::init<int32_t, int32_t>(), py::arg("whole"), py::arg("fraction") = 0)
      .def_property_readonly("frame", &CQLNPos::floor, "The frame number.")
      .def_property_readonly("fraction", &CQLNPos::frac, "In 1/65520.")
      .def_property_readonly("next_frame", &CQLNPos::ceil,
                             "The frame number, and one more if there is a fraction.")
      .def(
          "__add__",
          [](const CQLNPos& a, const CQLNSpeed& b) {
            CQLNPos sum(a);
            sum += b;
            return sum;
          },
          py::is_operator())
      .def(
          "__add__", [](const CQLNPos& a, const CQLNPos& b) { return a + b; }, py::is_operator())
      .def(
          "__sub__",
          [](const CQLNPos& a, const CQLNSpeed& b) {
            CQLNPos sum(a);
            sum -= b;
            return sum;
          },
          py::is_operator())
      .def(
          "__sub__", [](const CQLNPos& a, const CQLNPos& b) { return a - b; }, py::is_operator())
      .def("__eq__", &Same, py::is_operator())
      .def("__float__", [](const CQLNPos& self) { return self.floor() + self.frac() / 65520.0; })
      .def("__repr__", &PositionText)
      .def("__reduce__", [](const py::object& self) {
        return py::make_tuple(py::type::of(self), py::make_tuple(self.attr("frame"), self.attr("fraction")));
      });
}

void AddCounter(py::module_& module) {
  py::class_<CQLNTransTC2>(
      module, "Counter",
      "The position counter of a transport: loops in a range, or runs free where that is empty.\n\n"
      "Set a range and a speed, then, for each frame that is shown, read `frame`, stand on it for\n"
      "`repeat` ticks, and step.")
      .def(py::init<>())
      .def("set_range", &CQLNTransTC2::SetRange, py::arg("first"), py::arg("behind"),
           "The range between two frames, in either order; -1 behind a frame from 0 up leaves the end open.")
      .def("set_speed", &CQLNTransTC2::SetSpeed, py::arg("speed"),
           "Sets the speed; the fraction of the position becomes 0 for plain play and reverse, half a frame "
           "else.")
      .def("go_to", py::overload_cast<int32_t>(&CQLNTransTC2::SetTC), py::arg("frame"),
           "Goes to a frame, folded into the range; fraction and index become 0.")
      .def("go_to", py::overload_cast<const CQLNPos&>(&CQLNTransTC2::SetTC), py::arg("position"))
      .def("go_to_clip", &CQLNTransTC2::SetClipTC, py::arg("frame"), "As go_to, counted from the in point.")
      .def("limit_to", &CQLNTransTC2::SetTCLimit, py::arg("frame"), "Goes to a frame, held inside the range.")
      .def(
          "step",
          [](CQLNTransTC2& self, int32_t steps) {
            if (steps == 1) return ++self;
            if (steps == -1) return --self;
            return self += steps;
          },
          py::arg("steps") = 1, "Moves by so many steps, back where they are negative; gives the frame.")
      .def_property_readonly(
          "frame", [](const CQLNTransTC2& self) { return self.GetTC(); }, "The frame number.")
      .def_property_readonly("repeat", &CQLNTransTC2::GetRepeat, "Ticks that the frame is to stand.")
      .def_property_readonly("clip_frame", &CQLNTransTC2::GetClipTC, "The frame, counted from the in point.")
      .def_property_readonly("position", &PositionOf, "A copy of the position.")
      .def_property_readonly("speed", &SpeedOf, "A copy of the speed.")
      .def_property_readonly("in_point", &CQLNTransTC2::In, "The first frame of the range.")
      .def_property_readonly("out_point", &CQLNTransTC2::Out, "The frame behind the range.")
      .def_property_readonly("duration", &CQLNTransTC2::GetDur, "Out less in.")
      .def_property_readonly("index", &CQLNTransTC2::GetIndex, "Steps since the position was set.")
      .def("__repr__", [](const CQLNTransTC2& self) {
        return "Counter(" + PositionText(PositionOf(self)) + ", " + SpeedText(SpeedOf(self)) + ", " +
               std::to_string(self.In()) + " to " + std::to_string(self.Out()) + ")";
      });
}

}  // namespace

void AddTransport(py::module_& module) {
  module.attr("PLAY") = QLN_SPEED_PLAY;
  module.attr("NO_SPEED") = QLN_SPEED_NONE;
  AddSpeed(module);
  AddPosition(module);
  AddCounter(module);
}

}  // namespace qlnpython
