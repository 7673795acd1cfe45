// How arguments are laid out in a payload; docs/protocol.md has the bytes. Proxies and stubs share these functions, so
// that one side takes what the other puts.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "contract/records.h"
#include "platform/channel/channel.h"
#include "platform/com/com.h"

namespace marshal {

// Thrown by every Put when the frame would become longer than the protocol allows.
struct FrameFull {};

void PutBytes(channel::Encoder& out, const void* bytes, std::size_t count);

// ---- Scalars: little-endian, by their width ------------------------------------------------------------------------

template <typename Scalar>
void PutValue(channel::Encoder& out, Scalar value) {
  PutBytes(out, &value, sizeof value);
}

template <typename Scalar>
Scalar TakeValue(channel::Decoder& in) {
  Scalar value = 0;
  if (const std::byte* bytes = in.Bytes(sizeof value)) std::memcpy(&value, bytes, sizeof value);
  return value;
}

// ---- Texts: length in bytes, or the null mark; the bytes -----------------------------------------------------------

void PutText(channel::Encoder& out, BSTR text);
OwnedBstr TakeText(channel::Decoder& in);  // null for a null text, and when the payload is too short

// ---- Presence: 0 or 1 ----------------------------------------------------------------------------------------------

// Returns whether something follows. A byte other than 0 and 1 fails the decoder, so that a later version can give it a
// meaning.
bool TakePresence(channel::Decoder& in);

// ---- Arrays: whether there is one; its items -----------------------------------------------------------------------
// The number of items precedes them, in an argument or a record.

// Returns the bytes that `count` items take; none for a negative count.
template <typename Item>
constexpr std::size_t Extent(std::int64_t count) {
  return static_cast<std::size_t>(std::max<std::int64_t>(count, 0)) * sizeof(Item);
}

void PutArray(channel::Encoder& out, const void* items, std::size_t bytes);

struct ArrayBytes {
  bool isThere;
  const std::byte* bytes;  // inside the payload
};
ArrayBytes TakeArray(channel::Decoder& in, std::size_t bytes);

// ---- Records: the reference layout without its pointer; the array --------------------------------------------------

// The array that the pointer at the end of a record points to.
template <typename Record>
struct ArrayOf;

template <>
struct ArrayOf<tagREG_RELEXPORTACAO> {
  using Item = tagREG_RELEXPORTACAO_ITEM;
  static std::int64_t Count(const tagREG_RELEXPORTACAO& record) { return record.iQtdeItens; }
};

template <>
struct ArrayOf<tagFILTRO_RELATORIO> {
  using Item = tagCAMPO_FILTRO;
  static std::int64_t Count(const tagFILTRO_RELATORIO& record) { return record.nQtdCampos; }
};

template <>
struct ArrayOf<REG_CAMPOS_DISPONIVEIS2> {
  using Item = tagREG_CAMPOS_RELATORIO2;
  static std::int64_t Count(const REG_CAMPOS_DISPONIVEIS2& record) { return record.nQtdeCampos; }
};

template <>
struct ArrayOf<REG_RELATORIO2> {
  using Item = std::uint8_t;
  static std::int64_t Count(const REG_RELATORIO2& record) { return record.nQtdeBytes; }
};

template <>
struct ArrayOf<REG_ARRAY_RELATORIO2> {
  using Item = tagREG_NOME_RELATORIO2;
  static std::int64_t Count(const REG_ARRAY_RELATORIO2& record) { return record.nQtdeRelatorios; }
};

template <typename Record>
using ItemOf = typename ArrayOf<Record>::Item;

template <typename Record>
std::size_t ArrayExtent(const Record& record) {
  return Extent<ItemOf<Record>>(ArrayOf<Record>::Count(record));
}

template <typename Record>
ItemOf<Record>* Items(const Record& record) {
  ItemOf<Record>* items = nullptr;
  std::memcpy(&items, reinterpret_cast<const std::byte*>(&record) + kBytesWithoutPointer<Record>, sizeof(void*));
  return items;
}

template <typename Record>
void SetItems(Record* record, ItemOf<Record>* items) {
  std::memcpy(reinterpret_cast<std::byte*>(record) + kBytesWithoutPointer<Record>, &items, sizeof(void*));
}

template <typename Record>
void PutRecord(channel::Encoder& out, const Record& record) {
  PutBytes(out, &record, kBytesWithoutPointer<Record>);
  PutArray(out, Items(record), ArrayExtent(record));
}

// Takes a record with a null pointer, and returns where its array lies.
template <typename Record>
ArrayBytes TakeRecord(channel::Decoder& in, Record* record) {
  *record = {};
  const std::byte* bytes = in.Bytes(kBytesWithoutPointer<Record>);
  if (bytes == nullptr) return {};
  std::memcpy(record, bytes, kBytesWithoutPointer<Record>);
  return TakeArray(in, ArrayExtent(*record));
}

}  // namespace marshal
