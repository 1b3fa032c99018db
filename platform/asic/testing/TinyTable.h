#pragma once

#include "platform/asic/SwTable.h"

#include <functional>
#include <vector>

namespace Asic {

/// The least that is a software table: no entries and no util of its own, so a test decides what is written.
class TinyTable final : public SwTable {
 public:
   explicit TinyTable(Pelm::String name = "Tiny", int* ends = nullptr)
       : SwTable(std::move(name)), ends_(ends) {}

   ~TinyTable() override {
      if (ends_) {
         ++*ends_;
      }
   }

   void cleanup() override {
      auto atCleanup = std::move(atCleanup_);
      atCleanup_ = nullptr;
      if (atCleanup) {
         atCleanup();
      }
   }

   /// What is done when the table is taken down for the first time.
   void atCleanupIs(std::function<void()> atCleanup) { atCleanup_ = std::move(atCleanup); }

 protected:
   Pelm::String hwTableName() const override { return "Tiny"; }
   void utilIs(Nuv::Ptr<HwTable> const&) override {}
   HwTable* hwTable() const override { return nullptr; }

 private:
   int* ends_;
   std::function<void()> atCleanup_;
};

/// The handle of an entry that is not there: it only keeps count of what it is told.
class TinyHandle final : public SwTable::EntryHandle {
 public:
   explicit TinyHandle(SwTable* table) : EntryHandle(table) {}

   void handleRowConfirmed() override {
      ++confirmations;
      if (onRowConfirmed) {
         onRowConfirmed();
      }
   }

   void handleRowRefused() override {
      ++refusals;
      if (onRowRefused) {
         onRowRefused();
      }
   }

   void handleRowDeleted() override {
      ++deletions;
      if (onRowDeleted) {
         onRowDeleted();
      }
   }

   int confirmations{};
   int refusals{};
   int deletions{};
   int cleanups{};
   std::vector<SwTableBase::EntryState> resolvedEntryStates;
   std::function<void()> onRowConfirmed;
   std::function<void()> onRowRefused;
   std::function<void()> onRowDeleted;
   std::function<void()> onEntryState;

 protected:
   void cleanup() override {
      ++cleanups;
      swTableDel();
   }
   void handleEntryState() override {
      if (onEntryState) {
         onEntryState();
      }
   }
   void handleResolvedEntryState() override { resolvedEntryStates.push_back(resolvedEntryState()); }
};

} // namespace Asic
