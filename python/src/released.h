// Work of the engine with the interpreter's lock released, and a progress callback in Python that may call it
// off.
#ifndef QLNPYTHON_RELEASED_H
#define QLNPYTHON_RELEASED_H

#include <pybind11/pybind11.h>

#include <exception>
#include <type_traits>

#include "qlnmedia/progress.h"

namespace qlnpython {

// Listens to the steps of one piece of work. Made and destroyed with the interpreter's lock held.
class Watch {
 public:
  // @param callback takes (what, done, total, finished); False calls the work off, and so does an exception.
  // None for nobody; signals, as of Ctrl-C, are looked for all the same.
  explicit Watch(pybind11::object callback) : callback_(std::move(callback)) {}

  // To be called without the lock, in the thread that does the work. Lives as long as the watch.
  qlnmedia::ProgressCallback Callback() {
    return [this](const qlnmedia::ProgressStep& step) { return Step(step); };
  }
  // Throws what the callback threw, if it did.
  void Rethrow() const {
    if (thrown_) std::rethrow_exception(thrown_);
  }

 private:
  bool Step(const qlnmedia::ProgressStep& step) {
    const pybind11::gil_scoped_acquire lock;
    if (thrown_) return false;
    try {
      if (PyErr_CheckSignals() != 0) throw pybind11::error_already_set();
      if (callback_.is_none()) return true;
      const pybind11::object answer =
          callback_(pybind11::str(step.what.data(), step.what.size()), step.done, step.total, step.finished);
      return !answer.is(pybind11::bool_(false));
    } catch (...) {
      thrown_ = std::current_exception();
      return false;
    }
  }

  pybind11::object callback_;
  std::exception_ptr thrown_;
};

// Calls `work` with a progress callback and without the interpreter's lock. What the Python callback throws
// takes the place of the Cancelled that it causes.
template <class Work>
auto Released(const pybind11::object& callback, Work work) {
  Watch watch(callback);
  try {
    if constexpr (std::is_void_v<decltype(work(watch.Callback()))>) {
      {
        const pybind11::gil_scoped_release release;
        work(watch.Callback());
      }
      watch.Rethrow();
    } else {
      auto result = [&] {
        const pybind11::gil_scoped_release release;
        return work(watch.Callback());
      }();
      watch.Rethrow();
      return result;
    }
  } catch (const qlnmedia::Cancelled&) {
    watch.Rethrow();
    throw;
  }
}

}  // namespace qlnpython

#endif
