// Ownership of open files.
#pragma once

#include <unistd.h>

#include <utility>

namespace Orbane {

/// An open file or folder, closed at the end. A negative number stands for none.
class Descriptor {
 public:
  explicit Descriptor(int number) : number_(number) {}
  Descriptor(Descriptor&& other) noexcept : number_(std::exchange(other.number_, -1)) {}
  Descriptor& operator=(Descriptor&& other) noexcept {
    std::swap(number_, other.number_);
    return *this;
  }
  Descriptor(Descriptor const&) = delete;
  Descriptor& operator=(Descriptor const&) = delete;
  ~Descriptor() {
    if (number_ >= 0) {
      close(number_);
    }
  }

  int get() const { return number_; }
  explicit operator bool() const { return number_ >= 0; }

 private:
  int number_;
};

}  // namespace Orbane
