#pragma once

#include "platform/asic/SwTableBase.h"
#include "platform/nuv/Export.h"

namespace ZandorL3Tunnel {

/// The response handler of one entry, if it has one: a null pointer without.
///
/// It hears every progress and every failure, and the first success, with which it goes. While it runs it may
/// do anything, replace and remove itself included: it ends when it has returned.
class ZANDOR_EXPORT ResponseHandler {
 public:
   using Function = Asic::SwTableBase::ResponseFunction;
   using EntryState = Asic::SwTableBase::EntryState;

   /// Replaces the handler; with an empty function there is none any more.
   void functionIs(Function function) { box_ = function ? Nuv::make<Box>(std::move(function)) : nullptr; }

   explicit operator bool() const { return bool(box_); }

   /// The entry's state is `state` now. What the handler throws, `std::bad_function_call` of a function that
   /// turns out empty included, leaves through here.
   void entryStateIs(EntryState state);

 private:
   struct Box final : Nuv::Object {
      explicit Box(Function given) : function(std::move(given)) {}

      Function function;
   };

   Nuv::Ptr<Box> box_;
};

} // namespace ZandorL3Tunnel
