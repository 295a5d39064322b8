#pragma once
// The ring trace: decisions of the state machines kept in binary form, beside
// the textual trace, in a memory-mapped file that outlives a crash of the
// agent. Nothing is formatted at log time; fabvxlan-ringdump formats later,
// from the message descriptors that the file carries.
//
//   RXN_RING(7, "handleTunnelStatus vtep %s tunnel %u next hop %u", vtep, tunnelId, nextHop);
//   RXN_RING_TO(controllerRing, 1, "controller %s connected", RingLog::Ip4{address});
//
// A site writes nothing, and evaluates none of its arguments, while its handle
// is null. Each of the levels 0..9 has a ring of its own, so a burst of chatty
// level-8 messages cannot overwrite the rare level-1 ones.
//
// A platform agent turns the ring on once, before its threads log:
//   RingLog::defaultRingLogHandle = RingLog::initialize_handle("FabVxlan.rl", "64K", "/tmp", false);

#include <algorithm>
#include <array>
#include <atomic>
#include <cassert>
#include <concepts>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <mutex>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <type_traits>
#include <unordered_map>
#include <vector>

namespace RingLog {

constexpr int kLevels = 10;
// The descriptor table of a file has room for this many message sites; sites
// beyond it are dropped, with one line on stderr each.
constexpr std::uint32_t kMaxMsgDescs = 2048;
constexpr std::size_t kMaxArgs = 32;
// The stored arguments of one message never exceed this: a site whose
// arguments could is refused at compile time, so a record always fits a ring.
constexpr std::size_t kMaxArgBytes = 2048;
// Text arguments are cut to this many bytes.
constexpr std::size_t kMaxTextBytes = 255;

// How an argument is stored; the descriptor of a site lists them.
enum class ArgType : std::uint8_t {
  int8 = 1,
  int16,
  int32,
  int64,
  uint8,
  uint16,
  uint32,
  uint64,
  boolean,
  real,  // a double
  text,  // a length byte, then the bytes
  ip4,   // a uint32 in host order, printed dotted
  mac,   // 6 bytes, printed 0011.2233.4455
};

// Value types of the system store themselves raw through these.
struct Ip4 {
  std::uint32_t value;  // host order
};
struct Mac {
  std::array<std::uint8_t, 6> bytes;
};

class RingFile;

// The ring file that RXN_RING writes to; null (every site off) until a
// platform agent sets it.
extern RingFile* defaultRingLogHandle;

// Creates the ring file `directory`/`name` and returns its handle, which lives
// until the process ends. A file of that name from an earlier life of the agent
// is kept as `name`.1. sizeSpec gives the bytes of each level's ring: one size
// for all levels ("64K", "1M", "4096") or a list for levels 0, 1, ... in order
// ("16K,16K,256K"), the last size going on for the levels the list leaves out.
// A bad sizeSpec throws Rxn::RangeException, a failed system call
// Rxn::ErrnoException. With multiThreading, a lock keeps the records of
// concurrent writers whole; without it, writing takes no lock at all.
RingFile* initialize_handle(std::string const& name, std::string const& sizeSpec, std::string const& directory,
                            bool multiThreading);

// The records of the ring file at `path`, of all levels or of `level` only,
// oldest first, one line each:
//   <time %.6f> L<level> <source file base name>:<line> <formatted text>
// A file that is not a whole, consistent ring file throws Rxn::RangeException.
std::vector<std::string> formatRingFile(std::string const& path, std::optional<int> level = std::nullopt);

// The static identity of one message site: the number the site has in the
// ring file it last wrote to. Another file gives the site a number of its own
// when the site first reaches it.
class MsgId {
 public:
  static constexpr std::uint32_t kUnregistered = 0xFFFFFFFF;
  // The file's descriptor table was full when the site came.
  static constexpr std::uint32_t kDropped = 0xFFFFFFFE;

  constexpr MsgId() = default;
  MsgId(MsgId const&) = delete;
  MsgId& operator=(MsgId const&) = delete;

  std::uint32_t numberIn(RingFile const& file) const;

 private:
  friend class RingFile;
  void numberIs(std::uint32_t fileSerial, std::uint32_t number);

  // (serial of the file << 32) | number, in one word so that a thread never
  // pairs one file with the number of another.
  std::atomic<std::uint64_t> word_{0};
};

// The registration of a site in a file: where it is, its level, its format
// text and the types of its arguments, which the reader needs to format.
class MsgDesc {
 public:
  MsgDesc(RingFile* file, MsgId* id, char const* sourceFile, std::uint32_t line, int level, char const* function);
  MsgDesc& formatIs(char const* format);
  MsgDesc& argTypeAppend(ArgType type);
  // Gives the site its number in the file, registering it there if new.
  void finish();

 private:
  RingFile* file_;
  MsgId* id_;
  char const* sourceFile_;
  std::uint32_t line_;
  int level_;
  char const* function_;
  char const* format_ = "";
  std::array<ArgType, kMaxArgs> argTypes_{};
  std::size_t argCount_ = 0;

  friend class RingFile;
};

// One message on its way into a file: the record is put together here, in
// the writer's own buffer, argument by argument, and goes into the ring of its
// level whole at endMsg. Only that step takes the file's lock, if it has one.
class RingBuf {
 public:
  void startMsg(RingFile* file, std::uint32_t number);
  void putBytes(void const* bytes, std::size_t size) {
    assert(size <= bytes_.size() - size_);
    std::memcpy(bytes_.data() + size_, bytes, size);
    size_ += size;
  }
  // A length byte, then at most kMaxTextBytes of the text.
  void putText(std::string_view text) {
    auto const length = static_cast<std::uint8_t>(std::min(text.size(), kMaxTextBytes));
    putBytes(&length, 1);
    putBytes(text.data(), length);
  }
  void endMsg();

 private:
  static constexpr std::size_t kRecordHeadBytes = 24;
  RingFile* file_ = nullptr;
  std::uint32_t number_ = MsgId::kUnregistered;
  std::size_t size_ = 0;
  // Left uninitialized: only the bytes written are ever read.
  std::array<std::byte, kRecordHeadBytes + kMaxArgBytes> bytes_;
};

// An open ring file. Handles are never closed: a site may reach one at any
// time until the process ends, static destructors included.
class RingFile {
 public:
  RingFile(RingFile const&) = delete;
  RingFile& operator=(RingFile const&) = delete;

  std::string const& name() const { return name_; }
  std::string const& path() const { return path_; }
  bool multiThreading() const { return multiThreading_; }
  std::uint32_t ringBytes(int level) const;
  // Tells files apart in the numbers that sites keep.
  std::uint32_t serial() const { return serial_; }

 private:
  friend RingFile* initialize_handle(std::string const&, std::string const&, std::string const&, bool);
  friend class MsgDesc;
  friend class RingBuf;
  RingFile(std::string name, std::string path, std::uint32_t serial, bool multiThreading, std::byte* base);

  std::unique_lock<std::mutex> lockIfShared();
  void registerSite(MsgDesc const& desc, std::span<std::byte const> descriptor);
  std::uint32_t addDescriptor(MsgDesc const& desc, std::span<std::byte const> descriptor);
  void append(std::uint32_t number, std::span<std::byte> record);

  std::string name_;
  std::string path_;
  std::uint32_t serial_;
  bool multiThreading_;
  std::mutex mutex_;
  std::byte* base_;  // the mapping of the whole file
  // Numbers already given, so that a site that goes back and forth between
  // files is described once in each.
  std::unordered_map<MsgId const*, std::uint32_t> numbers_;
  std::array<std::uint8_t, kMaxMsgDescs> levelOf_{};
};

inline std::uint32_t MsgId::numberIn(RingFile const& file) const {
  std::uint64_t const word = word_.load(std::memory_order_acquire);
  return (word >> 32) == file.serial() ? static_cast<std::uint32_t>(word) : kUnregistered;
}

inline void MsgId::numberIs(std::uint32_t fileSerial, std::uint32_t number) {
  word_.store((std::uint64_t{fileSerial} << 32) | number, std::memory_order_release);
}

// --- Argument encodings ------------------------------------------------------
//
// ArgTraits<T> tells how a T is stored: its ArgType, the most bytes it takes
// and put(), which writes it into a RingBuf. A value type of the system adds
// its own by specializing ArgTraits, usually on one of the stored forms here:
//   template <> struct RingLog::ArgTraits<IpAddr> : RingLog::ArgTraits<RingLog::Ip4> {
//     static void put(RingBuf& buf, IpAddr const& a) { ArgTraits<Ip4>::put(buf, Ip4{a.value()}); }
//   };

template <class T>
struct ArgTraits;

template <class T>
constexpr ArgType integerArgType() {
  constexpr std::size_t kSize = sizeof(T);
  if constexpr (std::is_signed_v<T>) {
    return kSize == 1 ? ArgType::int8 : kSize == 2 ? ArgType::int16 : kSize == 4 ? ArgType::int32 : ArgType::int64;
  } else {
    return kSize == 1 ? ArgType::uint8 : kSize == 2 ? ArgType::uint16 : kSize == 4 ? ArgType::uint32 : ArgType::uint64;
  }
}

template <class T>
concept Integer = std::is_integral_v<T> && !std::is_same_v<T, bool> && sizeof(T) <= 8;
template <class T>
concept Enum = std::is_enum_v<T>;
template <class T>
concept Text = std::is_convertible_v<T const&, std::string_view>;
template <class T>
concept HasStringValue = requires(T const& value) {
  { value.stringValue() } -> std::convertible_to<std::string_view>;
};
template <class T>
concept ShownAsText = HasStringValue<T> && !Text<T>;

// Integers go as 64 bits, sign-extended; the type keeps their width for printf.
template <Integer T>
struct ArgTraits<T> {
  static constexpr ArgType kType = integerArgType<T>();
  static constexpr std::size_t kMaxBytes = 8;
  static void put(RingBuf& buf, T value) {
    auto const bits = static_cast<std::uint64_t>(value);
    buf.putBytes(&bits, sizeof(bits));
  }
};

template <Enum T>
struct ArgTraits<T> : ArgTraits<std::underlying_type_t<T>> {
  static void put(RingBuf& buf, T value) {
    ArgTraits<std::underlying_type_t<T>>::put(buf, static_cast<std::underlying_type_t<T>>(value));
  }
};

template <>
struct ArgTraits<bool> {
  static constexpr ArgType kType = ArgType::boolean;
  static constexpr std::size_t kMaxBytes = 1;
  static void put(RingBuf& buf, bool value) {
    std::uint8_t const byte = value ? 1 : 0;
    buf.putBytes(&byte, 1);
  }
};

template <std::floating_point T>
struct ArgTraits<T> {
  static constexpr ArgType kType = ArgType::real;
  static constexpr std::size_t kMaxBytes = 8;
  static void put(RingBuf& buf, T value) {
    auto const real = static_cast<double>(value);
    buf.putBytes(&real, sizeof(real));
  }
};

template <Text T>
struct ArgTraits<T> {
  static constexpr ArgType kType = ArgType::text;
  static constexpr std::size_t kMaxBytes = 1 + kMaxTextBytes;
  static void put(RingBuf& buf, T const& value) {
    if constexpr (std::is_pointer_v<T>) {
      if (value == nullptr) {
        buf.putText("(null)");
        return;
      }
    }
    buf.putText(value);
  }
};

// The one encoding that formats at log time: value types of the system that
// show themselves as text.
template <ShownAsText T>
struct ArgTraits<T> {
  static constexpr ArgType kType = ArgType::text;
  static constexpr std::size_t kMaxBytes = 1 + kMaxTextBytes;
  static void put(RingBuf& buf, T const& value) {
    auto const text = value.stringValue();
    buf.putText(text);
  }
};

template <>
struct ArgTraits<Ip4> {
  static constexpr ArgType kType = ArgType::ip4;
  static constexpr std::size_t kMaxBytes = 4;
  static void put(RingBuf& buf, Ip4 const& address) { buf.putBytes(&address.value, sizeof(address.value)); }
};

template <>
struct ArgTraits<Mac> {
  static constexpr ArgType kType = ArgType::mac;
  static constexpr std::size_t kMaxBytes = 6;
  static void put(RingBuf& buf, Mac const& address) { buf.putBytes(address.bytes.data(), address.bytes.size()); }
};

// The type whose traits store an argument: an array of char goes as char const*.
template <class T>
using StoredAs = std::decay_t<T const>;

template <class T>
concept Storable = requires {
  ArgTraits<StoredAs<T>>::kType;
};

// --- What the site macros expand to ------------------------------------------

// Where a site is and what it says; constant for the life of the site.
struct Site {
  char const* sourceFile;
  std::uint32_t line;
  int level;
  char const* function;
  char const* format;
};

template <class... Args>
void registerSite(RingFile* file, MsgId& id, Site const& site) {
  MsgDesc desc(file, &id, site.sourceFile, site.line, site.level, site.function);
  desc.formatIs(site.format);
  (desc.argTypeAppend(ArgTraits<Args>::kType), ...);
  desc.finish();
}

template <Storable... Args>
void writeMsg(RingFile* file, MsgId& id, Site const& site, Args const&... args) {
  static_assert(sizeof...(Args) <= kMaxArgs, "a ring message takes at most kMaxArgs arguments");
  static_assert((std::size_t{0} + ... + ArgTraits<StoredAs<Args>>::kMaxBytes) <= kMaxArgBytes,
                "the arguments of a ring message could exceed kMaxArgBytes: split the message");
  std::uint32_t number = id.numberIn(*file);
  if (number == MsgId::kUnregistered) {
    registerSite<StoredAs<Args>...>(file, id, site);
    number = id.numberIn(*file);
  }
  if (number == MsgId::kDropped) {
    return;
  }
  RingBuf buf;
  buf.startMsg(file, number);
  (ArgTraits<StoredAs<Args>>::put(buf, args), ...);
  buf.endMsg();
}

}  // namespace RingLog

// A message to the given handle, at a constant level 0..9, with a literal
// printf-style format. Nothing but the null test happens while the handle is
// null: the arguments are not evaluated.
#define RXN_RING_TO(handle, level, fmt, ...)                                                                          \
  do {                                                                                                                \
    static_assert((level) >= 0 && (level) < ::RingLog::kLevels, "ring levels run from 0 to 9");                       \
    if (::RingLog::RingFile* rxnRingFile_ = (handle)) {                                                               \
      static ::RingLog::MsgId rxnRingId_;                                                                             \
      ::RingLog::writeMsg(rxnRingFile_, rxnRingId_,                                                                   \
                          ::RingLog::Site{__FILE__, __LINE__, (level), __func__, "" fmt} __VA_OPT__(, ) __VA_ARGS__); \
    }                                                                                                                 \
  } while (0)

#define RXN_RING(level, fmt, ...) RXN_RING_TO(::RingLog::defaultRingLogHandle, level, fmt __VA_OPT__(, ) __VA_ARGS__)
