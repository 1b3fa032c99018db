#pragma once

#include "platform/asic/EntryBase.h"
#include "platform/nuv/Assert.h"
#include "platform/nuv/Exception.h"
#include "platform/nuv/Export.h"
#include "platform/nuv/Pool.h"

#include <algorithm>
#include <vector>

namespace ZandorL3Tunnel {

/// A run of members at positions from 0: the key and the value of a block table. Equal members at equal
/// positions are the same block.
///
/// The content is shared: copying a block costs a count, and whoever changes one that is shared changes a
/// copy. `Sheet` should model a block table's data sheet: its `Entry` is the member, its `typeName()` the
/// table's.
template <class Sheet>
class ZANDOR_EXPORT EntryBlock : public Asic::EntryBase {
 public:
   using Index = std::uint32_t;
   using Entry = typename Sheet::Entry;

   struct Member {
      Index position;
      Entry entry;
   };
   using Members = std::vector<Member, Nuv::PoolAllocator<Member>>;

   /// The name of the type, as a key of allocators.
   static Pelm::StringView typeName() {
      static Pelm::String const name = Pelm::String(Sheet::typeName()) + "::EntryBlock";
      return name;
   }

   /// The member at `position`, or an empty one.
   Entry entry(Index position) const {
      auto const* found = find(position);
      return found ? found->entry : Entry();
   }

   /// The same without a copy: good until the block changes.
   Entry const& entryAt(Index position) const {
      static Entry const none;
      auto const* found = find(position);
      return found ? found->entry : none;
   }

   /// Makes room for `count` members, so that putting them in takes no more memory. Changes nothing else.
   void reserve(std::size_t count) { change().reserve(count); }

   /// Puts a member at `position`, which must not be 0xFFFFFFFF: a block that reached so far would have no
   /// size.
   void entryIs(Index position, Entry entry) {
      if (position == 0xFFFFFFFF) {
         throw Nuv::RangeException("EntryBlock: position 0xFFFFFFFF not allowed");
      }
      auto& members = change();
      if (members.empty() || members.back().position < position) [[likely]] {
         members.push_back({position, std::move(entry)});
         return;
      }
      auto at = lowerBound(members, position);
      if (at != members.end() && at->position == position) {
         at->entry = std::move(entry);
      } else {
         members.insert(at, {position, std::move(entry)});
      }
   }

   /// Whether each field that follows from a handle has room for its index.
   bool dependentFieldsFit() const {
      return std::all_of(members().begin(), members().end(),
                         [](Member const& member) { return Asic::dependentFieldsFit(member.entry); });
   }

   /// Fills the fields of all members that follow from their handles, which must fit. The block's identity
   /// stays what it was.
   void dependentFieldsFill() {
      if (members().empty()) {
         return;
      }
      bool isHashed = content_->isHashed;
      auto hash = content_->hash;
      auto& filled = change();
      content_->hash = hash;
      content_->isHashed = isHashed;
      for (auto& member : filled) {
         Asic::fillDependentFields(member.entry);
      }
   }

   void entryDel(Index position) {
      if (find(position)) {
         auto& members = change();
         members.erase(lowerBound(members, position));
      }
   }

   /// The same under the names of the collection beneath.
   Entry entryInternal(Index position) const { return entry(position); }
   void entryInternalIs(Index position, Entry const& member) { entryIs(position, member); }
   void entryInternalDel(Index position) { entryDel(position); }
   void entryInternalDelAll() { content_ = nullptr; }

   /// The members that are there, by position.
   Members const& members() const {
      static Members const none;
      return content_ ? content_->members : none;
   }

   /// Number of consecutive indices that the block takes: its highest position and one.
   std::uint32_t size() const { return members().empty() ? 0 : members().back().position + 1; }

   /// The size, as far as 16 bits hold it.
   std::uint16_t getBlockSize() const { return std::uint16_t(size()); }

   /// The members are hashed once, whatever the seeds that are asked for.
   std::uint32_t hash(unsigned seed) const {
      Nuv::HashAccumulator accumulator(seed);
      if (!members().empty()) {
         accumulator.mix64(membersHash());
      }
      return accumulator.result();
   }

   friend bool operator==(EntryBlock const& a, EntryBlock const& b) {
      return a.content_ == b.content_ ||
             std::equal(a.members().begin(), a.members().end(), b.members().begin(), b.members().end(),
                        [](Member const& left, Member const& right) {
                           return left.position == right.position && left.entry == right.entry;
                        });
   }

   friend bool operator<(EntryBlock const& a, EntryBlock const& b) {
      return std::lexicographical_compare(a.members().begin(), a.members().end(), b.members().begin(),
                                          b.members().end(), [](Member const& left, Member const& right) {
                                             return left.position != right.position
                                                          ? left.position < right.position
                                                          : left.entry < right.entry;
                                          });
   }

   /// Has no text of its own.
   friend void appendText(Pelm::String& out, EntryBlock const&) { out.append("None"); }

   /// A block holds references, which no text can give: stops the process.
   friend void parseText(Nuv::TextRange&, EntryBlock&) {
      NUV_ASSERT_AS("EntryBlock", false, "No String constructor for EntryBlock - has collection", "");
   }

 private:
   struct Content final : Nuv::Object {
      Content() = default;
      explicit Content(Members const& from) : members(from) {}

      Members members;
      std::uint64_t hash{};
      bool isHashed{};
   };

   template <class Some>
   static auto lowerBound(Some& members, Index position) {
      return std::lower_bound(members.begin(), members.end(), position,
                              [](Member const& member, Index at) { return member.position < at; });
   }

   Member const* find(Index position) const {
      auto const& all = members();
      // Writers fill from 0 on, so a member mostly stands at its own position.
      if (position < all.size() && all[position].position == position) {
         return &all[position];
      }
      auto at = lowerBound(all, position);
      return at != all.end() && at->position == position ? &*at : nullptr;
   }

   Members& change() {
      if (!content_ || content_->references() > 1) {
         content_ = content_ ? new Content(content_->members) : new Content;
      }
      content_->isHashed = false;
      return content_->members;
   }

   std::uint64_t membersHash() const {
      auto& content = *content_;
      if (!content.isHashed) {
         Nuv::HashAccumulator accumulator(Nuv::hashSeed());
         for (auto const& member : content.members) {
            accumulator.mix64(std::uint64_t(member.position) << 32 | member.entry.hash(Nuv::hashSeed()));
         }
         content.hash = accumulator.result64();
         content.isHashed = true;
      }
      return content.hash;
   }

   Nuv::Ptr<Content> content_;
};

} // namespace ZandorL3Tunnel
