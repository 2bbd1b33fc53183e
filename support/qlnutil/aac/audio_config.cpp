// The fixed start of AudioSpecificConfig, ISO/IEC 14496-3 clause 1.6.2.1.

#include <iterator>

#include "qlnutil/bits/bit_reader.h"
#include "qlnutil/bits/bit_writer.h"
#include "qlnutil/qlnaac.h"

namespace {

// Table 1.18 of ISO/IEC 14496-3, in hertz; 13 and 14 are reserved.
constexpr uint32_t kSamplingFrequencies[] = {96000, 88200, 64000, 48000, 44100, 32000, 24000, 22050,
                                             16000, 12000, 11025, 8000,  7350,  0,     0};

}  // namespace

int32_t qlnutilReadAAC(QLNBitState* state, QLNAacConfig* config) {
  qln::BitReader reader(*state);
  config->audioObjectType = reader.ReadBits(5);
  config->samplingFrequencyIndex = reader.ReadBits(4);
  if (config->samplingFrequencyIndex < std::size(kSamplingFrequencies)) {
    config->samplingFrequency = kSamplingFrequencies[config->samplingFrequencyIndex];
  } else if (config->samplingFrequencyIndex == QLN_AAC_EXPLICIT_FREQUENCY) {
    config->samplingFrequency = reader.ReadBits(24);
  }
  config->channelConfiguration = reader.ReadBits(4);
  config->frameLengthFlag = reader.ReadBits(1);
  config->dependsOnCoreCoder = reader.ReadBits(1);
  config->extensionFlag = reader.ReadBits(1);
  state->bitPos = reader.bitPos;
  return 0;
}

int32_t qlnutilWriteAAC(QLNBitState* state, const QLNAacConfig* config) {
  qln::BitWriter writer(*state);
  writer.WriteBits(5, config->audioObjectType);
  writer.WriteBits(4, config->samplingFrequencyIndex);
  if (config->samplingFrequencyIndex == QLN_AAC_EXPLICIT_FREQUENCY) {
    writer.WriteBits(24, config->samplingFrequency);
  }
  writer.WriteBits(4, config->channelConfiguration);
  writer.WriteBits(1, config->frameLengthFlag);
  writer.WriteBits(1, config->dependsOnCoreCoder);
  writer.WriteBits(1, config->extensionFlag);
  state->bitPos = static_cast<uint32_t>(writer.bitPos);
  return 0;
}
