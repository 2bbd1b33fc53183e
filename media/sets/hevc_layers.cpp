// Derives layer sets and dependencies of a video parameter set of several layers.

#include "sets/hevc_layers.h"

#include <algorithm>

namespace qlnmedia {

uint32_t HevcLayers::NthLayer(LayerMask mask, uint32_t n) {
  for (; n > 0; --n) mask &= mask - 1;
  return mask == 0 ? 0 : static_cast<uint32_t>(std::countr_zero(mask));
}

void HevcLayers::SetDependencies() {
  directRefLayers.fill(0);
  refLayers.fill(0);
  treePartition.fill(0);
  for (uint32_t i = 0; i <= MaxLayersMinus1; ++i) {
    const uint32_t layer = layer_id_in_nuh[i];
    LayerIdxInVps[layer] = static_cast<uint8_t>(i);
    for (uint32_t j = 0; j < i; ++j) {
      if ((direct_dependency_flag[i] & LayerBit(j)) == 0) continue;
      directRefLayers[layer] |= LayerBit(layer_id_in_nuh[j]);
      refLayers[layer] |= LayerBit(layer_id_in_nuh[j]) | refLayers[layer_id_in_nuh[j]];
    }
  }
  // An independent layer and all layers that refer to it, each in the first partition that it belongs to.
  LayerMask taken = 0;
  NumIndependentLayers = 0;
  for (uint32_t i = 0; i <= MaxLayersMinus1; ++i) {
    const uint32_t layer = layer_id_in_nuh[i];
    if (directRefLayers[layer] != 0) continue;
    LayerMask partition = LayerBit(layer);
    for (uint32_t j = 0; j <= MaxLayersMinus1; ++j) {
      const uint32_t other = layer_id_in_nuh[j];
      if ((refLayers[other] & LayerBit(layer)) != 0 && (taken & LayerBit(other)) == 0)
        partition |= LayerBit(other);
    }
    taken |= partition;
    treePartition[NumIndependentLayers++] = partition;
  }
}

void HevcLayers::AddLayerSet(const std::vector<uint32_t>& highest_layer_idx_plus1) {
  LayerMask set = 0;
  for (uint32_t tree = 1; tree < NumIndependentLayers; ++tree) {
    const uint32_t count = std::min(highest_layer_idx_plus1[tree], CountLayers(treePartition[tree]));
    for (uint32_t n = 0; n < count; ++n) set |= LayerBit(NthLayer(treePartition[tree], n));
  }
  layerSets.push_back(set);
}

uint32_t HevcLayers::MaxSubLayersInLayerSetMinus1(uint32_t set) const {
  uint32_t most = 0;
  for (LayerMask left = layerSets[set]; left != 0; left &= left - 1) {
    const uint32_t layer = static_cast<uint32_t>(std::countr_zero(left));
    most = std::max<uint32_t>(most, subLayersMaxMinus1[LayerIdxInVps[layer]]);
  }
  return most;
}

void HevcLayers::SetNecessaryLayers(HevcOutputLayerSet& ols) const {
  LayerMask needed = 0;
  const LayerMask set = layerSets[ols.layerSet];
  const uint32_t count = CountLayers(set);
  for (uint32_t place = 0; place < count; ++place) {
    if ((ols.outputLayerFlag & LayerBit(place)) == 0) continue;
    const uint32_t layer = NthLayer(set, place);
    needed |= LayerBit(layer) | refLayers[layer];
    ols.highestOutputLayer = layer;
  }
  ols.necessaryLayers = 0;
  for (uint32_t place = 0; place < count; ++place) {
    if ((needed & LayerBit(NthLayer(set, place))) != 0) ols.necessaryLayers |= LayerBit(place);
  }
}

}  // namespace qlnmedia
