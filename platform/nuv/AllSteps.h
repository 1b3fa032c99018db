#pragma once

#include "platform/nuv/Export.h"

#include <exception>

namespace Nuv {

/// Steps that are all done, whatever one of them throws. The first exception leaves through `finish`, which
/// is to be called behind the last step.
class ZANDOR_EXPORT AllSteps {
 public:
   template <class Step>
   void operator()(Step&& step) {
      try {
         step();
      } catch (...) {
         if (!first_) {
            first_ = std::current_exception();
         }
      }
   }

   void finish() const {
      if (first_) {
         std::rethrow_exception(first_);
      }
   }

 private:
   std::exception_ptr first_;
};

} // namespace Nuv
