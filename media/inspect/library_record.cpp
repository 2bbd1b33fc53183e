// Reads sets into two records of the library, one of zeros and one of a mark: readers do not clear their
// record, so that a word in which the two differ was not filled in.

#include "inspect/library_record.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstring>
#include <memory>
#include <span>

#include "qlnutil/h264/record_fields.h"
#include "qlnutil/hevc/record_fields.h"
#include "qlnutil/qlnh264.h"
#include "qlnutil/qlnhevc.h"

namespace qlnmedia {

namespace {

using Fields = std::span<const qln::RecordField>;

constexpr int kMark = 0x5A;
// Room for what comes out: lists that were absent may be written, and codes may grow.
constexpr size_t kHevcSpsRoom = 8192;
constexpr size_t kHevcRoom = 2048;

uint32_t WordAt(const void* record, uint32_t word) {
  uint32_t value;
  std::memcpy(&value, static_cast<const uint8_t*>(record) + size_t{word} * 4, 4);
  return value;
}

// Two records of the same unit, with the table of their words.
class RecordPair {
 public:
  RecordPair(const void* zeroed, const void* marked) : zeroed_(zeroed), marked_(marked) {}

  std::vector<Element> Elements(Fields fields) const {
    std::vector<Element> elements;
    for (const qln::RecordField& field : fields) {
      const uint32_t list = ListSize(field.name);
      if (list == 0) {
        Append(elements, field.name, field, field.word, field.count);
        continue;
      }
      for (uint32_t i = 0; i * list < field.count; ++i)
        Append(elements, fmt::format("{}[{}]", field.name, i), field, field.word + i * list, list);
    }
    return elements;
  }

 private:
  // Entries of one list in a field that holds several.
  static uint32_t ListSize(std::string_view name) {
    if (name == "ScalingList4x4") return 16;
    if (name == "ScalingList8x8") return 64;
    return 0;
  }
  bool Filled(uint32_t word) const { return WordAt(zeroed_, word) == WordAt(marked_, word); }
  Json Value(uint32_t word, bool isSigned) const {
    if (isSigned) return static_cast<int32_t>(WordAt(zeroed_, word));
    return WordAt(zeroed_, word);
  }
  void Append(std::vector<Element>& elements, std::string name, const qln::RecordField& field, uint32_t first,
              uint32_t count) const {
    uint32_t used = count;
    while (used > 0 && !Filled(first + used - 1)) --used;
    if (used == 0) return;
    Json value = Json::array();
    if (field.count == 1) {
      value = Value(first, field.isSigned);
    } else {
      for (uint32_t i = 0; i < used; ++i)
        value.push_back(Filled(first + i) ? Value(first + i, field.isSigned) : Json(nullptr));
    }
    elements.push_back({std::move(name), std::move(value), {}});
  }

  const void* zeroed_;
  const void* marked_;
};

template <class Record>
struct Pair {
  Record zeroed;
  Record marked;
  RecordPair At(uint32_t word) const {
    const auto at = [word](const Record& record) {
      return reinterpret_cast<const uint8_t*>(&record) + size_t{word} * 4;
    };
    return {at(zeroed), at(marked)};
  }
};

// A block of words inside a record: its table, and how many of them stand one behind the other.
struct Block {
  Fields fields;
  uint32_t count = 0;
  bool named = false;  // its elements carry its name
};

Block BlockOf(std::string_view field) {
  if (field == "profile_tier_level") return {qln::kHevcProfileTierLevelFields, 1, false};
  if (field == "st_ref_pic_set") return {qln::kHevcShortTermRpsFields, 64, true};
  if (field == "long_term_ref_pics") return {qln::kHevcLongTermPictureFields, 64, true};
  return {};
}

template <class Record>
std::vector<Element> ElementsOf(const Pair<Record>& pair, Fields fields) {
  std::vector<Element> all;
  for (const qln::RecordField& field : fields) {
    const Block block = BlockOf(field.name);
    const uint32_t words = block.count == 0 ? 0 : field.count / block.count;
    for (uint32_t i = 0; i < block.count; ++i) {
      for (Element& element : pair.At(field.word + i * words).Elements(block.fields)) {
        if (block.named) element.name = fmt::format("{}[{}].{}", field.name, i, element.name);
        all.push_back(std::move(element));
      }
    }
    if (block.count != 0) continue;
    const qln::RecordField one[] = {field};
    for (Element& element : pair.At(0).Elements(one)) all.push_back(std::move(element));
  }
  return all;
}

std::vector<std::string> NamesOf(Fields fields) {
  std::vector<std::string> names;
  for (const qln::RecordField& field : fields) {
    const Block block = BlockOf(field.name);
    if (block.count == 0) names.emplace_back(field.name);
    for (const qln::RecordField& inner : block.fields) names.emplace_back(inner.name);
  }
  return names;
}

// Reads a set with `reader` into both records. True where it was taken.
template <class Record, class Reader>
bool ReadTwice(const Bytes& unit, Reader reader, Pair<Record>& pair, MessageSink& messages,
               LibraryRecord& out) {
  std::memset(&pair.zeroed, 0, sizeof pair.zeroed);
  std::memset(&pair.marked, kMark, sizeof pair.marked);
  // A word that is not cleared, but stays set once it is.
  if constexpr (requires { pair.marked.more_rbsp_data_present; }) pair.marked.more_rbsp_data_present = 0;
  messages.Take();
  QLNBitState state = StateOver(unit);
  const uint64_t result = reader(&state, &pair.zeroed);
  out.said = messages.Take();
  state = StateOver(unit);
  reader(&state, &pair.marked);
  messages.Take();
  out.known = true;
  out.read = result != 0 && result != QLN_HEVC_REFUSED;
  return out.read;
}

// The 48 constraint bits are one number, which the record keeps in two words.
template <class Record>
void JoinConstraints(const Record& record, std::vector<Element>& elements) {
  for (Element& element : elements) {
    if (element.name == "general_constraint_indicator_flags")
      element.value = record.profile_tier_level.general_constraint_indicator_flags;
  }
}

void ReadH264Sps(const Bytes& unit, MessageSink& messages, LibraryRecord& out) {
  const auto pair = std::make_unique<Pair<H264SpsRecord>>();
  out.names = NamesOf(qln::kH264SpsFields);
  if (!ReadTwice(unit, qlnutilRead_SPS, *pair, messages, out)) return;
  out.elements = ElementsOf(*pair, qln::kH264SpsFields);
  out.written.resize(2 * unit.size() + 256);
  QLNBitState state{out.written.data(), static_cast<int32_t>(out.written.size()), 0, 0};
  out.written.resize(qlnutilWrite_SPS(&state, &pair->zeroed));
}

void ReadH264Pps(const Bytes& unit, MessageSink& messages, LibraryRecord& out) {
  const auto pair = std::make_unique<Pair<H264PpsRecord>>();
  out.names = NamesOf(qln::kH264PpsFields);
  if (!ReadTwice(unit, qlnutilRead_PPS, *pair, messages, out)) return;
  out.elements = ElementsOf(*pair, qln::kH264PpsFields);
  out.written.resize(2 * unit.size() + 1024);
  QLNBitState state{out.written.data(), static_cast<int32_t>(out.written.size()), 0, 0};
  out.written.resize(qlnutilWrite_PPS(&state, &pair->zeroed));
}

void ReadHevcVps(const Bytes& unit, MessageSink& messages, LibraryRecord& out) {
  const auto pair = std::make_unique<Pair<HevcVpsRecord>>();
  out.names = NamesOf(qln::kHevcVpsFields);
  const auto reader = [](QLNBitState* state, HevcVpsRecord* record) {
    return qlnutilRead_HEVC_VPS(state, record, nullptr, 0);
  };
  if (!ReadTwice(unit, reader, *pair, messages, out)) return;
  out.elements = ElementsOf(*pair, qln::kHevcVpsFields);
  JoinConstraints(pair->zeroed, out.elements);
  out.written.resize(kHevcRoom);
  out.written.resize(qlnutilWrite_HEVC_VPS(&pair->zeroed, out.written.data()));
}

void ReadHevcSps(const Bytes& unit, MessageSink& messages, LibraryRecord& out) {
  const auto pair = std::make_unique<Pair<HevcSpsRecord>>();
  out.names = NamesOf(qln::kHevcSpsFields);
  const auto reader = [](QLNBitState* state, HevcSpsRecord* record) {
    return qlnutilRead_HEVC_SPS(state, record, nullptr, 0);
  };
  if (!ReadTwice(unit, reader, *pair, messages, out)) return;
  out.elements = ElementsOf(*pair, qln::kHevcSpsFields);
  JoinConstraints(pair->zeroed, out.elements);
  out.written.resize(kHevcSpsRoom);
  out.written.resize(
      qlnutilWrite_HEVC_SPS(&pair->zeroed, out.written.data(), static_cast<uint32_t>(out.written.size())));
}

void ReadHevcPps(const Bytes& unit, MessageSink& messages, LibraryRecord& out) {
  const auto pair = std::make_unique<Pair<HevcPpsRecord>>();
  out.names = NamesOf(qln::kHevcPpsFields);
  const auto reader = [](QLNBitState* state, HevcPpsRecord* record) {
    return qlnutilRead_HEVC_PPS(state, record, nullptr, 0);
  };
  if (!ReadTwice(unit, reader, *pair, messages, out)) return;
  out.elements = ElementsOf(*pair, qln::kHevcPpsFields);
  out.written.resize(kHevcRoom);
  out.written.resize(qlnutilWrite_HEVC_PPS(&pair->zeroed, out.written.data()));
}

}  // namespace

QLNBitState StateOver(const Bytes& bytes) {
  const auto size = static_cast<uint32_t>(bytes.size());
  return {const_cast<uint8_t*>(bytes.data()), static_cast<int32_t>(size), size * 8, 0};
}

LibraryRecord ReadWithLibrary(Codec codec, const Bytes& unit, MessageSink& messages) {
  LibraryRecord out;
  const int type = UnitType(codec, unit);
  if (codec == Codec::kH264) {
    if (type == h264::kSps) ReadH264Sps(unit, messages, out);
    if (type == h264::kPps) ReadH264Pps(unit, messages, out);
  } else {
    if (type == hevc::kVps) ReadHevcVps(unit, messages, out);
    if (type == hevc::kSps) ReadHevcSps(unit, messages, out);
    if (type == hevc::kPps) ReadHevcPps(unit, messages, out);
  }
  return out;
}

}  // namespace qlnmedia
