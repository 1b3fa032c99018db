#pragma once

#include "platform/asic/SwTable.h"

#include <memory>
#include <vector>

namespace ZandorL3Tunnel {

/// A block table as the laws of all block tables see it. A block is a list of handles, by position; a null
/// one is a hole.
class BlockDriver {
 public:
   using Handle = Nuv::Ptr<Asic::SwTableBase::EntryHandle const>;
   using Members = std::vector<Handle>;
   using ResponseFunction = Asic::SwTableBase::ResponseFunction;
   using EntryType = Asic::SwTable::EntryHandle::EntryType;

   virtual ~BlockDriver() = default;

   virtual Handle ref(Members const& members) = 0;
   virtual Handle commit(Members const& members, ResponseFunction handler) = 0;
   Handle commit(Members const& members) { return commit(members, {}); }
   virtual Handle write(Members const& members, Asic::AutoRemoveType type) = 0;
   virtual void remove(Members const& members) = 0;
   virtual void removeAll() = 0;
   virtual void handleBlock(Members const& members) = 0;
   virtual bool has(Members const& members) const = 0;
   virtual bool isWaiting(Members const& members) const = 0;
   virtual bool isResolved(Members const& members) const = 0;
   virtual EntryType entryType(Members const& members) const = 0;
   virtual Asic::Index index(Members const& members) const = 0;
   virtual std::size_t handles() const = 0;
   virtual Asic::Index usedIndices() const = 0;
   virtual Asic::SwTable& table() const = 0;
};

template <class T>
class BlockTableDriver final : public BlockDriver {
 public:
   /// `memberOf(handle)` is the member that points at `handle`.
   using MemberOf = typename T::Entry (*)(Handle const& handle);

   explicit BlockTableDriver(MemberOf memberOf) : memberOf_(memberOf) {}

   Handle ref(Members const& members) override { return table_->entryBlockRef(block(members)); }
   Handle commit(Members const& members, ResponseFunction handler) override {
      return table_->entryBlockCommitWithResponseHandler(block(members), std::move(handler));
   }
   Handle write(Members const& members, Asic::AutoRemoveType type) override {
      return table_->entryBlockWrite(block(members), type);
   }
   void remove(Members const& members) override { table_->entryBlockRemove(block(members)); }
   void removeAll() override { table_->entryBlockRemoveAll(); }
   void handleBlock(Members const& members) override { table_->handleEntryBlock(block(members)); }
   bool has(Members const& members) const override { return table_->entryBlockHas(block(members)); }
   bool isWaiting(Members const& members) const override {
      return table_->unresolvedEntryBlock(block(members)) != nullptr;
   }
   bool isResolved(Members const& members) const override {
      return table_->resolvedEntryBlockHas(block(members));
   }
   EntryType entryType(Members const& members) const override {
      return table_->entryHandle(block(members))->entryType();
   }
   Asic::Index index(Members const& members) const override {
      return table_->hwIndexOnlyForCrossAgentCommunication(block(members));
   }
   std::size_t handles() const override { return table_->handles().size(); }
   Asic::Index usedIndices() const override { return table_->indexAllocator()->used(); }
   Asic::SwTable& table() const override { return *table_; }

 private:
   typename T::EntryBlock block(Members const& members) const {
      typename T::EntryBlock block;
      for (Asic::Index position = 0; position < members.size(); ++position) {
         if (members[position]) {
            block.entryIs(position, memberOf_(members[position]));
         }
      }
      return block;
   }

   MemberOf memberOf_;
   Nuv::Ptr<T> table_ = Nuv::make<T>();
};

struct BlockDriverFactory {
   char const* hwTable;
   std::unique_ptr<BlockDriver> (*make)();
};

} // namespace ZandorL3Tunnel
