// Brim record traits: what a record type must offer to live in a shared-memory table,
// and how its keys and bytes map to the table's 64-bit words.
//
// A record is a trivially copyable struct whose size is a multiple of 8, with a
// nested `using Key = ...;` (trivially copyable, at most 8 bytes, no padding, with
// operator==), a member `Key key() const`, and `static constexpr const char*
// kTypeName` naming its layout. It may add `static constexpr uint64_t kLayoutHash`,
// a hash of its field names and offsets, which the table then checks as well.
#pragma once

#include <concepts>
#include <cstdint>
#include <cstring>
#include <new>
#include <string>
#include <type_traits>

#include "brim/Layout.h"
#include "brim/TableCore.h"

namespace Brim {

template <class Record>
struct RecordTraits {
  using Key = typename Record::Key;

  static_assert(std::is_trivially_copyable_v<Record>, "a Brim record must be trivially copyable");
  static_assert(sizeof(Record) % 8 == 0,
                "a Brim record is stored as 8-byte words: pad it to a multiple of 8 bytes");
  static_assert(alignof(Record) <= 8, "a Brim record must not need more than 8-byte alignment");
  static_assert(std::is_trivially_copyable_v<Key> && sizeof(Key) <= 8,
                "a Brim key must be trivially copyable and at most 8 bytes");
  static_assert(std::has_unique_object_representations_v<Key>,
                "a Brim key is hashed and compared by its bytes: it must have no padding");
  static_assert(std::equality_comparable<Key>, "a Brim key needs operator==");
  static_assert(std::is_same_v<decltype(std::declval<const Record&>().key()), Key>,
                "a Brim record needs a member `Key key() const`");
  static_assert(std::char_traits<char>::length(Record::kTypeName) > 0 &&
                    std::char_traits<char>::length(Record::kTypeName) < Layout::kTypeNameSize,
                "a Brim record's kTypeName must have 1 to 63 characters");

  // Raw storage that a table read fills byte by byte. Records are implicit-lifetime
  // types, so the record exists once its bytes have been copied in; reading straight
  // into it saves the extra 400-byte copies that a word array would cost.
  struct Buffer {
    alignas(Record) unsigned char bytes[sizeof(Record)];
    const Record& record() const { return *std::launder(reinterpret_cast<const Record*>(bytes)); }
    Record& record() { return *std::launder(reinterpret_cast<Record*>(bytes)); }
  };

  // The key's bytes, zero-padded to 8: the slot stores and hashes exactly these.
  static uint64_t keyBits(const Key& key) {
    uint64_t bits = 0;
    std::memcpy(&bits, &key, sizeof(Key));
    return bits;
  }

  static constexpr uint64_t layoutHash() {
    if constexpr (requires { Record::kLayoutHash; }) {
      return Record::kLayoutHash;
    } else {
      return 0;
    }
  }

  static detail::RecordLayout layout() {
    return detail::RecordLayout{Record::kTypeName, static_cast<uint32_t>(sizeof(Record)),
                                layoutHash()};
  }

  static const unsigned char* bytes(const Record& record) {
    return reinterpret_cast<const unsigned char*>(&record);
  }
  static unsigned char* bytes(Record& record) { return reinterpret_cast<unsigned char*>(&record); }
};

}  // namespace Brim
