#pragma once

#include "platform/nuv/Export.h"

namespace ZandorL3Tunnel {

/// A handle whose end is being told, as long as that takes: who hears of it may write the key anew, and end
/// that too before this end is over. `T` should be a table; its ends in progress form a chain.
template <class T>
class ZANDOR_EXPORT LeavingHandle {
 public:
   LeavingHandle(T& table, typename T::EntryHandle const& handle)
       : innermost_(table.leavingHandle()), outer_(innermost_), handle_(handle) {
      innermost_ = this;
   }
   LeavingHandle(LeavingHandle const&) = delete;
   LeavingHandle& operator=(LeavingHandle const&) = delete;
   ~LeavingHandle() { innermost_ = outer_; }

   /// Whether a handle of the same key was ending before this one.
   bool isKeyOfOuter() const {
      for (auto const* each = outer_; each; each = each->outer_) {
         if (each->handle_.key() == handle_.key()) {
            return true;
         }
      }
      return false;
   }

 private:
   LeavingHandle const*& innermost_;
   LeavingHandle const* const outer_;
   typename T::EntryHandle const& handle_;
};

} // namespace ZandorL3Tunnel
