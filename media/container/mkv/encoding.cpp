// zlib and header stripping; others are known by name.

#include "container/mkv/encoding.h"

#include <fmt/format.h>
#include <zlib.h>

#include <algorithm>
#include <new>

namespace qlnmedia::mkv {

namespace {

// Longer than any picture; a few kilobytes of zlib can ask for gigabytes.
constexpr size_t kMostBytes = size_t{64} << 20;
constexpr uint64_t kMostStripped = 4096;

constexpr uint64_t kScopeFrames = 1, kScopePrivate = 2;
constexpr uint64_t kAlgorithmZlib = 0, kAlgorithmStripped = 3;

const char* NameOf(const Encoding& encoding) {
  if (encoding.kind == Encoding::Kind::kEncrypted) return "encrypted";
  constexpr const char* kNames[] = {"zlib", "bzlib", "lzo1x", "header stripping"};
  return encoding.algorithm < std::size(kNames) ? kNames[encoding.algorithm] : "of an unknown kind";
}

[[noreturn]] void FailOf(const Source& source, uint64_t at, const Encoding& encoding) {
  throw source.Fault(at, encoding.kind == Encoding::Kind::kEncrypted
                             ? "what is to change is encrypted"
                             : fmt::format("what is to change is compressed ({}), which is not undone here",
                                           NameOf(encoding)));
}

// What zlib holds for a stream goes with it, whatever is thrown meanwhile.
class InflateStream {
 public:
  InflateStream() {
    if (inflateInit(&stream_) != Z_OK) throw std::bad_alloc();
  }
  ~InflateStream() { inflateEnd(&stream_); }
  InflateStream(const InflateStream&) = delete;
  InflateStream& operator=(const InflateStream&) = delete;
  z_stream& get() { return stream_; }

 private:
  z_stream stream_ = {};
};

Bytes Inflate(const Source& source, uint64_t at, ByteSpan bytes) {
  InflateStream held;
  z_stream& stream = held.get();
  stream.next_in = const_cast<Bytef*>(bytes.data());  // which zlib does not write to
  stream.avail_in = static_cast<uInt>(bytes.size());
  Bytes out;
  int result = Z_OK;
  while (result == Z_OK && out.size() < kMostBytes) {
    const size_t had = out.size();
    out.resize(had + std::max<size_t>(had, 4096));
    stream.next_out = out.data() + had;
    stream.avail_out = static_cast<uInt>(out.size() - had);
    result = inflate(&stream, Z_NO_FLUSH);
    out.resize(out.size() - stream.avail_out);
    if (result == Z_BUF_ERROR || (result == Z_OK && stream.avail_in == 0 && stream.avail_out != 0)) break;
  }
  const bool whole = result == Z_STREAM_END && stream.avail_in == 0;
  if (!whole) throw source.Fault(at, "what is compressed here is no whole zlib stream");
  return out;
}

Bytes Deflate(ByteSpan bytes) {
  uLongf size = compressBound(static_cast<uLong>(bytes.size()));
  Bytes out(size);
  if (compress2(out.data(), &size, bytes.data(), static_cast<uLong>(bytes.size()), Z_BEST_COMPRESSION) !=
      Z_OK)
    throw std::bad_alloc();
  out.resize(size);
  return out;
}

void ReadCompression(Reader& reader, const Element& element, const Limits& limits, Encoding& encoding) {
  ForEachElement(reader, element.body, element.end, limits, [&](const Element& child) {
    if (child.id == id::kCompAlgo) encoding.algorithm = ReadUnsigned(reader, child);
    if (child.id == id::kCompSettings) {
      if (child.size() > kMostStripped)
        throw reader.source().Fault(child.at, "more is said to be stripped off frames than makes sense");
      encoding.stripped = reader.Run(child.body, child.size());
    }
  });
}

}  // namespace

void Encodings::Add(Encoding encoding) { list_.push_back(std::move(encoding)); }

void Encodings::Sort() {
  std::stable_sort(list_.begin(), list_.end(),
                   [](const Encoding& a, const Encoding& b) { return a.order < b.order; });
}

bool Encodings::encryptsFrames() const {
  return std::any_of(list_.begin(), list_.end(), [](const Encoding& encoding) {
    return encoding.kind == Encoding::Kind::kEncrypted && encoding.ofFrames;
  });
}

bool Encodings::touchesFrames() const {
  return std::any_of(list_.begin(), list_.end(), [](const Encoding& encoding) { return encoding.ofFrames; });
}

bool Encodings::touchesPrivateData() const {
  return std::any_of(list_.begin(), list_.end(),
                     [](const Encoding& encoding) { return encoding.ofPrivateData; });
}

Bytes Encodings::Undo(const Source& source, uint64_t at, ByteSpan bytes, bool privateData) const {
  Bytes out(bytes.begin(), bytes.end());
  for (auto encoding = list_.rbegin(); encoding != list_.rend(); ++encoding) {
    if (!(privateData ? encoding->ofPrivateData : encoding->ofFrames)) continue;
    if (encoding->kind == Encoding::Kind::kZlib) {
      out = Inflate(source, at, out);
    } else if (encoding->kind == Encoding::Kind::kStripped) {
      out.insert(out.begin(), encoding->stripped.begin(), encoding->stripped.end());
    } else {
      FailOf(source, at, *encoding);
    }
  }
  return out;
}

Bytes Encodings::Do(const Source& source, uint64_t at, ByteSpan bytes, bool privateData) const {
  Bytes out(bytes.begin(), bytes.end());
  for (const Encoding& encoding : list_) {
    if (!(privateData ? encoding.ofPrivateData : encoding.ofFrames)) continue;
    if (encoding.kind == Encoding::Kind::kZlib) {
      out = Deflate(out);
    } else if (encoding.kind == Encoding::Kind::kStripped) {
      const Bytes& front = encoding.stripped;
      if (out.size() < front.size() || !std::equal(front.begin(), front.end(), out.begin()))
        throw source.Fault(at,
                           "the frame would no longer begin with the bytes that its track strips off all");
      out.erase(out.begin(), out.begin() + static_cast<std::ptrdiff_t>(front.size()));
    } else {
      FailOf(source, at, encoding);
    }
  }
  return out;
}

Encodings ReadEncodings(Reader& reader, const Element& element, const Limits& limits) {
  Encodings encodings;
  ForEachElement(reader, element.body, element.end, limits, [&](const Element& child) {
    if (child.id != id::kContentEncoding) return;
    Encoding encoding;
    uint64_t scope = kScopeFrames;
    uint64_t type = 0;
    ForEachElement(reader, child.body, child.end, limits, [&](const Element& field) {
      if (field.id == id::kEncodingOrder) encoding.order = ReadUnsigned(reader, field);
      if (field.id == id::kEncodingScope) scope = ReadUnsigned(reader, field);
      if (field.id == id::kEncodingType) type = ReadUnsigned(reader, field);
      if (field.id == id::kCompression) ReadCompression(reader, field, limits, encoding);
    });
    encoding.ofFrames = (scope & kScopeFrames) != 0;
    encoding.ofPrivateData = (scope & kScopePrivate) != 0;
    if (type == 1) {
      encoding.kind = Encoding::Kind::kEncrypted;
    } else if (type != 0 ||
               (encoding.algorithm != kAlgorithmZlib && encoding.algorithm != kAlgorithmStripped)) {
      encoding.kind = Encoding::Kind::kOther;
    } else if (encoding.algorithm == kAlgorithmStripped) {
      encoding.kind = Encoding::Kind::kStripped;
    }
    encodings.Add(std::move(encoding));
  });
  encodings.Sort();
  return encodings;
}

}  // namespace qlnmedia::mkv
