/// @file helpers.h
/// What C++ hosts of qlnutil write again and again: the units of a buffer, parameter sets as optional
/// records, a caption packet from triplets, a scope for diagnostics. Header only and C++17; nothing here is
/// exported, and nothing that the plain headers say changes.
#ifndef QLNUTIL_HELPERS_H
#define QLNUTIL_HELPERS_H

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <functional>
#include <iterator>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "kxutil/kxutil.h"
#include "qlnutil/qlnframe.h"
#include "qlnutil/qlnh264.h"
#include "qlnutil/qlnhevc.h"

namespace qlnutil {

/// One NAL unit inside somebody's buffer.
struct NalUnit {
  const uint8_t* data = nullptr;  ///< its NAL header byte
  size_t size = 0;                ///< bytes from the header on, without trailing zero bytes
  size_t offset = 0;              ///< of the header in the buffer

  /// nal_unit_type by ITU-T H.264 clause 7.3.1. The unit must have a byte.
  int H264Type() const { return data[0] & 0x1F; }
  /// nal_unit_type by ITU-T H.265 clause 7.3.1.2. The unit must have a byte.
  int HevcType() const { return data[0] >> 1 & 0x3F; }
};

/// The NAL units of a byte stream (ITU-T H.264 and H.265, Annex B), for a range-based for:
///
///     for (const qlnutil::NalUnit& unit : qlnutil::StartCodeUnits(bytes, size)) ...
///
/// Start codes of three and four bytes; bytes in front of the first one are passed over; zero bytes behind a
/// unit belong to no unit; a start code with nothing behind it gives none. The buffer must stay while units
/// are looked at. The whole walk takes time in proportion to the size.
class StartCodeUnits {
 public:
  /// A forward iterator over the units.
  class Iterator {
   public:
    /// @cond
    // NOLINTBEGIN(readability-identifier-naming): the standard library asks for these
    using iterator_category = std::forward_iterator_tag;
    using value_type = NalUnit;
    using difference_type = std::ptrdiff_t;
    using pointer = const NalUnit*;
    using reference = const NalUnit&;
    // NOLINTEND(readability-identifier-naming)

    Iterator() = default;
    reference operator*() const { return unit_; }
    pointer operator->() const { return &unit_; }
    Iterator& operator++() {
      Advance();
      return *this;
    }
    Iterator operator++(int) {
      Iterator before = *this;
      Advance();
      return before;
    }
    friend bool operator==(const Iterator& a, const Iterator& b) { return a.unit_.data == b.unit_.data; }
    friend bool operator!=(const Iterator& a, const Iterator& b) { return !(a == b); }
    /// @endcond

   private:
    friend class StartCodeUnits;

    Iterator(const uint8_t* data, size_t size) : data_(data), size_(size), next_(CodeFrom(0)) { Advance(); }

    // The first 00 00 01 at or behind `from`; the size where there is none.
    size_t CodeFrom(size_t from) const {
      for (size_t at = from + 2; at < size_; ++at) {
        const void* const one = std::memchr(data_ + at, 1, size_ - at);
        if (one == nullptr) break;
        at = static_cast<size_t>(static_cast<const uint8_t*>(one) - data_);
        if (data_[at - 1] == 0 && data_[at - 2] == 0) return at - 2;
      }
      return size_;
    }

    void Advance() {
      while (size_ - next_ > 3) {
        const size_t begin = next_ + 3;
        next_ = CodeFrom(begin);
        size_t end = next_;
        while (end > begin && data_[end - 1] == 0) --end;
        if (end == begin) continue;
        unit_ = {data_ + begin, end - begin, begin};
        return;
      }
      unit_ = {};
    }

    const uint8_t* data_ = nullptr;
    size_t size_ = 0;
    size_t next_ = 0;  // the start code in front of the next unit
    NalUnit unit_;
  };

  /// @param data may be null where @p size is 0. @param size bytes of the buffer.
  StartCodeUnits(const uint8_t* data, size_t size) : data_(data), size_(size) {}
  /// @return the first unit.
  Iterator begin() const { return Iterator(data_, size_); }
  /// @return what stands behind the last unit.
  Iterator end() const { return Iterator(); }

 private:
  const uint8_t* data_;
  size_t size_;
};

namespace detail {

// A copy of a unit with a zero byte behind it, as the bit readers want, and a state at its beginning.
class UnitState {
 public:
  UnitState(const uint8_t* data, size_t size) : bytes_(data, data + size), state_{} {
    size_t escapes = 0;
    for (size_t i = 2; i < size; ++i) {
      escapes += data[i] == 3 && data[i - 1] == 0 && data[i - 2] == 0;
    }
    plainSize_ = size - escapes;
    bytes_.push_back(0);
    state_.data = bytes_.data();
    state_.size = static_cast<int32_t>(size);
    state_.bitLength = static_cast<uint32_t>(size * 8);
  }
  // The state points into the copy, so both stay where they are.
  UnitState(const UnitState&) = delete;
  UnitState& operator=(const UnitState&) = delete;

  QLNBitState* State() { return &state_; }
  // Without emulation prevention bytes.
  size_t PlainSize() const { return plainSize_; }

 private:
  std::vector<uint8_t> bytes_;
  QLNBitState state_;
  size_t plainSize_;
};

// Bit positions are 32-bit words.
inline bool FitsAReader(const uint8_t* data, size_t size) {
  return data != nullptr && size != 0 && size < (size_t{1} << 28);
}

template <class Record, class Read>
std::optional<Record> ReadH264(const uint8_t* data, size_t size, int type, Read read) {
  if (!FitsAReader(data, size) || (data[0] & 0x1F) != type) return std::nullopt;
  UnitState unit(data, size);
  Record record{};
  if (read(unit.State(), &record) == 0 || unit.State()->bitPos > unit.PlainSize() * 8) return std::nullopt;
  return record;
}

template <class Record, class Read>
std::optional<Record> ReadHevc(const uint8_t* data, size_t size, int type, Read read) {
  if (!FitsAReader(data, size) || (data[0] >> 1 & 0x3F) != type) return std::nullopt;
  UnitState unit(data, size);
  Record record{};
  const uint64_t end = read(unit.State(), &record, nullptr, unit.State()->bitLength);
  if (end == QLN_HEVC_REFUSED || end > unit.PlainSize()) return std::nullopt;
  return record;
}

}  // namespace detail

/// Reads a parameter set into a zeroed record, from a unit's NAL header byte on, emulation prevention
/// included. The bytes are copied, so that none behind them is looked at. Diagnostics are those of the plain
/// readers (see DiagnosticScope), and so are their departures from the published syntax.
/// @return nothing for null data, a unit of another type, one that its reader refuses, and one that ends too
/// soon.
/// @throw std::bad_alloc
/// @{
inline std::optional<H264SpsRecord> ReadH264Sps(const uint8_t* data, size_t size) {
  return detail::ReadH264<H264SpsRecord>(data, size, 7, qlnutilRead_SPS);
}
inline std::optional<H264PpsRecord> ReadH264Pps(const uint8_t* data, size_t size) {
  return detail::ReadH264<H264PpsRecord>(data, size, 8, qlnutilRead_PPS);
}
inline std::optional<HevcVpsRecord> ReadHevcVps(const uint8_t* data, size_t size) {
  return detail::ReadHevc<HevcVpsRecord>(data, size, 32, qlnutilRead_HEVC_VPS);
}
inline std::optional<HevcSpsRecord> ReadHevcSps(const uint8_t* data, size_t size) {
  return detail::ReadHevc<HevcSpsRecord>(data, size, 33, qlnutilRead_HEVC_SPS);
}
inline std::optional<HevcPpsRecord> ReadHevcPps(const uint8_t* data, size_t size) {
  return detail::ReadHevc<HevcPpsRecord>(data, size, 34, qlnutilRead_HEVC_PPS);
}
/// @}

/// One caption triplet of CTA-708: cc_valid, cc_type and two bytes.
struct CaptionTriplet {
  bool valid = false;  ///< cc_valid
  uint8_t type = 2;    ///< 0 and 1 line 21 of field 1 and 2, 2 DTVCC packet data, 3 DTVCC packet start
  uint8_t first = 0;   ///< cc_data_1; of line 21 with its parity
  uint8_t second = 0;  ///< cc_data_2; of line 21 with its parity
};

/// cdp_frame_rate of SMPTE ST 334-2.
enum class CaptionRate : uint8_t {
  k23_976 = 1,
  k24 = 2,
  k25 = 3,
  k29_97 = 4,
  k30 = 5,
  k50 = 6,
  k59_94 = 7,
  k60 = 8,
};

/// Triplets that the packets of a rate have (SMPTE ST 334-2, 9600 bits a second).
inline size_t CaptionTripletCount(CaptionRate rate) {
  constexpr uint8_t kCounts[9] = {0, 25, 25, 24, 20, 20, 12, 10, 10};
  const auto code = static_cast<size_t>(rate);
  return code < 9 ? kCounts[code] : 0;
}

/// Puts a caption packet into a frame, as the caption writers of qlninband.h take it: four bytes of prefix
/// (zero), the ANC head 61 01 and data count, and the caption distribution packet with its ccdata section,
/// filled up with triplets that are not valid to the rate's count, its footer and its checksum.
///
/// @param[in,out] frame `captionData`, `captionSize` and `captionFlags` (QLN_CAPTION_ANC) are set.
/// @param triplets, count in; may be null for a count of 0.
/// @param rate the stream's pictures a second.
/// @param sequence cdp_hdr_sequence_cntr; goes up by one a frame, and wraps.
/// @return false, with the frame as it was, for a null argument, a rate that is none, and more triplets than
/// the rate has.
inline bool SetCaptions(DFrame* frame, const CaptionTriplet* triplets, size_t count, CaptionRate rate,
                        uint16_t sequence) {
  const size_t total = CaptionTripletCount(rate);
  if (frame == nullptr || total == 0 || count > total || (triplets == nullptr && count != 0)) return false;
  const auto length = static_cast<uint8_t>(9 + 3 * total + 4);
  const auto high = static_cast<uint8_t>(sequence >> 8);
  const auto low = static_cast<uint8_t>(sequence);
  uint8_t* out = frame->captionData;
  // ccdata_present, caption_service_active and the reserved bit
  const uint8_t head[] = {0,
                          0,
                          0,
                          0,
                          0x61,
                          0x01,
                          length,
                          0x96,
                          0x69,
                          length,
                          static_cast<uint8_t>(static_cast<unsigned>(rate) << 4 | 0x0F),
                          0x43,
                          high,
                          low,
                          0x72,
                          static_cast<uint8_t>(0xE0 | total)};
  out = std::copy(std::begin(head), std::end(head), out);
  for (size_t i = 0; i < total; ++i) {
    const CaptionTriplet triplet = i < count ? triplets[i] : CaptionTriplet{};
    *out++ = static_cast<uint8_t>(0xF8 | (triplet.valid ? 4 : 0) | (triplet.type & 3));
    *out++ = triplet.first;
    *out++ = triplet.second;
  }
  *out++ = 0x74;
  *out++ = high;
  *out++ = low;
  uint8_t sum = 0;
  for (const uint8_t* byte = frame->captionData + 7; byte != out; ++byte)
    sum = static_cast<uint8_t>(sum + *byte);
  *out++ = static_cast<uint8_t>(0 - sum);
  frame->captionSize = static_cast<uint32_t>(out - frame->captionData);
  frame->captionFlags = QLN_CAPTION_ANC;
  return true;
}

/// Takes the diagnostics that the calling thread's calls emit while the scope lives, and gives the thread its
/// former sink back. Scopes of a thread end in the reverse order of their beginning, on the thread that made
/// them.
class DiagnosticScope {
 public:
  /// Takes one diagnostic: its severity (see kxutil.h) and its text, which is valid during the call.
  using Handler = std::function<void(uint32_t severity, const char* text)>;

  /// @param handler called on this thread with each diagnostic (see kxutil.h); what it throws is dropped. It
  /// must not emit diagnostics. An empty one drops them all.
  explicit DiagnosticScope(Handler handler) : handler_(std::move(handler)) {
    kxSetThreadDiagnosticSink(&DiagnosticScope::Take, this, &previous_, &previousContext_);
  }
  ~DiagnosticScope() { kxSetThreadDiagnosticSink(previous_, previousContext_, nullptr, nullptr); }
  DiagnosticScope(const DiagnosticScope&) = delete;
  DiagnosticScope& operator=(const DiagnosticScope&) = delete;

 private:
  static void Take(uint32_t severity, const char* text, void* context) {
    try {
      const Handler& handler = static_cast<DiagnosticScope*>(context)->handler_;
      if (handler) handler(severity, text);
    } catch (...) {
      // A diagnostic is no reason to leave a call of the library half way.
    }
  }

  Handler handler_;
  KXDiagnosticSink previous_ = nullptr;
  void* previousContext_ = nullptr;
};

}  // namespace qlnutil

#endif
