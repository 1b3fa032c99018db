#pragma once

#include "platform/nuv/Export.h"

#include <cstddef>
#include <memory>
#include <new>
#include <utility>

namespace Nuv {

/// A queue in one piece of memory that doubles when it is full, for elements that come at the end and go at
/// the front. Elements are found by their place from the front on; a reference is good until the next
/// element comes. Moving one must not throw. What a long queue took is given back once it is empty.
template <class T>
class ZANDOR_EXPORT Ring {
 public:
   Ring() = default;
   Ring(Ring&& other) noexcept { swap(other); }
   Ring& operator=(Ring&& other) noexcept {
      Ring taken(std::move(other));
      swap(taken);
      return *this;
   }
   Ring(Ring const&) = delete;
   Ring& operator=(Ring const&) = delete;
   ~Ring() {
      for (std::size_t position = 0; position < size_; ++position) {
         (*this)[position].~T();
      }
      release();
   }

   std::size_t size() const { return size_; }
   bool empty() const { return size_ == 0; }

   T& operator[](std::size_t position) { return slots_[(first_ + position) & (capacity_ - 1)]; }
   T const& operator[](std::size_t position) const { return slots_[(first_ + position) & (capacity_ - 1)]; }
   T& front() { return slots_[first_]; }
   T& back() { return (*this)[size_ - 1]; }

   /// Adds an element made of `args`, which must not be in the queue, at the end.
   template <class... Args>
   T& emplace_back(Args&&... args) {
      if (size_ == capacity_) [[unlikely]] {
         grow();
      }
      T* made = ::new (static_cast<void*>(&(*this)[size_])) T(std::forward<Args>(args)...);
      ++size_;
      return *made;
   }
   void push_back(T value) { emplace_back(std::move(value)); }

   /// Ends the first element, which must be there. It has left the queue when its destructor runs.
   void pop_front() { [[maybe_unused]] T gone = take_front(); }

   /// Ends the first element where it stands, for one whose end leads nowhere.
   void drop_front() {
      front().~T();
      advance();
   }

   /// Ends the first element, and hands it over; it has left the queue by then.
   T take_front() {
      T& first = front();
      T taken = std::move(first);
      first.~T();
      advance();
      return taken;
   }

   void swap(Ring& other) noexcept {
      std::swap(slots_, other.slots_);
      std::swap(capacity_, other.capacity_);
      std::swap(first_, other.first_);
      std::swap(size_, other.size_);
   }

   /// Ends all elements, which have left the queue by then.
   void clear() { Ring gone(std::move(*this)); }

 private:
   static constexpr std::size_t firstCapacity = 16;
   static constexpr std::size_t keptCapacity = 256;

   void advance() {
      first_ = (first_ + 1) & (capacity_ - 1);
      if (--size_ == 0 && capacity_ > keptCapacity) [[unlikely]] {
         release();
         slots_ = nullptr;
         capacity_ = first_ = 0;
      }
   }

   void grow() {
      std::size_t capacity = capacity_ ? capacity_ * 2 : firstCapacity;
      T* slots = std::allocator<T>().allocate(capacity);
      for (std::size_t position = 0; position < size_; ++position) {
         T& from = (*this)[position];
         ::new (static_cast<void*>(slots + position)) T(std::move(from));
         from.~T();
      }
      release();
      slots_ = slots;
      capacity_ = capacity;
      first_ = 0;
   }

   void release() noexcept {
      if (slots_) {
         std::allocator<T>().deallocate(slots_, capacity_);
      }
   }

   T* slots_{};
   std::size_t capacity_{}; // a power of two, or 0
   std::size_t first_{};
   std::size_t size_{};
};

} // namespace Nuv
