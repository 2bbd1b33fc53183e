/// @file qlntransport_position.h
/// Speeds and fractional positions as values, for qlntransport.h.
#ifndef QLNUTIL_QLNTRANSPORT_POSITION_H
#define QLNUTIL_QLNTRANSPORT_POSITION_H

#include "qlnutil/qlnapi.h"

/// Units to one frame, and the speed of plain forward play.
#define QLN_SPEED_PLAY 65520

/// Half a frame.
#define QLN_SPEED_HALF 32760

/// No finite speed: what a division by zero gives, and what tells speedReps to go on with its stored run.
#define QLN_SPEED_NONE 0x7FFFFFFF

#ifdef __cplusplus

#include <type_traits>

#include "kxutil/kxutil.h"

/// A speed, or a distance, in 1/65520: 65520 is plain play, -65520 plain reverse, 0 stopped.
class CQLNSpeed {
 public:
  /// Plain play: 65520.
  QLN_API CQLNSpeed();

  /// @param raw the value in 1/65520.
  QLN_API CQLNSpeed(int32_t raw);

  /// As Set(numerator, denominator).
  QLN_API CQLNSpeed(int32_t numerator, int32_t denominator);

  /// The same speed.
  CQLNSpeed(const CQLNSpeed&) = default;

  /// Takes over the value as it is. @return the object.
  QLN_API CQLNSpeed& operator=(const CQLNSpeed& other);

  /// Takes a multiple of plain play: @p times x 65520, truncated toward zero, held inside 32 bits; not a
  /// number gives 0. An assigned integer takes this way too: `speed = 1` is plain play, and a raw value goes
  /// in through Set (`speed = 65520` would be 65520 times play, and is held at 0x7FFFFFFF).
  QLN_API CQLNSpeed& operator=(double times);

  /// @return the value in 1/65520.
  QLN_API int32_t Get() const;

  /// Stores a value in 1/65520.
  QLN_API void Set(int32_t raw);

  /// Stores numerator / denominator as a speed, rounded to the nearest unit, halves away from zero: (1001,
  /// 2002) is 32760. A denominator of 0 stores QLN_SPEED_NONE, a value outside 32 bits -1.
  QLN_API void Set(int32_t numerator, int32_t denominator);

  /// @return the absolute value, in 1/65520. That of the most negative value has the same 32 bits as it.
  QLN_API int32_t Abs() const;

  /// @return whole frames, truncated toward zero.
  QLN_API int32_t Whole() const;

  /// @return what Whole leaves, in 1/65520, with the sign of the value.
  QLN_API int32_t Frac() const;

  /// @return the value as a multiple of plain play.
  QLN_API double Double() const;

  /// Takes the whole frames out of the object, which keeps the fraction, 0 to 65519.
  /// @return the whole frames, rounded down: a raw value of -1 gives -1 and leaves 65519.
  QLN_API int32_t Fractionalize();

 private:
  int32_t raw_;
};

static_assert(sizeof(CQLNSpeed) == 4, "hosts hold a speed by value");

/// The product of two speeds, rounded to the nearest unit, halves away from zero; -1 outside 32 bits.
inline CQLNSpeed operator*(const CQLNSpeed& a, const CQLNSpeed& b) {
  return CQLNSpeed(MulDiv(a.Get(), b.Get(), QLN_SPEED_PLAY));
}

/// The ratio of two speeds, rounded to the nearest unit, halves away from zero; -1 outside 32 bits and for a
/// divisor of 0.
inline CQLNSpeed operator/(const CQLNSpeed& a, const CQLNSpeed& b) {
  return CQLNSpeed(MulDiv(a.Get(), QLN_SPEED_PLAY, b.Get()));
}

/// A position: a frame number and the fraction of a frame behind it, 0 to 65519 in 1/65520.
///
/// The fraction is never negative, so the position is always whole + fraction / 65520: a quarter of a frame
/// in front of frame 0 is frame -1 and 49140. Everything that writes a position brings it into that form;
/// what is carried into the frame number wraps at 32 bits.
class CQLNPos {
 public:
  /// Frame 0, fraction 0.
  QLN_API CQLNPos();

  /// As Set(distance).
  QLN_API CQLNPos(const CQLNSpeed& distance);

  /// As Set(whole, fraction).
  QLN_API CQLNPos(int32_t whole, int32_t fraction);

  /// The same position.
  CQLNPos(const CQLNPos&) = default;

  /// Takes over frame and fraction as they are. @return the object.
  QLN_API CQLNPos& operator=(const CQLNPos& other);

  /// As Set(distance).
  QLN_API CQLNPos& operator=(const CQLNSpeed& distance);

  /// Goes to where @p distance leads from frame 0.
  QLN_API void Set(const CQLNSpeed& distance);

  /// @param whole frame number. @param fraction in 1/65520; what lies outside 0 to 65519 is carried.
  QLN_API void Set(int32_t whole, int32_t fraction);

  /// Goes to numerator / denominator frames, in plain signed 32-bit arithmetic: the remainder is multiplied
  /// by 65520 and wraps for remainders above 32776. A denominator of 0 gives frame 0, fraction 0; the most
  /// negative number over -1 is that number again.
  QLN_API void SetAsFrac(int32_t numerator, int32_t denominator);

  /// Whether the frame number is below 0 (or, if that could be, the fraction).
  QLN_API bool IsNeg() const;

  /// Whether the frame number or the fraction is above 0. A position between two negative frames is both
  /// IsNeg and IsPlus.
  QLN_API bool IsPlus() const;

  /// Whether the position is frame 0, fraction 0.
  QLN_API bool IsZero() const;

  /// @return the frame number.
  QLN_API int32_t floor() const;

  /// @return the frame number, and one more if there is a fraction.
  QLN_API int32_t ceil() const;

  /// @return the fraction, in 1/65520.
  QLN_API int32_t frac() const;

  /// @return the units left to the next frame, less one: 65519 - fraction.
  QLN_API int32_t fracbar() const;

  /// Moves the position by a distance.
  CQLNPos& operator+=(const CQLNSpeed& distance) {
    CQLNSpeed fraction(distance);
    const int32_t whole = fraction.Fractionalize();
    Set(Wrap(Bits(whole_) + Bits(whole)), fraction_.Get() + fraction.Get());
    return *this;
  }

  /// Moves the position back by a distance.
  CQLNPos& operator-=(const CQLNSpeed& distance) {
    CQLNSpeed fraction(distance);
    const int32_t whole = fraction.Fractionalize();
    Set(Wrap(Bits(whole_) - Bits(whole)), fraction_.Get() - fraction.Get());
    return *this;
  }

  /// The sum of two positions.
  friend CQLNPos operator+(const CQLNPos& a, const CQLNPos& b) {
    return CQLNPos(Wrap(Bits(a.whole_) + Bits(b.whole_)), a.fraction_.Get() + b.fraction_.Get());
  }

  /// The difference of two positions.
  friend CQLNPos operator-(const CQLNPos& a, const CQLNPos& b) {
    return CQLNPos(Wrap(Bits(a.whole_) - Bits(b.whole_)), a.fraction_.Get() - b.fraction_.Get());
  }

 protected:
  /// Carries what lies outside 0 to 65519 from the fraction into the frame number.
  QLN_API void Normalize();

 private:
  friend class CQLNTransTC;  // gives its frame number out by reference

  // Frame numbers are added as unsigned words, so that they wrap.
  static constexpr uint32_t Bits(int32_t value) { return static_cast<uint32_t>(value); }
  static constexpr int32_t Wrap(uint32_t value) { return static_cast<int32_t>(value); }

  int32_t whole_;
  CQLNSpeed fraction_;
};

static_assert(sizeof(CQLNPos) == 8, "hosts hold a position by value");
static_assert(std::is_standard_layout_v<CQLNPos>, "the frame number lies first");

#endif

#endif
