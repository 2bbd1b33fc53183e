// Places and sizes while a file changes.

#include "container/mp4/edit.h"

namespace qlnmedia::mp4 {

void Edit::SetShape(const std::vector<std::pair<uint64_t, int64_t>>& widened) {
  shape = Splices(spool_);
  samplesGrow_ = samples.anyGrowth();
  shapeGrows_ = false;
  const auto add = [this](const std::vector<std::pair<uint64_t, int64_t>>& list) {
    for (const auto& [at, growth] : list) {
      if (growth == 0) continue;
      shape.AddGrowth(at, growth);
      shapeGrows_ = true;
    }
  };
  add(fixedGrowth);
  add(widened);
  shape.Seal(source);
}

void Edit::PutNumber(Reader& reader, uint64_t at, size_t bytes, uint64_t value, const char* what) {
  if (bytes < 8 && value >> 8 * bytes != 0) {
    throw source.Fault(at, std::string(what) + " would be " + std::to_string(value) +
                               ", which does not fit its " + std::to_string(8 * bytes) + " bits");
  }
  const uint64_t old = reader.Number(at, bytes);
  if (old != value) boxes.Add(at, static_cast<uint32_t>(bytes), NumberBytes(value, bytes));
}

void Edit::PutBoxSize(Reader& reader, const Box& box) {
  const int64_t growth = Growth(box.at, box.end);
  if (growth == 0 || box.toEnd) return;
  const uint64_t size = box.declared + static_cast<uint64_t>(growth);
  const std::string what = "the size of " + BoxName(box);
  if (wider.count(box.at) != 0 && box.type == FourCc("mdat")) {
    PutNumber(reader, box.at, 4, 1, what.c_str());
    Bytes head = NumberBytes(box.type, 4);
    mp4::PutNumber(head, size, 8);
    boxes.Add(box.at + 4, 4, head);
  } else if (box.wideHead()) {
    PutNumber(reader, box.at + 8, 8, size, what.c_str());
  } else {
    PutNumber(reader, box.at, 4, size, what.c_str());
  }
}

}  // namespace qlnmedia::mp4
