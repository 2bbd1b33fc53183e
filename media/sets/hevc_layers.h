// The layers, layer sets and output layer sets that a video parameter set of several layers describes, as far
// as the lengths of its own elements follow from them (ITU-T H.265 annex F, semantics of the VPS extension).
#ifndef MEDIA_SETS_HEVC_LAYERS_H
#define MEDIA_SETS_HEVC_LAYERS_H

#include <array>
#include <bit>
#include <cstdint>
#include <vector>

namespace qlnmedia {

// Bit i stands for the layer of nuh_layer_id i, or for the i-th layer of a set.
using LayerMask = uint64_t;

inline constexpr LayerMask LayerBit(uint32_t layer) { return LayerMask{1} << layer; }
inline uint32_t CountLayers(LayerMask mask) { return static_cast<uint32_t>(std::popcount(mask)); }

// One output layer set.
struct HevcOutputLayerSet {
  uint32_t layerSet = 0;            // OlsIdxToLsIdx
  LayerMask outputLayerFlag = 0;    // OutputLayerFlag, by the place in the layer set
  LayerMask necessaryLayers = 0;    // NecessaryLayerFlag, by the place in the layer set
  uint32_t highestOutputLayer = 0;  // OlsHighestOutputLayerId
};

struct HevcLayers {
  uint32_t MaxLayersMinus1 = 0;
  std::array<uint8_t, 64> layer_id_in_nuh{};
  std::array<uint8_t, 64> LayerIdxInVps{};
  std::array<LayerMask, 64> direct_dependency_flag{};  // of layer index i: bits of layer indices j
  std::array<LayerMask, 64> directRefLayers{};         // of a layer: the layers it refers to itself
  std::array<LayerMask, 64> refLayers{};               // and those that these refer to
  std::array<LayerMask, 64> treePartition{};           // TreePartitionLayerIdList, of an independent layer
  uint32_t NumIndependentLayers = 0;
  std::vector<LayerMask> layerSets;  // LayerSetLayerIdList
  std::array<uint8_t, 64> subLayersMaxMinus1{};
  std::vector<HevcOutputLayerSet> outputSets;

  // Everything that follows from layer_id_in_nuh and direct_dependency_flag.
  void SetDependencies();
  // The layer set that takes so many layers (by their order) of the tree partition of each independent layer.
  void AddLayerSet(const std::vector<uint32_t>& highest_layer_idx_plus1);

  // NumDirectRefLayers of a layer.
  uint32_t NumDirectRefLayers(uint32_t layer) const { return CountLayers(directRefLayers[layer]); }
  // IdDirectRefLayer of a layer, in order.
  uint32_t IdDirectRefLayer(uint32_t layer, uint32_t j) const { return NthLayer(directRefLayers[layer], j); }
  uint32_t NumLayersInSet(uint32_t set) const { return CountLayers(layerSets[set]); }
  uint32_t MaxSubLayersInLayerSetMinus1(uint32_t set) const;
  // Which layers of its set an output layer set needs: the output layers and all that they refer to.
  void SetNecessaryLayers(HevcOutputLayerSet& ols) const;

  // The n-th layer of a mask, lowest first.
  static uint32_t NthLayer(LayerMask mask, uint32_t n);
};

}  // namespace qlnmedia

#endif
