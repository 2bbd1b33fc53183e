// GStreamer's H.264 parser as a peer, over its public interface.
#ifndef BENCH_GST_H264_H
#define BENCH_GST_H264_H

#define GST_USE_UNSTABLE_API
#include <gst/codecparsers/gsth264parser.h>

#include "bench_streams.h"

namespace qln::bench {

// A unit with a start code in front of it, as the parser wants it.
struct GstH264Unit {
  Bytes bytes;
  GstH264NalUnit unit;

  GstH264Unit(GstH264NalParser* parser, const Bytes& source) : bytes(WithStartCodes({&source, 1})) {
    gst_h264_parser_identify_nalu_unchecked(parser, bytes.data(), 0, bytes.size(), &unit);
    unit.size = static_cast<guint>(bytes.size()) - unit.offset;
  }
};

// A parser that has seen the parameter sets of a stream.
struct GstH264Sets {
  GstH264NalParser* parser = gst_h264_nal_parser_new();
  GstH264SPS sps;
  GstH264PPS pps;

  GstH264Sets(const Bytes& spsBytes, const Bytes& ppsBytes) {
    GstH264Unit spsUnit(parser, spsBytes);
    Require(gst_h264_parser_parse_sps(parser, &spsUnit.unit, &sps) == GST_H264_PARSER_OK, "GStreamer's SPS");
    GstH264Unit ppsUnit(parser, ppsBytes);
    Require(gst_h264_parser_parse_pps(parser, &ppsUnit.unit, &pps) == GST_H264_PARSER_OK, "GStreamer's PPS");
  }
  ~GstH264Sets() {
    gst_h264_pps_clear(&pps);
    gst_h264_sps_clear(&sps);
    gst_h264_nal_parser_free(parser);
  }
};

}  // namespace qln::bench

#endif
