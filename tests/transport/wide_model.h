// A second form of the transport arithmetic, in numbers so wide that nothing ever wraps by itself: a position
// is its distance from frame 0 in units, and 2^32 frames are one turn.
#ifndef TESTS_TRANSPORT_WIDE_MODEL_H
#define TESTS_TRANSPORT_WIDE_MODEL_H

#include <cstdint>

namespace qln::test {

__extension__ typedef __int128 Wide;

inline Wide FloorModulo(Wide value, Wide modulus) {
  const Wide rest = value % modulus;
  return rest < 0 ? rest + modulus : rest;
}

// The number from -2^31 to 2^31 - 1 that is congruent to `value` modulo 2^32.
inline int32_t To32(Wide value) {
  const Wide rest = FloorModulo(value, Wide{1} << 32);
  return static_cast<int32_t>(rest >= Wide{1} << 31 ? rest - (Wide{1} << 32) : rest);
}

struct WidePosition {
  static constexpr int64_t kFrame = 65520;
  Wide units = 0;  // from 0 to 2^32 frames

  static WidePosition FromUnits(Wide units) { return {FloorModulo(units, (Wide{1} << 32) * kFrame)}; }
  static WidePosition Of(int32_t whole, int32_t fraction) {
    return FromUnits(Wide{whole} * kFrame + fraction);
  }
  WidePosition Moved(int64_t distance) const { return FromUnits(units + distance); }
  WidePosition Plus(const WidePosition& other) const { return FromUnits(units + other.units); }
  WidePosition Minus(const WidePosition& other) const { return FromUnits(units - other.units); }
  int32_t Whole() const { return To32(units / kFrame); }
  int32_t Fraction() const { return static_cast<int32_t>(units % kFrame); }
};

// The counter, told once more as a table of rules over wide numbers.
struct WideCounter {
  Wide in = 0, out = 0;
  WidePosition position;
  Wide speed = 0;
  bool stale = true;  // the play count is to be worked out anew
  Wide index = 0;
  Wide lastCount = 1;

  Wide Duration() const { return FloorModulo(out - in, Wide{1} << 32); }

  Wide Count() {
    if (!stale) return lastCount;
    const Wide size = speed < 0 ? -speed : speed;
    if (size == 0 || size >= WidePosition::kFrame) return 1;
    const Wide ahead = speed > 0 ? WidePosition::kFrame - 1 - position.Fraction() : position.Fraction();
    lastCount = ahead / size + 1;
    stale = false;
    return lastCount;
  }

  void Fold() {
    const Wide duration = Duration();
    if (duration == 0) return;
    Wide frame = position.Whole();
    if (frame < 0 && frame > -100) frame = To32(frame + duration);
    const Wide offset = FloorModulo(frame - in, Wide{1} << 32) % duration;
    position = WidePosition::Of(To32(in + offset), position.Fraction());
    stale = true;
  }

  // direction 1 or -1; times is the count of steps, 1 for ++ and --.
  void Step(int direction, Wide times) {
    const Wide distance = To32(Count() * speed * times);
    position = WidePosition::FromUnits(position.units + direction * distance);
    Fold();
    index = To32(index + direction);
    stale = true;
  }

  void SetRange(Wide a, Wide b) {
    in = b != -1 && a >= b ? b : a;
    out = b != -1 && a >= b ? a : b;
  }

  bool IsPlain() const { return speed == 65520 || speed == -65520; }
  void SetFraction(int32_t fraction) { position = WidePosition::Of(position.Whole(), fraction); }

  void SetSpeed(Wide value) {
    speed = value;
    stale = true;
    SetFraction(IsPlain() ? 0 : 32760);
  }

  void SetSpeedZero(Wide value) {
    speed = value;
    stale = true;
    if (IsPlain()) SetFraction(0);
  }

  void GoTo(const WidePosition& where) {
    position = where;
    stale = true;
    Fold();
    index = 0;
  }

  void GoToFrame(Wide frame) { GoTo(WidePosition::Of(To32(frame), 0)); }

  void LimitFrame(Wide frame) {
    position = WidePosition::Of(To32(frame < in ? in : frame >= out ? out - 1 : frame), 0);
  }

  void GoToClipFrameLimited(Wide frame) {
    const Wide absolute = To32(in + frame);
    GoToFrame(absolute < out ? absolute : out - 1);
  }
};

}  // namespace qln::test

#endif
