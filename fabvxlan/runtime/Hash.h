#pragma once
// Hashing of keys. Every key type answers hash(); the runtime mixes that into
// a well-spread 64-bit value. Nothing is seeded per process, so the order of
// a hash collection, and with it every run and trace, reproduces.

#include <cstdint>
#include <functional>
#include <string>
#include <type_traits>

namespace Rxn {

template <class T>
concept HasHashMember = requires(T const& t) {
  { t.hash() } -> std::convertible_to<std::uint64_t>;
};

template <class T>
std::uint64_t hashOf(T const& value) {
  if constexpr (HasHashMember<T>) {
    return value.hash();
  } else if constexpr (std::is_enum_v<T>) {
    return static_cast<std::uint64_t>(value);
  } else if constexpr (std::is_integral_v<T>) {
    return static_cast<std::uint64_t>(value);
  } else {
    return std::hash<T>{}(value);
  }
}

// The finaliser of MurmurHash3: spreads every input bit over the whole word.
inline std::uint64_t hashMix(std::uint64_t h) {
  h ^= h >> 33;
  h *= 0xff51afd7ed558ccdULL;
  h ^= h >> 33;
  h *= 0xc4ceb9fe1a85ec53ULL;
  h ^= h >> 33;
  return h;
}

// The hash of a record: its fields' hashes folded with one multiply each.
// A hash collection mixes what it is given, so the fold need not.
template <class... Fields>
std::uint64_t hashFields(Fields const&... fields) {
  std::uint64_t h = 0;
  ((h = h * 0x9e3779b97f4a7c15ULL + hashOf(fields)), ...);
  return h;
}

// Combines two hashes into a well-mixed one.
inline std::uint64_t hashCombine(std::uint64_t seed, std::uint64_t h) {
  return hashMix(seed ^ (h + 0x9e3779b97f4a7c15ULL + (seed << 6) + (seed >> 2)));
}

}  // namespace Rxn
