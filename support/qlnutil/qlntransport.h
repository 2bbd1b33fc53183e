/// @file qlntransport.h
/// How a transport position moves: speeds, fractional positions, the counter that runs between an in point
/// and an out point; channel masks and the case of fourcc words.
///
/// All of it is integer arithmetic in one unit: 65520 units are one frame, and a speed of 65520 is plain
/// forward play. Additions and products wrap at 32 bits, as hosts expect of a free-running counter; nothing
/// here fails, traps or reports.
///
/// The classes are plain values without virtual functions. Hosts hold them by value, so the order and the
/// size of their members are part of the surface. An object belongs to one thread at a time.
#ifndef QLNUTIL_QLNTRANSPORT_H
#define QLNUTIL_QLNTRANSPORT_H

#include "qlnutil/qlnapi.h"
#include "qlnutil/qlntransport_position.h"

QLN_C_BEGIN

/// Gives the absolute value of a speed as 16.16 fixed point.
/// @param speed in 1/65520. @return whole part in the high 16 bits, fraction, truncated, in the low ones:
/// 65520 and -65520 give 0x10000, 98280 gives 0x18000.
QLN_API uint32_t speedRate(int32_t speed);

/// Turns a speed into the whole steps of a host's own loop. The unit is 32760 to a step, so plain play is two
/// counts a call.
///
/// The run (the speed last given, its rate and what has accumulated) is one for the whole process and
/// outlives every call: the function must not be called from two threads at once, and two transports at
/// different speeds disturb each other, since each change of speed begins a new run.
/// @param[in,out] counter frame counter to be moved on; may be null. The fractions of a fast run then go on
/// accumulating, of which one frame at most is made up for at a later call that has a counter.
/// @param speed in 1/65520. 0 returns at once and changes nothing; QLN_SPEED_NONE goes on with the stored
/// run; any other value that differs from the last begins a new one.
/// @return how often the step is repeated. At 65520 and above: 1, and the counter moves by two for each 1.0
/// of speed. Below it, and for every reverse speed: the counter moves by 1, and the result is 32760 over the
/// absolute speed, with the remainders carried on to later calls.
QLN_API uint32_t speedReps(uint32_t* counter, int32_t speed);

/// Counts the channels of a mask. @return the number of set bits, 0 to 32.
QLN_API uint32_t totalChannels(uint32_t mask);

/// Picks one channel of a mask. @param mask a bit for each channel. @param index counts the set bits from 0,
/// beginning at bit 0.
/// @return a word with that bit alone; 0 if the mask has fewer set bits.
QLN_API uint32_t isolateChannel(uint32_t mask, uint32_t index);

/// Finds one channel of a mask. @param mask a bit for each channel. @param index counts the set bits from 0,
/// beginning at bit 0.
/// @param[out] remaining the mask without that bit, or the whole mask if there is none; may be null.
/// @return the number of the bit, 0 to 31; 0xFFFFFFFF if the mask has fewer set bits.
QLN_API uint32_t findChannel(uint32_t mask, uint32_t* remaining, uint32_t index);

/// Makes the letters A to Z among the four bytes of a fourcc small. No other byte changes, whatever the
/// process's locale.
QLN_API uint32_t fourccToLower(uint32_t fourcc);

/// Makes the letters a to z among the four bytes of a fourcc capital. No other byte changes, whatever the
/// process's locale.
QLN_API uint32_t fourccToUpper(uint32_t fourcc);

QLN_C_END

#ifdef __cplusplus

#include "kxutil/kxutil.h"

/// The position counter of a transport. A host gives it a range and a speed and then, once for each frame it
/// shows, reads GetTC(count), stands on that frame for count ticks of its clock, and steps with ++ or --.
///
/// A counter with a range loops in it: the in point belongs to the range, the out point does not. A counter
/// with an empty range (in equal to out) runs free.
///
/// One step at plain speed and above moves by the speed itself. Below it, one step moves by just as many
/// times the speed as leads into the next frame, and that number is the play count: at a quarter of play
/// from the start of a frame, 4, and the step moves one whole frame.
///
/// The play count is worked out at the first need behind each change of position or speed, and kept until
/// the next. Assigning a speed, SetRange and SetTCLimit do not make it be worked out anew.
class CQLNTransTC {
 public:
  /// Range empty, position, speed and index 0.
  QLN_API CQLNTransTC();

  /// A counter in the same state.
  CQLNTransTC(const CQLNTransTC&) = default;

  /// Takes over the whole state of another counter.
  QLN_API CQLNTransTC& operator=(const CQLNTransTC& other);

  /// As SetTC(position). @return the counter's own position.
  QLN_API CQLNPos& operator=(const CQLNPos& position);

  /// Takes over the speed alone: unlike SetSpeed it leaves the fraction and the play count as they are, so
  /// that a play count of the old speed may be used once more. @return the counter's own speed.
  QLN_API CQLNSpeed& operator=(const CQLNSpeed& speed);

  /// As SetTC(frame). @return the frame that the counter then stands on.
  QLN_API int32_t operator=(int32_t frame);

  /// One step forward. @return the frame number, inside the counter.
  QLN_API int32_t& operator++();

  /// One step back. @return the frame number, inside the counter.
  QLN_API int32_t& operator--();

  /// @p steps steps forward at once, all with the play count of the first; the index moves by 1.
  /// @return the frame number.
  QLN_API int32_t operator+=(int32_t steps);

  /// @p steps steps back at once, all with the play count of the first; the index moves by 1.
  /// @return the frame number.
  QLN_API int32_t operator-=(int32_t steps);

  /// Sets the range between two frames, given in either order. -1 as @p b always stays the second. Behind an
  /// @p a from 0 up it is an open end: the counter then runs free from @p a on, the frames from 0 to a - 1
  /// are moved on by 1 + a, those from -99 to -1 back by as much, and all in front of them stay. Neither the
  /// position nor the speed changes; the next step or SetTC applies the range.
  QLN_API void SetRange(int32_t a, int32_t b);

  /// Sets the speed. The fraction of the position becomes 0 for plain play and plain reverse, and half a
  /// frame for every other speed, 0 included.
  QLN_API void SetSpeed(const CQLNSpeed& speed);

  /// Goes to a frame, folded into the range; the fraction and the index become 0.
  QLN_API void SetTC(int32_t frame);

  /// Goes to a position, folded into the range; the index becomes 0.
  QLN_API void SetTC(const CQLNPos& position);

  /// @return the frame number.
  QLN_API int32_t GetTC() const;

  /// Reads the frame number together with its play count. @param[out] count ticks that the frame is to stand,
  /// cut to its width. @return the frame number.
  /// @{
  QLN_API int32_t GetTC(int16_t& count);
  QLN_API int32_t GetTC(uint16_t& count);
  QLN_API int32_t GetTC(int32_t& count);
  QLN_API int32_t GetTC(uint32_t& count);
  template <class Count, std::enable_if_t<std::is_integral_v<Count> && sizeof(Count) == 8, int> = 0>
  int32_t GetTC(Count& count) {
    int32_t narrow = 0;
    const int32_t frame = GetTC(narrow);
    count = static_cast<Count>(narrow);
    return frame;
  }
  /// @}

  /// @param[out] position a copy of the position.
  QLN_API void GetCPos(CQLNPos& position) const;

  /// @param[out] speed a copy of the speed.
  QLN_API void GetCSpeed(CQLNSpeed& speed) const;

  /// @return the speed in 1/65520.
  QLN_API int32_t GetLSpeed() const;

  /// @return the first frame of the range.
  QLN_API int32_t GetIn() const;

  /// @return the frame behind the range.
  QLN_API int32_t GetOut() const;

  /// @return out - in.
  QLN_API int32_t GetDur() const;

  /// @return steps since the position was set: those forward less those back.
  QLN_API int32_t GetIndex() const;

 protected:
  /// Folds the position into the range; does nothing if that is empty.
  QLN_API void Modulo();

  /// @return ticks that the current frame is to stand: 1 at speed 0 and from plain speed up.
  QLN_API int32_t PlayCount();

  int32_t in_;             ///< first frame of the range
  int32_t out_;            ///< frame behind the range
  int32_t dur_;            ///< out - in; the modulus, as an unsigned word
  CQLNPos pos_;            ///< where the counter stands
  CQLNSpeed speed_;        ///< length of a step
  bool recount_;           ///< the play count has to be worked out anew
  int32_t index_;          ///< steps forward less steps back
  int32_t lastPlayCount_;  ///< play count as it was last worked out

 private:
  // How far `steps` steps lead from here, and what every step ends with.
  CQLNSpeed StepLength(int32_t steps);
  void EndStep(int32_t indexChange);

  static void LayoutStands() {
    static_assert(offsetof(CQLNTransTC, in_) == 0 && offsetof(CQLNTransTC, out_) == 4);
    static_assert(offsetof(CQLNTransTC, dur_) == 8 && offsetof(CQLNTransTC, pos_) == 12);
    static_assert(offsetof(CQLNTransTC, speed_) == 20 && offsetof(CQLNTransTC, recount_) == 24);
    static_assert(offsetof(CQLNTransTC, index_) == 28 && offsetof(CQLNTransTC, lastPlayCount_) == 32);
  }
};

static_assert(sizeof(CQLNTransTC) == 36, "hosts hold a counter by value");

/// A counter that is also read and set relative to its in point, as a clip's own time.
class CQLNTransTC2 : public CQLNTransTC {
 public:
  /// As the base's.
  QLN_API CQLNTransTC2();

  /// As the base's. From another CQLNTransTC2, the whole state is taken over.
  /// @{
  QLN_API CQLNPos& operator=(const CQLNPos& position);
  QLN_API CQLNSpeed& operator=(const CQLNSpeed& speed);
  QLN_API int32_t operator=(int32_t frame);
  /// @}

  /// @return the first frame of the range.
  QLN_API int32_t In() const;

  /// @return the frame behind the range.
  QLN_API int32_t Out() const;

  /// @return steps since the position was set: those forward less those back.
  QLN_API uint32_t GetIndex() const;

  /// @return the play count as it was last worked out; nothing is worked out now.
  QLN_API int32_t GetLastPlayCount() const;

  /// @return the play count of the current frame.
  QLN_API int32_t GetRepeat();

  /// @return the frame number, counted from the in point.
  QLN_API int32_t GetClipTC() const;

  /// As SetTC. @param frame counted from the in point.
  QLN_API void SetClipTC(int32_t frame);

  /// As SetTC, but a frame at the out point or behind it becomes the last one of the range.
  /// @param frame counted from the in point.
  QLN_API void SetClipTCLimit(int32_t frame);

  /// Goes to a frame without folding: one in front of the range becomes its first, one at the out point or
  /// behind it the one in front of the out point, also where the range is empty or open. The fraction becomes
  /// 0; the index and the play count stay as they are.
  QLN_API void SetTCLimit(int32_t frame);

  /// As the base's.
  QLN_API void SetSpeed(const CQLNSpeed& speed);

  /// Sets the speed. The fraction of the position becomes 0 for plain play and plain reverse, and stays as it
  /// is for every other speed.
  QLN_API void SetSpeedZero(const CQLNSpeed& speed);
};

static_assert(sizeof(CQLNTransTC2) == 36, "a clip counter adds no member");

#endif

#endif
