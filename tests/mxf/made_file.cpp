// Writes triplets one after the other, and the numbers that name places once these are known.

#include "mxf/made_file.h"

#include <algorithm>
#include <map>

#include "mxf/made_set.h"

namespace qln::test {

namespace {

class File {
 public:
  File(const std::vector<Bytes>& pictures, const MadeOptions& options)
      : pictures_(pictures), options_(options) {}

  Bytes Make() {
    for (size_t i = 0; i < options_.runIn; ++i) bytes_.push_back(static_cast<uint8_t>(i * 7));
    const bool constant = options_.index == Indexed::kByOneSize;
    Partition(2, 0);
    Metadata();
    if (constant) Segments(0, pictures_.size());
    const size_t step = options_.unitsPerPartition == 0 ? pictures_.size() : options_.unitsPerPartition;
    for (size_t first = 0; first < pictures_.size(); first += std::max<size_t>(1, step)) {
      const size_t end = std::min(pictures_.size(), first + step);
      Partition(3, 1);
      essence_ = bytes_.size();
      for (size_t i = first; i < end; ++i) Unit(i);
      Align();
      stream_ += bytes_.size() - essence_;
      if (options_.indexInBody && options_.index == Indexed::kByEntries) {
        Partition(3, 0);
        Segments(first, end);
      }
    }
    if (options_.otherContainer != 0) Partition(3, 3);
    for (size_t i = 0; i < options_.otherContainer; ++i)
      Put(bytes_, Triplet(kLabel + "010201010d01030116010401", Bytes(kOtherElementBytes, 0x51)));
    if (options_.footer) {
      Partition(4, 0);
      if (options_.footerMetadata) Metadata();
      if (!options_.indexInBody && options_.index == Indexed::kByEntries) Segments(0, pictures_.size());
    }
    if (options_.randomIndex) RandomIndex();
    Number();
    return bytes_;
  }

 private:
  struct Pack {
    size_t at = 0;  // of its value
    size_t begin = 0;
    uint32_t bodySid = 0;
  };

  // A fill item of so many bytes in all.
  void Fill(size_t whole) {
    const auto lengthBytes = static_cast<size_t>(whole < 16 + 1 + 128 && options_.lengthBytes == 1 ? 1 : 4);
    Put(bytes_, Triplet(kLabel + "0101010203010210" + "01000000", Bytes(whole - 16 - lengthBytes, 0),
                        static_cast<int>(lengthBytes)));
  }

  void Align() {
    const size_t alignment = options_.alignment;
    if (alignment <= 1 || (bytes_.size() - packs_.back().begin) % alignment == 0) return;
    size_t whole = alignment - (bytes_.size() - packs_.back().begin) % alignment;
    while (whole < 20) whole += alignment;
    Fill(whole);
  }

  void Partition(uint8_t kind, uint32_t bodySid) {
    Bytes value;
    Put(value, 0x00010003, 4);
    Put(value, options_.alignment, 4);
    for (int i = 0; i < 5; ++i) Put(value, 0, 8);
    const bool indexed = options_.index != Indexed::kNot &&
                         (options_.index == Indexed::kByOneSize ? kind == 2 : bodySid == 0 && kind != 2);
    Put(value, indexed ? 2 : 0, 4);
    Put(value, bodySid == 1 ? stream_ : 0, 8);
    Put(value, bodySid, 4);
    Put(value, PatternLabel(options_.opAtom));
    Put(value, 1, 4);
    Put(value, 16, 4);
    Put(value, ContainerLabel(options_.coded));
    packs_.push_back({bytes_.size() + 20, bytes_.size(), bodySid});
    const std::string status = options_.open && kind != 4 ? "01" : "04";
    Put(bytes_, Triplet(kLabel + "020501010d01020101" + "0" + std::to_string(kind) + status + "00", value));
    Align();
  }

  void Primer() {
    std::map<uint16_t, std::string> tags = {{0x3C0A, "060e2b34010101010101150200000000"},
                                            {0x8001,
                                             "060e2b340101010901020304050607"
                                             "08"}};
    // The properties of SMPTE ST 381-3, and GenericDescriptor's SubDescriptors.
    if (options_.details) {
      tags[0x8102] = "060e2b34010101090601010406100000";
      tags[kProfileTag] = "060e2b340101010e04010606010a0000";
      tags[kConstraintsTag] = "060e2b340101010e04010606010c0000";
      tags[kLevelTag] = "060e2b340101010e04010606010d0000";
    }
    if (options_.primerHasColour) tags[0x3219] = "060e2b34010101090401020101060100";
    Bytes value;
    Put(value, tags.size(), 4);
    Put(value, 18, 4);
    for (const auto& [tag, label] : tags) {
      Put(value, tag, 2);
      Put(value, Hex(label));
    }
    Put(bytes_, Triplet(kLabel + "020501010d010201010501"
                                 "00",
                        value));
  }

  void Track(uint8_t instance, uint8_t id, uint32_t number, const Bytes& source, uint8_t sourceTrack,
             const char* definition) {
    const uint64_t rate = uint64_t{options_.rate} << 32 | options_.rateScale;
    const auto length = options_.open ? ~uint64_t{0} : pictures_.size();
    const auto sequence = static_cast<uint8_t>(instance + 1), clip = static_cast<uint8_t>(instance + 2);
    Put(bytes_, Set(0x3B, instance)
                    .Add(0x4801, id, 4)
                    .Add(0x4804, number, 4)
                    .Add(0x4B01, rate, 8)
                    .Add(0x4B02, 0, 8)
                    .Add(0x4803, Instance(sequence))
                    .bytes());
    Put(bytes_, Set(0x0F, sequence)
                    .Add(0x0201, Hex(definition))
                    .Add(0x0202, length, 8)
                    .Refer(0x1001, {clip})
                    .bytes());
    Put(bytes_, Set(0x11, clip)
                    .Add(0x0201, Hex(definition))
                    .Add(0x0202, length, 8)
                    .Add(0x1201, 0, 8)
                    .Add(0x1101, source)
                    .Add(0x1102, sourceTrack, 4)
                    .bytes());
  }

  void Descriptor() {
    Set picture(0x28, 40);
    picture.Add(0x3006, 2, 4)
        .Add(0x3001, uint64_t{options_.rate} << 32 | options_.rateScale, 8)
        .Add(0x3004, ContainerLabel(options_.coded));
    picture.Add(0x320C, 0, 1).Add(0x3203, 160, 4).Add(0x3202, 128, 4).Add(0x3209, 160, 4).Add(0x3208, 128, 4);
    picture.Add(0x320E, uint64_t{5} << 32 | 4, 8).Add(0x3201, CodingLabel(options_.coded)).Add(0x3301, 8, 4);
    picture.Add(0x3219, Hex("060e2b34040101060401010103030000")).Add(0x8001, Bytes(9, 0x77));
    std::vector<uint8_t> several = {40};
    if (options_.sound) several.push_back(41);
    if (hasAncillary()) several.push_back(42);
    if (several.size() > 1) Put(bytes_, Set(0x44, 39).Refer(0x3F01, several).bytes());
    if (options_.details) picture.Refer(0x8102, {43});
    Put(bytes_, picture.bytes());
    if (options_.details)
      Put(bytes_, Set(options_.coded == Coded::kAvc ? 0x6E : 0xED, 43)
                      .Add(kProfileTag, 66, 1)
                      .Add(kConstraintsTag, 0xC0, 1)
                      .Add(kLevelTag, 30, 1)
                      .Add(0x8106, Bytes(4, 0x31))
                      .bytes());
    // The descriptors of SMPTE ST 436, with their labels of wrapping.
    if (hasAncillary())
      Put(bytes_, Set(options_.ancillaryLines ? 0x5B : 0x5C, 42)
                      .Add(0x3006, 4, 4)
                      .Add(0x3001, uint64_t{options_.rate} << 32 | options_.rateScale, 8)
                      .Add(0x3004, Hex(options_.ancillaryLines ? "060e2b34040101090d010301020d0000"
                                                               : "060e2b34040101090d010301020e0000"))
                      .bytes());
    if (!options_.sound) return;
    Put(bytes_, Set(0x48, 41)
                    .Add(0x3006, 3, 4)
                    .Add(0x3004, Hex("060e2b34040101010d01030102060100"))
                    .Add(0x3D03, uint64_t{48000} << 32 | 1, 8)
                    .Add(0x3D07, 1, 4)
                    .Add(0x3D01, 16, 4)
                    .Add(0x3D0A, 2, 2)
                    .bytes());
  }

  bool hasAncillary() const { return !options_.ancillaryElements.empty(); }

  void Metadata() {
    const size_t begin = bytes_.size();
    const char* const picture = "060e2b34040101010103020201000000";
    const char* const sound = "060e2b34040101010103020202000000";
    const char* const data = "060e2b34040101010103020203000000";
    Primer();
    Put(bytes_, Set(0x2F, 1).Add(0x3B03, Instance(2)).Add(0x3B09, PatternLabel(options_.opAtom)).bytes());
    Put(bytes_, Set(0x18, 2).Refer(0x1901, {4, 5}).Refer(0x1902, {3}).bytes());
    Put(bytes_, Set(0x23, 3).Add(0x2701, Package(2)).Add(0x3F06, 2, 4).Add(0x3F07, 1, 4).bytes());
    if (options_.dark) {
      Put(bytes_, Set(0xEE, 90).Add(0x8001, Bytes(33, 0x42)).bytes());
      Put(bytes_, Triplet(kLabel + "010102030e0f101112131415", Bytes(50, 0x43), 9));
    }
    std::vector<uint8_t> material = {10}, file = {20};
    if (options_.sound) {
      material.push_back(13);
      file.push_back(23);
    }
    if (hasAncillary()) {
      material.push_back(16);
      file.push_back(26);
    }
    Put(bytes_, Set(0x36, 4).Add(0x4401, Package(1)).Refer(0x4403, material).bytes());
    Put(bytes_, Set(0x37, 5)
                    .Add(0x4401, Package(2))
                    .Refer(0x4403, file)
                    .Add(0x4701, Instance(options_.sound || hasAncillary() ? 39 : 40))
                    .bytes());
    Track(10, 2, 0, Package(2), 2, picture);
    Track(20, 2, kPictureNumber, Bytes(32, 0), 0, picture);
    if (options_.sound) {
      Track(13, 3, 0, Package(2), 3, sound);
      Track(23, 3, kSoundNumber, Bytes(32, 0), 0, sound);
    }
    if (hasAncillary()) {
      Track(16, 4, 0, Package(2), 4, data);
      Track(26, 4, options_.ancillaryLines ? 0x17010101 : 0x17010201, Bytes(32, 0), 0, data);
    }
    Descriptor();
    if (options_.headerFill != 0) Fill(options_.headerFill);
    Align();
    headerBytes_[packs_.size() - 1] = bytes_.size() - begin;
  }

  void Unit(size_t i) {
    Align();
    const size_t begin = bytes_.size();
    unitAt_.push_back(stream_ + begin - essence_);
    pictureAt_.push_back(0);
    if (options_.systemItem) {
      Put(bytes_, Triplet(kLabel + "020501010d01030104010100", Bytes(57, static_cast<uint8_t>(i))));
      Align();
    }
    pictureAt_.back() = bytes_.size() - begin;
    Put(bytes_, Triplet(kLabel + "010201010d01030115010500", pictures_[i], options_.lengthBytes));
    if (options_.pictureFill != 0) Fill(options_.pictureFill);
    Align();
    soundAt_.push_back(bytes_.size() - begin);
    if (options_.sound) {
      Put(bytes_, Triplet(kLabel + "010201010d01030116010300", Bytes(96, static_cast<uint8_t>(i * 3)),
                          options_.lengthBytes));
      Align();
    }
    if (i < options_.ancillaryElements.size()) {
      Put(bytes_, Triplet(options_.ancillaryLines ? kLabel + "010201010d01030117010101"
                                                  : kLabel + "010201010d01030117010201",
                          options_.ancillaryElements[i]));
      Align();
    }
    if (options_.ancillary) {
      Put(bytes_, Triplet(kLabel + "010201010d01030117010201", Bytes(20 + i % 3, 0x61)));
      Align();
    }
    if (options_.dark && i % 2 == 1)
      Put(bytes_, Triplet(kLabel + "010102030e0f101112131499", Bytes(7, 0x44), 9));
    unitBytes_ = bytes_.size() - begin;
  }

  void Segments(size_t first, size_t end) {
    const size_t begin = bytes_.size();
    const size_t step = options_.unitsPerSegment == 0 ? end - first : options_.unitsPerSegment;
    for (size_t at = first; at < end; at += std::max<size_t>(1, step)) {
      Segment(at, std::min(end, at + step));
      if (options_.index == Indexed::kByOneSize) break;
    }
    Align();
    indexBytes_[packs_.size() - 1] = bytes_.size() - begin;
  }

  void Segment(size_t first, size_t end) {
    const bool constant = options_.index == Indexed::kByOneSize;
    const bool slices = options_.slices && options_.sound && !constant;
    Bytes value;
    const auto add = [&value](uint16_t tag, const Bytes& bytes) {
      Put(value, tag, 2);
      Put(value, bytes.size(), 2);
      Put(value, bytes);
    };
    const auto number = [&add](uint16_t tag, uint64_t is, size_t bytes) {
      Bytes all;
      Put(all, is, bytes);
      add(tag, all);
    };
    add(0x3C0A, Instance(static_cast<uint8_t>(100 + first)));
    number(0x3F0B, uint64_t{options_.rate} << 32 | options_.rateScale, 8);
    number(0x3F0C, first, 8);
    number(0x3F0D, constant ? 0 : end - first, 8);
    if (constant) unitBytesAt_ = bytes_.size() + 20 + value.size() + 4;
    number(0x3F05, 0, 4);
    number(0x3F06, 2, 4);
    number(0x3F07, 1, 4);
    number(0x3F08, slices ? 1 : 0, 1);
    Bytes deltas;
    Put(deltas, slices ? 2 : 1, 4);
    Put(deltas, 6, 4);
    Put(deltas, 0, 6);
    if (slices) Put(deltas, uint64_t{1} << 32, 6);
    add(0x3F09, deltas);
    if (!constant) {
      Bytes entries;
      Put(entries, end - first, 4);
      Put(entries, slices ? 15 : 11, 4);
      for (size_t i = first; i < end; ++i) {
        const int offset = i < options_.temporalOffsets.size() ? options_.temporalOffsets[i] : 0;
        Put(entries, static_cast<uint8_t>(offset), 1);
        Put(entries, 0, 1);
        Put(entries, i % 4 == 0 ? 0xC0 : 0x22, 1);
        Put(entries, unitAt_[i], 8);
        if (slices) Put(entries, soundAt_[i], 4);
      }
      add(0x3F0A, entries);
    }
    Put(bytes_, Triplet(kLabel + "025301010d010201011001"
                                 "00",
                        value));
  }

  void RandomIndex() {
    Bytes value;
    for (const Pack& pack : packs_) {
      Put(value, pack.bodySid, 4);
      Put(value, pack.begin - options_.runIn, 8);
    }
    Put(value, value.size() + 4 + 20, 4);
    Put(bytes_, Triplet(kLabel + "020501010d010201011101"
                                 "00",
                        value));
  }

  void Number() {
    for (size_t i = 0; i < packs_.size(); ++i) {
      const size_t at = packs_[i].at;
      Store(bytes_, at + 8, packs_[i].begin - options_.runIn, 8);
      Store(bytes_, at + 16, i == 0 ? 0 : packs_[i - 1].begin - options_.runIn, 8);
      const bool told = options_.footer && !options_.open;
      Store(bytes_, at + 24, told ? packs_.back().begin - options_.runIn : 0, 8);
      Store(bytes_, at + 32, headerBytes_[i], 8);
      Store(bytes_, at + 40, indexBytes_[i], 8);
    }
    if (unitBytesAt_ != 0) Store(bytes_, unitBytesAt_, unitBytes_, 4);
  }

  const std::vector<Bytes>& pictures_;
  const MadeOptions& options_;
  Bytes bytes_;
  std::vector<Pack> packs_;
  std::map<size_t, uint64_t> headerBytes_, indexBytes_;
  std::vector<uint64_t> unitAt_, soundAt_, pictureAt_;
  size_t essence_ = 0, stream_ = 0, unitBytes_ = 0, unitBytesAt_ = 0;
};

}  // namespace

Bytes Triplet(const std::string& key, const Bytes& value, int lengthBytes) {
  Bytes bytes = Hex(key);
  bytes.resize(16);
  if (lengthBytes == 1 && value.size() < 128) {
    bytes.push_back(static_cast<uint8_t>(value.size()));
  } else {
    const auto field = static_cast<size_t>(lengthBytes == 1 ? 3 : lengthBytes - 1);
    bytes.push_back(static_cast<uint8_t>(0x80 | field));
    Put(bytes, value.size(), field);
  }
  Put(bytes, value);
  return bytes;
}

Bytes MakeFile(const std::vector<Bytes>& pictures, const MadeOptions& options) {
  return File(pictures, options).Make();
}

}  // namespace qln::test
