// Descriptor: a file descriptor that is closed with its owner.
#pragma once

#include <unistd.h>

#include <utility>

namespace Host {

class Descriptor {
 public:
  Descriptor() = default;
  explicit Descriptor(int number) : number_(number) {}
  ~Descriptor() { Close(); }
  Descriptor(Descriptor&& other) noexcept : number_(std::exchange(other.number_, -1)) {}
  Descriptor& operator=(Descriptor&& other) noexcept {
    if (this != &other) {
      Close();
      number_ = std::exchange(other.number_, -1);
    }
    return *this;
  }

  [[nodiscard]] int Get() const { return number_; }
  [[nodiscard]] bool IsOpen() const { return number_ >= 0; }
  // It is somebody else's to close from now on.
  int Release() { return std::exchange(number_, -1); }
  // False when the system reports that what was written may be lost.
  bool Close() {
    const int number = std::exchange(number_, -1);
    return number < 0 || close(number) == 0;
  }

 private:
  int number_ = -1;
};

}  // namespace Host
