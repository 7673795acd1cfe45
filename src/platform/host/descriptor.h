// The owner of a descriptor of the host system.
#pragma once

#include <unistd.h>

#include <cerrno>
#include <utility>

namespace platform {

// An open descriptor, closed with the object.
class Descriptor {
 public:
  Descriptor() = default;                               // none
  explicit Descriptor(int number) : number_(number) {}  // negative: none, such as the result of a failed call
  ~Descriptor() { Close(); }
  Descriptor(Descriptor&& other) noexcept : number_(other.Take()) {}
  Descriptor& operator=(Descriptor&& other) noexcept {
    if (this == &other) return *this;
    Close();
    number_ = other.Take();
    return *this;
  }

  int Number() const { return number_; }
  explicit operator bool() const { return number_ >= 0; }

  // Hands the descriptor over to the caller.
  int Take() noexcept { return std::exchange(number_, -1); }

  // Returns 0, or an errno value when something could not be written. The descriptor is closed in any case, even when a
  // signal interrupts the call.
  int Close() noexcept {
    if (number_ < 0) return 0;
    return close(Take()) == 0 || errno == EINTR ? 0 : errno;
  }

 private:
  int number_ = -1;
};

}  // namespace platform
