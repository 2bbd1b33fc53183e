// Cleans up the frame rates that file headers store.

#include "qlnutil/qlnformat.h"

namespace {

struct Pair {
  uint32_t rate;
  uint32_t scale;
};

// The usual pair for a quotient that headers of unknown origin give.
constexpr Pair PairOfQuotient(uint32_t quotient) {
  switch (quotient) {
    case 23:
      return {24000, 1001};
    case 29:
      return {30000, 1001};
    case 59:
      return {60000, 1001};
    case 24:
    case 25:
    case 30:
    case 48:
    case 50:
    case 60:
      return {quotient, 1};
    default:
      return {0, 0};
  }
}

// The cleaned pair. The literal rates are those that writers of 100ths and 1000ths are known to store, and
// each takes only the quotients that such a writer can mean.
Pair Normalize(uint32_t rate, uint32_t scale) {
  const Pair stays = {rate, scale};
  switch (rate) {
    case 10:
    case 15:
    case 23:
    case 24:
    case 25:
    case 29:
    case 30:
    case 59:
    case 60:
      return {rate, 1};
    default:
      break;
  }
  if (scale == 0) return stays;
  const uint32_t quotient = rate / scale;
  switch (rate) {
    case 2397:
    case 2398:
    case 23976:
    case 23977:
      return quotient == 23 ? Pair{23976, 1000} : stays;
    case 2400:
      return quotient == 24 || quotient == 23 ? PairOfQuotient(quotient) : stays;
    case 2996:
    case 2997:
    case 2998:
      return quotient == 29 || quotient == 23 ? PairOfQuotient(quotient) : stays;
    case 3000:
      return quotient == 30 || quotient == 29 ? PairOfQuotient(quotient) : stays;
    default:
      break;
  }
  const Pair usual = PairOfQuotient(quotient);
  if (usual.scale != 0) return usual;
  return rate % scale == 0 ? Pair{quotient, 1} : stays;
}

}  // namespace

int32_t vidNormalizeRateScale(uint32_t* rate, uint32_t* scale) {
  if (rate == nullptr || scale == nullptr) return 0;
  const Pair pair = Normalize(*rate, *scale);
  *rate = pair.rate;
  *scale = pair.scale;
  return 0;
}
