#include "fabvxlan/runtime/HashMap.h"

namespace Rxn::detail {

IndexTable* IndexTable::allocate(std::uint8_t bits, std::size_t count) {
  return ::new (::operator new(bytesFor(count))) IndexTable(bits, count);
}

// Room at the end for the run of the last homes: an eighth of the homes is
// far more than a run at 3/4 load ever needs.
IndexTable* IndexTable::make(std::uint8_t bits) {
  std::size_t const homes = std::size_t{1} << bits;
  IndexTable* const table = allocate(bits, homes + homes / 8 + 8);
  std::memset(table->words(), 0, wordsFor(table->count_) * sizeof(std::uint64_t));
  return table;
}

IndexTable* IndexTable::copy() const {
  IndexTable* const table = allocate(bits_, count_);
  std::memcpy(static_cast<void*>(table), this, bytesFor(count_));
  return table;
}

IndexTable* IndexTable::widened() const {
  IndexTable* const table = allocate(bits_, count_ + 2 * (count_ - homes()));
  std::memcpy(table->slots(), slots(), count_ * sizeof(IndexSlot));
  std::uint64_t* const words = table->words();
  std::memcpy(words, this->words(), wordsFor(count_) * sizeof(std::uint64_t));
  std::memset(words + wordsFor(count_), 0, (wordsFor(table->count_) - wordsFor(count_)) * sizeof(std::uint64_t));
  return table;
}

std::size_t IndexTable::prevUsed(std::size_t index) const {
  if (index == 0) return kNone;
  std::size_t word = (index - 1) / 64;
  std::uint64_t bits = words()[word] & (~std::uint64_t{0} >> (63 - (index - 1) % 64));
  while (bits == 0) {
    if (word == 0) return kNone;
    bits = words()[--word];
  }
  return word * 64 + 63 - static_cast<std::size_t>(std::countl_zero(bits));
}

}  // namespace Rxn::detail
