// Puts a sample description's boxes together anew, untouched ones as they stood.

#include "container/mp4/description_edit.h"

#include <algorithm>

#include "container/mp4/picture_size.h"

namespace qlnmedia::mp4 {

namespace {

struct Piece {
  uint32_t type = 0;
  Bytes head;
  Bytes body;
};

// With the head's kind kept, since a head of 64 bits is one that somebody chose.
void SetBody(Piece& piece, Bytes body) {
  const bool wide = piece.head.size() == 16;
  piece.body = std::move(body);
  piece.head = NumberBytes(wide ? 1 : piece.body.size() + 8, 4);
  PutNumber(piece.head, piece.type, 4);
  if (wide) PutNumber(piece.head, piece.body.size() + 16, 8);
}

class DescriptionEditor {
 public:
  DescriptionEditor(const Source& source, const Description& description) : source_(source) {
    Reader reader(source);
    BoxLevel level(reader, description.boxesAt, description.boxesEnd);
    for (Box box; level.Next(box); last_ = box) {
      pieces_.push_back(
          {box.type, reader.Run(box.at, box.body - box.at), reader.Run(box.body, box.bodySize())});
    }
  }

  bool Replace(uint32_t type, const Bytes& body) {
    const auto found =
        std::find_if(pieces_.begin(), pieces_.end(), [=](const Piece& piece) { return piece.type == type; });
    if (found == pieces_.end()) return false;
    if (found->body != body) SetBody(*found, body);
    return true;
  }

  void Set(uint32_t type, const Bytes& body) {
    if (!Replace(type, body)) Add(type, body);
  }

  void SetColour(const Colour& colour, bool quickTime) {
    bool any = false;
    for (Piece& piece : pieces_) {
      if (piece.type != FourCc("colr") || piece.body.size() < 10) continue;
      const auto kind = static_cast<uint32_t>(LoadNumber(piece.body.data(), 4));
      if (kind != FourCc("nclx") && kind != FourCc("nclc")) continue;
      any = true;
      PutCode(piece.body, 4, colour.primaries);
      PutCode(piece.body, 6, colour.transfer);
      PutCode(piece.body, 8, colour.matrix);
      if (kind == FourCc("nclx") && piece.body.size() > 10 && colour.fullRange) {
        piece.body[10] = static_cast<uint8_t>((piece.body[10] & 0x7F) | (*colour.fullRange ? 0x80 : 0));
      }
    }
    if (any || !colour.primaries || !colour.transfer || !colour.matrix) return;
    Bytes body = NumberBytes(quickTime ? FourCc("nclc") : FourCc("nclx"), 4);
    for (const auto& code : {colour.primaries, colour.transfer, colour.matrix}) PutNumber(body, *code, 2);
    if (!quickTime) body.push_back(colour.fullRange.value_or(false) ? 0x80 : 0);
    Add(FourCc("colr"), body);
  }

  void SetFacts(const ContainerFacts& facts, bool quickTime) {
    if (facts.colour) SetColour(*facts.colour, quickTime);
    if (facts.pixelShape) Set(FourCc("pasp"), Numbers(*facts.pixelShape, 4));
    if (facts.cleanAperture) Set(FourCc("clap"), Numbers(*facts.cleanAperture, 4));
    if (facts.fields) Set(FourCc("fiel"), Numbers(*facts.fields, 1));
    if (facts.mastering) Set(FourCc("mdcv"), Numbers(*facts.mastering, 1));
    if (facts.lightLevel) Set(FourCc("clli"), Numbers(*facts.lightLevel, 2));
  }

  void FollowPicture(const PictureSize& picture, const std::array<uint32_t, 2>& said) {
    for (Piece& piece : pieces_) {
      if (piece.type == FourCc("clap"))
        piece.body = FollowedAperture(piece.body, picture, said, FollowedSize(picture, said));
    }
  }

  void SetRates(const BitRates& before, const BitRates& after) {
    for (Piece& piece : pieces_) {
      if (piece.type != FourCc("btrt") || piece.body.size() < 12) continue;
      const auto said = [&piece](size_t at) {
        return static_cast<uint32_t>(LoadNumber(piece.body.data() + at, 4));
      };
      // The first two bound what the samples need; the last is what they have, as exactly as it was rounded.
      if (before.buffer <= said(0) && after.buffer > said(0)) PutWord(piece.body, 0, after.buffer);
      if (before.most <= said(4) && after.most > said(4)) PutWord(piece.body, 4, after.most);
      const uint32_t average = said(8);
      const uint32_t apart = std::max(average, before.average) - std::min(average, before.average);
      if (average != 0 && apart <= 1) PutWord(piece.body, 8, after.average);
    }
  }

  Bytes Joined() const {
    Bytes out;
    for (const Piece& piece : pieces_) {
      out.insert(out.end(), piece.head.begin(), piece.head.end());
      out.insert(out.end(), piece.body.begin(), piece.body.end());
    }
    return out;
  }

 private:
  template <typename List>
  static Bytes Numbers(const List& list, size_t bytes) {
    Bytes out;
    for (const auto number : list) PutNumber(out, number, bytes);
    return out;
  }

  static void PutCode(Bytes& body, size_t at, std::optional<uint16_t> code) {
    if (!code) return;
    body[at] = static_cast<uint8_t>(*code >> 8);
    body[at + 1] = static_cast<uint8_t>(*code);
  }

  static void PutWord(Bytes& body, size_t at, uint32_t value) {
    for (size_t i = 0; i < 4; ++i) body[at + i] = static_cast<uint8_t>(value >> (24 - 8 * i));
  }

  // Behind a box that says more than there is, another would be a part of that one.
  void Add(uint32_t type, Bytes body) {
    Reader reader(source_);
    RequireBody(reader, last_, 0);
    pieces_.push_back({type, {}, {}});
    SetBody(pieces_.back(), std::move(body));
  }

  const Source& source_;
  std::vector<Piece> pieces_;
  Box last_;  // as it stands in the file
};

}  // namespace

std::optional<NewDescription> EditDescription(const Source& source, const Layout& layout, const Track& track,
                                              uint32_t number, const TrackChange& change,
                                              const BitRates* before, const BitRates* after) {
  const Description& description = track.descriptions[number - 1];
  DescriptionEditor editor(source, description);
  const Bytes old = editor.Joined();
  for (const PrivateData& data : change.privateData) {
    if (data.description != 0 && data.description != number) continue;
    if (!editor.Replace(data.type, data.body) && data.description != 0) {
      throw source.Fault(description.entry.at, "sample description " + std::to_string(number) + " of track " +
                                                   std::to_string(track.id) + " holds no '" +
                                                   TypeName(data.type) + "'");
    }
  }
  editor.SetFacts(change.facts, layout.quickTime);
  for (const PictureSize& picture : change.pictures) {
    if (picture.description != number) continue;
    Reader reader(source);
    editor.FollowPicture(picture, ReadEntrySize(reader, description));
  }
  if (before != nullptr) editor.SetRates(*before, *after);
  Bytes fresh = editor.Joined();
  if (fresh == old) return std::nullopt;
  NewDescription out;
  out.at = description.boxesAt - 1;
  out.end = description.boxesEnd;
  Bytes first(1);
  source.Read(out.at, first);
  out.bytes = std::move(first);
  out.bytes.insert(out.bytes.end(), fresh.begin(), fresh.end());
  return out;
}

}  // namespace qlnmedia::mp4
