#pragma once

#include "platform/asic/EntryBase.h"
#include "platform/pelm/String.h"
#include "swtable/IndexSource.h"

namespace ZandorL3Tunnel {

template <class Source>
inline constexpr bool isIndexSource = false;
template <>
inline constexpr bool isIndexSource<KeyIsIndex> = true;
template <class A, bool isShared>
inline constexpr bool isIndexSource<AllocatorSource<A, isShared>> =
      std::derived_from<A, Asic::GenericIndexAllocator>;

/// An entry of a table: a value that is written down once, as a record.
template <class Entry>
concept TableEntry =
      std::derived_from<Entry, Asic::EntryBase> && std::derived_from<Entry, Nuv::Record<Entry>> &&
      std::default_initializable<Entry> && std::copyable<Entry>;

/// A table's data sheet names the table's type and its hardware table, and says what an entry is and where
/// hardware indices come from.
template <class Sheet>
concept TableSheet = requires {
   { Sheet::typeName() } -> std::convertible_to<Pelm::String>;
   { Sheet::hwTableName() } -> std::convertible_to<Pelm::String>;
   requires TableEntry<typename Sheet::Entry>;
   requires isIndexSource<typename Sheet::Source>;
};

/// The sheet of a keyed table also has its key, and a key that is an index is a number.
template <class Sheet>
concept KeyedTableSheet = TableSheet<Sheet> && std::copyable<typename Sheet::Index> &&
      (!std::same_as<typename Sheet::Source, KeyIsIndex> || std::same_as<typename Sheet::Index, Asic::Index>);

/// The sheet of a block table takes its runs from an allocator that has runs.
template <class Sheet>
concept BlockTableSheet = TableSheet<Sheet> && requires {
   typename Sheet::Source::AllocatorType;
} && std::derived_from<typename Sheet::Source::AllocatorType, Asic::AnySizedBlockAllocator>;

} // namespace ZandorL3Tunnel
