// Elements of an entry as a tree in memory, of which what did not change is written as it was read.

#include "container/mkv/track_edit.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <bit>
#include <cmath>
#include <numeric>

#include "container/mkv/shape.h"
#include "container/mp4/picture_size.h"

namespace qlnmedia::mkv {

namespace {

constexpr uint64_t kMostTrackBytes = uint64_t{32} << 20;

// Values of elements (RFC 9559 section 5.1.4.1.28).
constexpr uint64_t kInterlaced = 1, kProgressive = 2;
constexpr uint64_t kLimited = 1, kFull = 2;
constexpr uint64_t kInPixels = 0, kAsRatio = 3;

struct Node {
  Element element;  // as it was read; of one that comes in the identifier alone
  bool master = false;
  Bytes body;  // of one that is no master
  std::vector<Node> children;
};

// The way to what a change may name; the same identifiers elsewhere are nobody's.
bool IsMaster(uint64_t parent, uint64_t id) {
  return (parent == id::kTrackEntry && id == id::kVideo) || (parent == id::kVideo && id == id::kColour) ||
         (parent == id::kColour && id == id::kMastering);
}

Node ReadNode(Reader& reader, const Element& element, bool master, const Limits& limits) {
  Node node;
  node.element = element;
  node.master = master;
  if (!master) {
    node.body = reader.Run(element.body, element.size());
    return node;
  }
  ForEachElement(reader, element.body, element.end, limits, [&](const Element& child) {
    node.children.push_back(ReadNode(reader, child, IsMaster(element.id, child.id), limits));
  });
  return node;
}

class EntryEdit {
 public:
  EntryEdit(const Source& source, const Entry& entry, const Limits& limits)
      : source_(source), reader_(source), entry_(entry), limits_(limits) {
    if (entry.element.size() > kMostTrackBytes)
      throw source.Fault(entry.element.at, "the description of a track is longer than makes sense");
    root_ = ReadNode(reader_, entry.element, true, limits);
  }

  void Apply(const mp4::TrackChange& change) {
    for (const mp4::PrivateData& data : change.privateData) {
      if (data.description == 0 || data.description == entry_.description) SetPrivateData(data.body);
    }
    for (const mp4::PictureSize& picture : change.pictures) {
      if (picture.description == entry_.description) SetPicture(picture);
    }
    const mp4::ContainerFacts& facts = change.facts;
    if (facts.colour) SetColour(*facts.colour);
    if (facts.pixelShape) SetShape((*facts.pixelShape)[0], (*facts.pixelShape)[1]);
    if (facts.fields) SetFields(*facts.fields);
    if (facts.mastering) SetMastering(*facts.mastering);
    if (facts.lightLevel) {
      Node& colour = Master(Master(root_, id::kVideo), id::kColour);
      SetUnsigned(colour, id::kMaxCll, (*facts.lightLevel)[0]);
      SetUnsigned(colour, id::kMaxFall, (*facts.lightLevel)[1]);
    }
  }

  Bytes Written() const { return Write(root_); }

 private:
  static Node* Find(Node& parent, uint64_t id) {
    const auto found = std::find_if(parent.children.begin(), parent.children.end(),
                                    [id](const Node& node) { return node.element.id == id; });
    return found == parent.children.end() ? nullptr : &*found;
  }

  static Node& Add(Node& parent, uint64_t id) {
    Node& node = parent.children.emplace_back();
    node.element.id = id;
    node.master = IsMaster(parent.element.id, id);
    return node;
  }

  static Node& Master(Node& parent, uint64_t id) {
    Node* const found = Find(parent, id);
    return found != nullptr ? *found : Add(parent, id);
  }

  std::optional<uint64_t> Unsigned(Node& parent, uint64_t id) {
    const Node* const found = Find(parent, id);
    if (found == nullptr || found->body.size() > 8) return {};
    return mp4::LoadNumber(found->body.data(), found->body.size());
  }

  void SetUnsigned(Node& parent, uint64_t id, uint64_t value) {
    if (Unsigned(parent, id) == value) return;
    Node* found = Find(parent, id);
    if (found == nullptr) found = &Add(parent, id);
    const size_t had = found->body.size() > 8 ? 0 : found->body.size();
    found->body = mp4::NumberBytes(value, std::max(had, UnsignedBytesFor(value)));
  }

  // One that is there keeps its form where that holds the value.
  static void SetFloat(Node& parent, uint64_t id, double value) {
    Node* found = Find(parent, id);
    if (found == nullptr) found = &Add(parent, id);
    if (found->body.size() == 4 && static_cast<double>(static_cast<float>(value)) == value) {
      found->body = mp4::NumberBytes(std::bit_cast<uint32_t>(static_cast<float>(value)), 4);
    } else {
      found->body = mp4::NumberBytes(std::bit_cast<uint64_t>(value), 8);
    }
  }

  void SetPrivateData(const Bytes& data) {
    Node* const node = Find(root_, id::kCodecPrivate);
    if (node == nullptr || data == ReadPrivateData(source_, entry_)) return;
    const bool encoded = entry_.encodings.touchesPrivateData();
    const uint64_t at = entry_.privateData.body;
    Bytes fresh = encoded ? entry_.encodings.Undo(source_, at, node->body, true) : node->body;
    const size_t was = fresh.size();
    fresh.resize(std::min(entry_.privateHead(), fresh.size()));
    const size_t head = fresh.size();
    fresh.insert(fresh.end(), data.begin(), data.end());
    // A BITMAPINFOHEADER begins with a size, which some count up to the end.
    if (head >= 4) {
      const auto byte = [&](size_t i) { return size_t{fresh[i]} << (8 * i); };
      if ((byte(0) | byte(1) | byte(2) | byte(3)) == was) {
        for (size_t i = 0; i < 4; ++i) fresh[i] = static_cast<uint8_t>(fresh.size() >> (8 * i));
      }
    }
    node->body = encoded ? entry_.encodings.Do(source_, at, fresh, true) : fresh;
  }

  void SetColour(const mp4::Colour& wanted) {
    Node& colour = Master(Master(root_, id::kVideo), id::kColour);
    if (wanted.matrix) SetUnsigned(colour, id::kMatrix, *wanted.matrix);
    if (wanted.transfer) SetUnsigned(colour, id::kTransfer, *wanted.transfer);
    if (wanted.primaries) SetUnsigned(colour, id::kPrimaries, *wanted.primaries);
    if (wanted.fullRange) SetUnsigned(colour, id::kRange, *wanted.fullRange ? kFull : kLimited);
  }

  void SetFields(const std::array<uint8_t, 2>& fields) {
    Node& video = Master(root_, id::kVideo);
    const bool interlaced = fields[0] == 2;
    SetUnsigned(video, id::kFlagInterlaced, interlaced ? kInterlaced : kProgressive);
    // The orders have the numbers of QuickTime.
    if (interlaced || Find(video, id::kFieldOrder) != nullptr)
      SetUnsigned(video, id::kFieldOrder, interlaced ? fields[1] : 0);
  }

  // From the message's order (green, blue, red, white) to that of the elements.
  void SetMastering(const std::array<uint8_t, 24>& body) {
    Node& mastering = Master(Master(Master(root_, id::kVideo), id::kColour), id::kMastering);
    constexpr double kChromaticityUnits = 50000, kLuminanceUnits = 10000;
    constexpr std::array<size_t, 4> kOrder = {2, 0, 1, 3};
    for (size_t point = 0; point < kOrder.size(); ++point) {
      for (size_t axis = 0; axis < 2; ++axis) {
        const uint64_t value = mp4::LoadNumber(body.data() + 4 * kOrder[point] + 2 * axis, 2);
        SetFloat(mastering, id::kChromaticity + 2 * point + axis,
                 static_cast<double>(value) / kChromaticityUnits);
      }
    }
    const auto luminance = [&](size_t at) {
      return static_cast<double>(mp4::LoadNumber(body.data() + at, 4)) / kLuminanceUnits;
    };
    SetFloat(mastering, id::kLuminanceMax, luminance(16));
    SetFloat(mastering, id::kLuminanceMin, luminance(20));
  }

  struct Size {
    uint64_t width = 0;
    uint64_t height = 0;
  };

  // What is shown of the pictures, in their samples.
  Size Shown(Node& video) {
    const auto value = [&](uint64_t id) { return Unsigned(video, id).value_or(0); };
    const auto less = [](uint64_t all, uint64_t off) { return all > off ? all - off : 0; };
    return {less(less(value(id::kPixelWidth), value(id::kCropLeft)), value(id::kCropRight)),
            less(less(value(id::kPixelHeight), value(id::kCropTop)), value(id::kCropBottom))};
  }

  // The shape of a sample as width to height, from the display size; 0 where that is not told.
  Size Shape(Node& video) {
    const Size shown = Shown(video);
    const uint64_t width = Unsigned(video, id::kDisplayWidth).value_or(shown.width);
    const uint64_t height = Unsigned(video, id::kDisplayHeight).value_or(shown.height);
    constexpr uint64_t kMost = UINT32_MAX;
    const bool known = Unsigned(video, id::kDisplayUnit).value_or(kInPixels) <= kAsRatio;
    if (!known || width == 0 || height == 0 || shown.width == 0 || shown.height == 0 || width > kMost ||
        height > kMost || shown.width > kMost || shown.height > kMost)
      return {};
    const Size shape{width * shown.height, height * shown.width};
    const uint64_t common = std::gcd(shape.width, shape.height);
    return {shape.width / common, shape.height / common};
  }

  void SetShape(uint64_t horizontal, uint64_t vertical) {
    Node& video = Master(root_, id::kVideo);
    const Size shown = Shown(video);
    constexpr uint64_t kMost = UINT32_MAX;
    if (horizontal == 0 || vertical == 0 || horizontal > kMost || vertical > kMost || shown.width > kMost ||
        shown.height > kMost)
      return;
    const Size was = Shape(video);
    const uint64_t common = std::gcd(horizontal, vertical);
    if (was.width == horizontal / common && was.height == vertical / common) return;
    Size display{shown.width * horizontal, shown.height * vertical};
    uint64_t unit = kInPixels;
    if (display.width % vertical == 0) {
      display = {display.width / vertical, shown.height};
    } else if (display.height % horizontal == 0) {
      display = {shown.width, display.height / horizontal};
    } else {
      const uint64_t ratio = std::gcd(display.width, display.height);
      display = {display.width / ratio, display.height / ratio};
      unit = kAsRatio;
    }
    SetUnsigned(video, id::kDisplayWidth, display.width);
    SetUnsigned(video, id::kDisplayHeight, display.height);
    if (Unsigned(video, id::kDisplayUnit).value_or(kInPixels) != unit)
      SetUnsigned(video, id::kDisplayUnit, unit);
  }

  void SetPicture(const mp4::PictureSize& picture) {
    Node& video = Master(root_, id::kVideo);
    const std::array<uint32_t, 2> said = {
        static_cast<uint32_t>(Unsigned(video, id::kPixelWidth).value_or(0)),
        static_cast<uint32_t>(Unsigned(video, id::kPixelHeight).value_or(0))};
    const std::array<uint32_t, 2> fresh = mp4::FollowedSize(picture, said);
    if (said == fresh || said[0] == 0 || said[1] == 0) return;
    const bool displayed = Find(video, id::kDisplayWidth) != nullptr;
    const Size shape = displayed ? Shape(video) : Size{};
    const bool measured = Unsigned(video, id::kDisplayUnit).value_or(kInPixels) % kAsRatio != 0;
    // The container names the same part of the picture as before, as far as that is still there.
    const int64_t lines = picture.height != 0 && fresh[1] == 2 * uint64_t{picture.height} ? 2 : 1;
    const auto crop = [&](uint64_t id, int64_t moved) {
      const std::optional<uint64_t> was = Unsigned(video, id);
      if (!was || *was > INT32_MAX) return;
      SetUnsigned(video, id, static_cast<uint64_t>(std::max<int64_t>(0, static_cast<int64_t>(*was) - moved)));
    };
    crop(id::kCropLeft, picture.left);
    crop(id::kCropTop, picture.top * lines);
    crop(id::kCropRight, int64_t{said[0]} - fresh[0] - picture.left);
    crop(id::kCropBottom, int64_t{said[1]} - fresh[1] - picture.top * lines);
    SetUnsigned(video, id::kPixelWidth, fresh[0]);
    SetUnsigned(video, id::kPixelHeight, fresh[1]);
    if (shape.width == 0) return;
    if (measured) {
      for (const size_t axis : {0U, 1U}) {
        const uint64_t id = axis == 0 ? id::kDisplayWidth : id::kDisplayHeight;
        const uint64_t was = Unsigned(video, id).value_or(0);
        SetUnsigned(video, id, (was * fresh[axis] + said[axis] / 2) / said[axis]);
      }
      return;
    }
    const Size shown = Shown(video);
    // The shape of samples stays; where it is that of a square, so does the display size's being the
    // picture's.
    if (shape.width == shape.height) {
      SetUnsigned(video, id::kDisplayWidth, shown.width);
      SetUnsigned(video, id::kDisplayHeight, shown.height);
    } else {
      SetShape(shape.width, shape.height);
    }
  }

  Bytes Write(const Node& node) const {
    const Element& element = node.element;
    Bytes body = node.master ? Bytes{} : node.body;
    for (const Node& child : node.children) {
      const Bytes bytes = Write(child);
      body.insert(body.end(), bytes.begin(), bytes.end());
    }
    if (node.master && element.end != 0) PutChecksum(node, body);
    const size_t idBytes = element.idBytes != 0 ? element.idBytes : UnsignedBytesFor(element.id);
    const size_t sizeBytes = std::max<size_t>(element.sizeBytes, SizeBytesFor(body.size()));
    if (sizeBytes > limits_.sizeBytes)
      throw source_.Fault(entry_.element.at,
                          "the description of a track would need longer sizes than this "
                          "document allows");
    Bytes out = mp4::NumberBytes(element.id, idBytes);
    const Bytes size = NumberOf(body.size(), sizeBytes);
    out.insert(out.end(), size.begin(), size.end());
    out.insert(out.end(), body.begin(), body.end());
    return out;
  }

  // One that was right stays so.
  void PutChecksum(const Node& node, Bytes& body) const {
    if (node.children.empty() || node.children.front().element.id != id::kCrc ||
        node.children.front().body.size() != kCrcBytes)
      return;
    const Element& crc = node.children.front().element;
    const auto fields = [](uint32_t value) {
      Bytes bytes;
      for (int shift = 0; shift < 32; shift += 8) bytes.push_back(static_cast<uint8_t>(value >> shift));
      return bytes;
    };
    if (fields(ChecksumOf(source_, crc.end, node.element.end)) != node.children.front().body) return;
    const size_t begin = static_cast<size_t>(crc.end - crc.at);
    const mp4::MemorySource fresh(ByteSpan(body).subspan(begin));
    const Bytes value = fields(ChecksumOf(fresh, 0, fresh.size()));
    std::copy(value.begin(), value.end(), body.begin() + static_cast<std::ptrdiff_t>(begin - kCrcBytes));
  }

  const Source& source_;
  Reader reader_;
  const Entry& entry_;
  Limits limits_;
  Node root_;
};

}  // namespace

Bytes ChangedEntry(const Source& source, const Entry& entry, const Limits& limits,
                   const mp4::TrackChange& change) {
  EntryEdit edit(source, entry, limits);
  edit.Apply(change);
  return edit.Written();
}

}  // namespace qlnmedia::mkv
