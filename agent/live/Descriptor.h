#pragma once

#include <unistd.h>
#include <utility>

namespace L3TunnelAgent {

/// A file descriptor that is closed in the end.
class Descriptor {
 public:
   Descriptor() = default;
   explicit Descriptor(int value) : value_(value) {}
   Descriptor(Descriptor&& other) noexcept : value_(std::exchange(other.value_, -1)) {}
   Descriptor& operator=(Descriptor&& other) noexcept {
      std::swap(value_, other.value_);
      return *this;
   }
   ~Descriptor() {
      if (value_ >= 0) {
         close(value_);
      }
   }

   bool isOpen() const { return value_ >= 0; }
   int value() const { return value_; }

   /// The value, which somebody else closes from here on.
   int release() { return std::exchange(value_, -1); }

 private:
   int value_{-1};
};

} // namespace L3TunnelAgent
