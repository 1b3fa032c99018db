#pragma once

#include "platform/nuv/Export.h"
#include "platform/nuv/Module.h"
#include "platform/nuv/Pool.h"

#include <concepts>
#include <cstddef>
#include <cstdint>
#include <utility>

namespace Nuv {

/// Whether counts change atomically. Off at first: the process has one thread of reactions. To be set before
/// a second thread touches any pointer.
ZANDOR_EXPORT bool threadSafePtr();
ZANDOR_EXPORT void threadSafePtrIs(bool isThreadSafe);

/// Base of everything that is held through `Nuv::Ptr`: one 32-bit word of 29 count bits and 3 flags.
///
/// When the last reference goes, `onZeroReferences` runs once; the object is deleted afterwards unless
/// somebody holds it again by then. References taken and given back while it runs do not start it a second
/// time.
class ZANDOR_EXPORT Object : public Pooled {
 public:
   Object(Object const&) = delete;
   Object& operator=(Object const&) = delete;

   virtual FwkType fwkType() const { return {&platformModule()}; }

   std::uint32_t references() const { return word_ & countMask; }

   /// Whether changes of this object are announced. Objects are born silent; their factory switches them on.
   bool hasNotificationActive() const { return (word_ & notificationFlag) != 0; }
   virtual void hasNotificationActiveIs(bool active);

   /// Adds one reference. Prefer `Ptr`; this is for whoever holds a reference without a pointer.
   [[gnu::always_inline]] void referenceAdd() const;

   /// Gives one reference back. The object may be gone when this returns.
   void referenceDel() const;

   /// The same, for those who must not throw: what an observer of the object's end throws is written to
   /// standard error and goes no further.
   [[gnu::always_inline]] void referenceDelQuietly() const noexcept;

 protected:
   Object() = default;
   virtual ~Object() = default;

   /// The last reference went. May take references to the object, and may keep them.
   virtual void onZeroReferences() {}

 private:
   friend bool threadSafePtr();
   friend void threadSafePtrIs(bool isThreadSafe);

   static constexpr std::uint32_t countMask = (1u << 29) - 1;
   static constexpr std::uint32_t zeroReferencesFlag = 1u << 29;
   static constexpr std::uint32_t notificationFlag = 1u << 30;

   static bool isThreadSafe_;

   [[gnu::always_inline]] bool isLastReferenceDel() const;
   void referenceAddSafely() const;
   bool isLastReferenceDelSafely() const;
   void zeroReferences();
   void zeroReferencesQuietly() noexcept;
   void flagIs(std::uint32_t flag, bool value);
   [[noreturn]] static void countFailed(char const* condition);

   mutable std::uint32_t word_{0};
};

inline bool
threadSafePtr() {
   return Object::isThreadSafe_;
}

inline void
Object::referenceAdd() const {
   if (isThreadSafe_) [[unlikely]] {
      referenceAddSafely();
   } else if ((++word_ & countMask) == 0) [[unlikely]] {
      countFailed("references < maximum");
   }
}

inline bool
Object::isLastReferenceDel() const {
   if (isThreadSafe_) [[unlikely]] {
      return isLastReferenceDelSafely();
   }
   // No count ends at the largest one but that which was 0.
   std::uint32_t const left = --word_ & countMask;
   if (left == countMask) [[unlikely]] {
      countFailed("references > 0");
   }
   return left == 0;
}

inline void
Object::referenceDel() const {
   if (isLastReferenceDel()) [[unlikely]] {
      const_cast<Object*>(this)->zeroReferences();
   }
}

inline void
Object::referenceDelQuietly() const noexcept {
   if (isLastReferenceDel()) [[unlikely]] {
      const_cast<Object*>(this)->zeroReferencesQuietly();
   }
}

template <class U, class T>
concept PointsTo = std::convertible_to<U*, T*>;

/// Counted pointer.
template <class T>
class ZANDOR_EXPORT Ptr {
 public:
   constexpr Ptr() = default;
   constexpr Ptr(std::nullptr_t) {}

   Ptr(T* object) : object_(object) { add(); }

   Ptr(Ptr const& other) : object_(other.object_) { add(); }

   Ptr(Ptr&& other) noexcept : object_(std::exchange(other.object_, nullptr)) {}

   template <PointsTo<T> U>
   Ptr(Ptr<U> const& other) : object_(other.get()) {
      add();
   }

   template <PointsTo<T> U>
   Ptr(Ptr<U>&& other) noexcept : object_(other.detach()) {}

   ~Ptr() { del(); }

   // The old object goes last, when this pointer already holds the new one: its end may read the pointer.
   Ptr& operator=(Ptr other) noexcept {
      std::swap(object_, other.object_);
      return *this;
   }

   T* get() const { return object_; }
   T& operator*() const { return *object_; }
   T* operator->() const { return object_; }
   explicit operator bool() const { return object_ != nullptr; }

   /// Gives up the pointer without giving its reference back.
   T* detach() noexcept { return std::exchange(object_, nullptr); }

   template <class U>
   friend bool operator==(Ptr const& a, Ptr<U> const& b) {
      return a.get() == b.get();
   }
   friend bool operator==(Ptr const& a, std::nullptr_t) { return a.object_ == nullptr; }

 private:
   void add() const {
      if (object_) {
         object_->referenceAdd();
      }
   }
   void del() const {
      if (object_) {
         object_->referenceDelQuietly();
      }
   }

   T* object_{nullptr};
};

template <class T, class U>
Ptr<T>
dynamicCast(Ptr<U> const& from) {
   return Ptr<T>(dynamic_cast<T*>(from.get()));
}

/// Makes an object and switches its notification on.
template <class T, class... Args>
Ptr<T>
make(Args&&... args) {
   Ptr<T> object(new T(std::forward<Args>(args)...));
   object->hasNotificationActiveIs(true);
   return object;
}

} // namespace Nuv
