#pragma once

#include "platform/asic/SwTable.h"
#include "platform/nuv/Assert.h"
#include "platform/nuv/Export.h"
#include "platform/trace/Mirelog.h"
#include "plugin/DefaultTraceHandle.h"
#include "swtable/ResponseHandler.h"

namespace ZandorL3Tunnel {

/// What the accessor does whatever the table: who holds a handle, and how its states follow each other.
class ZANDOR_EXPORT AccessorBase {
 public:
   using Handle = Asic::SwTable::EntryHandle;

   /// A user references the entry: a handle that nobody has written yet loses the table's hold. A commit
   /// stays one.
   static void referenced(Handle& handle);

   /// The entry is committed: the table holds the handle, once.
   static void committed(Handle& handle);

   /// Gives the commit of `handle` back, its response handler ends; without one, does nothing but say so. The
   /// caller holds the handle once, which does not count as a user. `key` is for the trace.
   static void removed(Handle* handle, ResponseHandler* handler, Asic::SwTable const& table,
                       Nuv::TextRef key);

   /// The entry's own state changed.
   static void handleEntryState(Handle const& handle, ResponseHandler& handler, Nuv::TextRef key);

   /// The row's state changed: it is the entry's, if the entry was waiting for it. True when it was an
   /// entry's deletion that is complete now.
   static bool handleResolvedEntryState(Handle& handle);

   /// Whether entries complete with the write of their row and hear no answers, for tests of agents that have
   /// no chip: the environment variable PUBLISH_ENTRY_HANDLE_PROGRAMMED_STATE, read once, is a number other
   /// than 0.
   static bool completesForTesting();

   /// Says that a handle is about to leave its table, and refuses to take one that is still held by it.
   static void handleLeaves(Handle const& handle, bool isRegistered, Asic::SwTable const& table,
                            Nuv::TextRef key);
};

/// Holds two objects as one.
class ZANDOR_EXPORT JointHold final : public Nuv::Object {
 public:
   using Hold = Nuv::Ptr<Nuv::Object const>;

   JointHold(Hold first, Hold second) : first_(std::move(first)), second_(std::move(second)) {}

 private:
   Hold first_;
   Hold second_;
};

/// Tells whether somebody wrote, removed or dropped the entry of a handle meanwhile. Whoever watches through
/// announcements holds the handle.
class ZANDOR_EXPORT WriteWatch {
 public:
   explicit WriteWatch(Asic::SwTable::EntryHandle const& handle)
       : handle_(&handle), writes_(handle.writes()), hadTable_(handle.swTable() != nullptr) {}

   /// How many writes and removals there were since, modulo 256.
   std::uint8_t writesSince() const { return std::uint8_t(handle_->writes() - writes_); }

   bool isOvertaken() const {
      return handle_->writes() != writes_ || (handle_->swTable() != nullptr) != hadTable_;
   }

 private:
   Asic::SwTable::EntryHandle const* handle_;
   std::uint8_t writes_;
   bool hadTable_;
};

} // namespace ZandorL3Tunnel

/// An assertion of the accessor: it names its source as the accessor's, whatever the table.
#define ACCESSOR_ASSERT(condition, text, message) NUV_ASSERT_AS("SwTableAccessor", condition, text, message)
