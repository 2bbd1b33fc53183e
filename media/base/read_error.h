// A failure to read, told apart from what is read.
#ifndef MEDIA_BASE_READ_ERROR_H
#define MEDIA_BASE_READ_ERROR_H

#include "qlnmedia/error.h"

namespace qlnmedia {

// The system refused to read: what a file says is not known. Who takes an Error for a sign of what stands in
// a file lets this one through.
class ReadError : public Error {
 public:
  using Error::Error;
  explicit ReadError(const Error& error) : Error(error) {}
};

}  // namespace qlnmedia

#endif
