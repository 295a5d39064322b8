#include "fabvxlan/runtime/HashMap.h"

#include <sys/mman.h>

#include <atomic>

namespace Rxn {

namespace {

constexpr std::size_t kHugePage = std::size_t{2} << 20;
constexpr std::size_t kPage = std::size_t{4} << 10;
std::atomic<std::size_t> largeBlockBytes{0};

std::size_t mappedBytes(std::size_t bytes) {
  return (bytes + kPage - 1) & ~(kPage - 1);
}

}  // namespace

std::size_t largeBlockBytesInUse() {
  return largeBlockBytes.load(std::memory_order_relaxed);
}

namespace detail {

// A mapping one huge page longer than the block, trimmed to its aligned part.
void* allocateBlock(std::size_t bytes, std::size_t alignment) {
  if (bytes < kHugePage) {
    return ::operator new(bytes, std::align_val_t(alignment));
  }
  std::size_t const length = mappedBytes(bytes);
  void* const mapped = ::mmap(nullptr, length + kHugePage, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  if (mapped == MAP_FAILED) {
    throw std::bad_alloc();
  }
  auto const start = reinterpret_cast<std::uintptr_t>(mapped);
  std::uintptr_t const aligned = (start + kHugePage - 1) & ~(kHugePage - 1);
  if (aligned > start) {
    ::munmap(mapped, aligned - start);
  }
  if (std::size_t const tail = start + kHugePage - aligned; tail > 0) {
    ::munmap(reinterpret_cast<void*>(aligned + length), tail);
  }
  // Only the whole huge pages: the tail of the block, in small pages, costs
  // no more than it holds. Only advice: without huge pages the block works
  // the same.
  ::madvise(reinterpret_cast<void*>(aligned), length & ~(kHugePage - 1), MADV_HUGEPAGE);
  largeBlockBytes.fetch_add(length, std::memory_order_relaxed);
  return reinterpret_cast<void*>(aligned);
}

void freeBlock(void* block, std::size_t bytes, std::size_t alignment) {
  if (bytes < kHugePage) {
    ::operator delete(block, std::align_val_t(alignment));
    return;
  }
  ::munmap(block, mappedBytes(bytes));
  largeBlockBytes.fetch_sub(mappedBytes(bytes), std::memory_order_relaxed);
}

IndexTable* IndexTable::allocate(std::uint8_t bits, std::size_t count) {
  return ::new (allocateBlock(bytesFor(count), alignof(IndexTable))) IndexTable(bits, count);
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

}  // namespace detail

}  // namespace Rxn
