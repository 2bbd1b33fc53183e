/// @file error.h
/// How the engine fails: one type of exception, whose text is one line for people.
///
/// Every function of the engine that can fail throws qlnmedia::Error or a type derived from it;
/// std::bad_alloc where memory runs out. Nothing is printed. What a failing function was to write is not
/// there afterwards: outputs get their names when they are whole.
#ifndef QLNMEDIA_ERROR_H
#define QLNMEDIA_ERROR_H

#include <stdexcept>
#include <string>

#include "qlnmedia/api.h"

namespace qlnmedia {

/// Ends a piece of work. what() is "WHERE: WHAT; ADVICE", without the parts that are empty.
class QLNMEDIA_API Error : public std::runtime_error {
 public:
  /// @param where   the file, option or track that is concerned; may be empty
  /// @param what    what is wrong with it
  /// @param advice  what to do about it; may be empty
  Error(const std::string& where, const std::string& what, const std::string& advice = {})
      : std::runtime_error((where.empty() ? what : where + ": " + what) +
                           (advice.empty() ? advice : "; " + advice)),
        where_(where),
        problem_(what),
        advice_(advice) {}

  /// The parts of the line, as they were given.
  /// @{
  const std::string& where() const { return where_; }
  const std::string& problem() const { return problem_; }
  const std::string& advice() const { return advice_; }
  /// @}

 private:
  std::string where_;
  std::string problem_;
  std::string advice_;
};

/// Thrown where nothing is wrong with a file, and it has nothing that the work is about: it is empty, has no
/// video, or none of a codec that is told apart here, or no captions where those are asked for.
class QLNMEDIA_API NotApplicable : public Error {
 public:
  using Error::Error;
};

}  // namespace qlnmedia

#endif
