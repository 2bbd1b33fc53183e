// Reads the forms of captions that GStreamer knows.

#include "captions.h"

#include <gst/video/video-anc.h>

#include <cmath>

#include "qlnmedia/caption_packet.h"

namespace qlngst {

namespace {

using qlnmedia::captions::CcType;
using qlnmedia::captions::Triplet;
using Triplets = std::vector<Triplet>;

// cc_data() as CTA-708 lays it out: marker bits and cc_valid, cc_type, and two bytes.
void TakeCcData(const GstVideoCaptionMeta& meta, Triplets& triplets) {
  for (gsize at = 0; at + 3 <= meta.size; at += 3)
    triplets.push_back({(meta.data[at] & 4) != 0, static_cast<CcType>(meta.data[at] & 3), meta.data[at + 1],
                        meta.data[at + 2]});
}

// Triplets of SMPTE ST 334-1 annex A: the field in the highest bit, set for field 1, and two bytes.
void TakeLines(const GstVideoCaptionMeta& meta, Triplets& triplets) {
  for (gsize at = 0; at + 3 <= meta.size; at += 3)
    triplets.push_back({true, (meta.data[at] & 0x80) != 0 ? CcType::kField1 : CcType::kField2,
                        meta.data[at + 1], meta.data[at + 2]});
}

// Pairs without a field are those of field 1.
void TakePairs(const GstVideoCaptionMeta& meta, Triplets& triplets) {
  for (gsize at = 0; at + 2 <= meta.size; at += 2)
    triplets.push_back({true, CcType::kField1, meta.data[at], meta.data[at + 1]});
}

// cc_count of CTA-708: 600 triplets a second.
void FillUp(Triplets& triplets, qlnmedia::Rational rate) {
  constexpr double kTripletsASecond = 600;
  if (rate.numerator <= 0 || triplets.empty()) return;
  const auto wanted = static_cast<size_t>(std::lround(kTripletsASecond / std::round(rate.value())));
  if (wanted > qlnmedia::captions::kMostTriplets) return;
  while (triplets.size() < wanted) triplets.push_back({false, CcType::kServiceData, 0, 0});
}

gboolean RemoveCaption(GstBuffer*, GstMeta** meta, gpointer) {
  if ((*meta)->info->api == GST_VIDEO_CAPTION_META_API_TYPE) *meta = nullptr;
  return TRUE;
}

}  // namespace

std::optional<Triplets> CaptionsOf(GstBuffer* buffer, qlnmedia::Rational rate, std::string* problem) {
  std::optional<Triplets> triplets;
  bool lines = false;
  gpointer state = nullptr;
  while (GstMeta* const each =
             gst_buffer_iterate_meta_filtered(buffer, &state, GST_VIDEO_CAPTION_META_API_TYPE)) {
    const GstVideoCaptionMeta& meta = *reinterpret_cast<GstVideoCaptionMeta*>(each);
    if (!triplets) triplets.emplace();
    switch (meta.caption_type) {
      case GST_VIDEO_CAPTION_TYPE_CEA708_RAW:
        TakeCcData(meta, *triplets);
        break;
      case GST_VIDEO_CAPTION_TYPE_CEA608_S334_1A:
        lines = true;
        TakeLines(meta, *triplets);
        break;
      case GST_VIDEO_CAPTION_TYPE_CEA608_RAW:
        lines = true;
        TakePairs(meta, *triplets);
        break;
      case GST_VIDEO_CAPTION_TYPE_CEA708_CDP: {
        std::string reason;
        const auto read = qlnmedia::captions::TripletsOfPacket({meta.data, meta.size}, &reason);
        if (read) triplets->insert(triplets->end(), read->begin(), read->end());
        if (!read) *problem = "a caption packet cannot be read: " + reason;
        break;
      }
      default:
        *problem = "captions of a kind that is not known";
    }
  }
  if (lines) FillUp(*triplets, rate);
  if (triplets && triplets->empty()) triplets.reset();
  return triplets;
}

void RemoveCaptionMetas(GstBuffer* buffer) { gst_buffer_foreach_meta(buffer, RemoveCaption, nullptr); }

}  // namespace qlngst
