// A file descriptor that is closed when its owner goes.
#ifndef QLNMEDIA_DESCRIPTOR_H
#define QLNMEDIA_DESCRIPTOR_H

#include <unistd.h>

namespace qlnmedia {

class Descriptor {
 public:
  explicit Descriptor(int number) : number_(number) {}
  ~Descriptor() { Close(); }
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;
  int number() const { return number_; }
  void Close() {
    if (number_ >= 0) close(number_);
    number_ = -1;
  }

 private:
  int number_;
};

}  // namespace qlnmedia

#endif
