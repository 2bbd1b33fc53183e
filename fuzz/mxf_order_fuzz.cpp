// Whether an index of MXF tells an order: an answer for any bytes, and no for a file whose layout has no
// index.

#include "base/error.h"
#include "container/mp4/memory_sink.h"
#include "container/mxf/layout.h"
#include "container/mxf/order_told.h"
#include "mutators/formats.h"

namespace {

void Expect(bool holds) {
  if (!holds) __builtin_trap();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const qlnmedia::mp4::Bytes bytes(data, data + size);
  const qlnmedia::mp4::MemorySource source(bytes);
  const bool told = qlnmedia::mxf::TellsOrder(source);
  try {
    const qlnmedia::mxf::Layout layout = qlnmedia::mxf::ReadLayout(source);
    if (layout.index.empty() && !layout.cutAt && layout.partitions.size() == 1) Expect(!told);
  } catch (const qlnmedia::Error&) {
    // refused
  }
  return 0;
}

QLN_FUZZ_BY_PIECES(qln::fuzz::Triplets(), 0)
