// Records back into the bytes of streams and files.
#ifndef QLNPYTHON_WRITERS_H
#define QLNPYTHON_WRITERS_H

#include <algorithm>
#include <cstdint>
#include <memory>
#include <vector>

#include "failure.h"
#include "qlnutil/qlnaac.h"
#include "qlnutil/qlnh264.h"
#include "qlnutil/qlnhevc.h"

namespace qlnpython {

// The H.264 writers build a unit in twice `size`; 480 entries of scaling lists with codes of 97 bits, and two
// HRD with 8 schedules, stay far below that. The room is what they ask for: one and a half times that.
inline constexpr int32_t kH264Size = 16384;
inline constexpr size_t kH264Room = size_t{kH264Size} * 3;

// The head of a configuration record; behind it the writer puts three arrays, also where it has no units.
inline constexpr uint64_t kConfigHead = 23;

template <class Record>
uint64_t WriteInto(QLNBitState* state, Record* record) {
  if constexpr (requires { qlnutilWrite_SPS(state, record); })
    return qlnutilWrite_SPS(state, record);
  else if constexpr (requires { qlnutilWrite_PPS(state, record); })
    return qlnutilWrite_PPS(state, record);
  else if constexpr (requires { qlnutilWrite_DVVC_CR(state, record); })
    return qlnutilWrite_DVVC_CR(state, record);
  else if constexpr (requires { qlnutilWriteAAC(state, record); })
    qlnutilWriteAAC(state, record);
  else if constexpr (requires { qlnutilWriteADTS(state, record); })
    qlnutilWriteADTS(state, record);
  else if constexpr (requires { qlnutilWrite_HEVC_VPS(record, state->data); })
    return qlnutilWrite_HEVC_VPS(record, state->data);
  else if constexpr (requires { qlnutilWrite_HEVC_SPS(record, state->data, 0); })
    return qlnutilWrite_HEVC_SPS(record, state->data, QLN_HEVC_UNIT_SIZE);
  else if constexpr (requires { qlnutilWrite_HEVC_PPS(record, state->data); })
    return qlnutilWrite_HEVC_PPS(record, state->data);
  else
    return std::min<uint64_t>(kConfigHead,
                              qlnutilWrite_HEVC_CR(state, record, nullptr, nullptr, nullptr, 0, 0, 0));
  return state->bitPos / 8;
}

// The bytes of one record, which stays as it is: some writers fold its members. Throws StreamFailure where it
// does not fit what the writers can put out.
template <class Record>
std::vector<uint8_t> Write(const void* record) {
  const auto copy = std::make_unique<Record>(*static_cast<const Record*>(record));
  std::vector<uint8_t> bytes(kH264Room);
  QLNBitState state{bytes.data(), kH264Size, static_cast<uint32_t>(kH264Room) * 8, 0};
  Listener listener;
  const uint64_t size = WriteInto(&state, copy.get());
  listener.Log();
  if (size == 0 || size > bytes.size())
    throw StreamFailure("the record does not fit a unit", "check its counts");
  bytes.resize(static_cast<size_t>(size));
  return bytes;
}

}  // namespace qlnpython

#endif
