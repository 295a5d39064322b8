#include "fabvxlan/runtime/RingLog.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <iterator>
#include <memory>
#include <utility>

#include "fabvxlan/runtime/Activity.h"
#include "fabvxlan/runtime/Exception.h"
#include "fabvxlan/runtime/String.h"

namespace RingLog {

RingFile* defaultRingLogHandle = nullptr;

namespace {

// --- The file layout ---------------------------------------------------------
//
// All numbers in host byte order:
//   FileHeader | descriptor index: u32 offset per descriptor | descriptor area | ring of level 0 | ... | ring of 9
// A descriptor is a DescHead, its argument types (a byte each), then the
// source file, function and format texts. A ring holds whole records, each a
// RecordHead and the stored arguments; a record may wrap around the ring's end.

constexpr std::array<char, 8> kMagic{'R', 'X', 'N', 'R', 'I', 'N', 'G', '\0'};
constexpr std::uint32_t kVersion = 1;
constexpr std::uint32_t kDescAreaBytes = 256 * 1024;
// A ring always holds at least two of the largest records.
constexpr std::uint64_t kMinRingBytes = 4096;
constexpr std::uint64_t kMaxRingBytes = 256 * 1024 * 1024;

struct LevelHeader {
  std::uint64_t offset;  // of the ring in the file
  std::uint32_t bytes;
  std::uint32_t reserved;
  // The oldest record's offset in the ring << 32 | the bytes in use, in one
  // word: whenever the process dies, the file tells one consistent ring.
  std::uint64_t state;
};

struct FileHeader {
  std::array<char, 8> magic;
  std::uint32_t version;
  std::uint32_t levelCount;
  std::uint32_t descCapacity;
  std::uint32_t descCount;
  std::uint32_t descAreaBytes;
  std::uint32_t descAreaUsed;
  std::uint64_t descIndexOffset;
  std::uint64_t descAreaOffset;
  std::uint64_t nextSeq;
  std::array<LevelHeader, kLevels> levels;
};
static_assert(sizeof(FileHeader) == 296 && std::is_trivially_copyable_v<FileHeader>);

struct DescHead {
  std::uint32_t line;
  std::uint8_t level;
  std::uint8_t argCount;
  std::uint16_t sourceFileBytes;
  std::uint16_t functionBytes;
  std::uint16_t formatBytes;
};
static_assert(sizeof(DescHead) == 12);

struct RecordHead {
  std::uint32_t bytes;  // the whole record
  std::uint32_t number;
  std::uint64_t seq;  // the order of writing, across levels
  double time;
};

struct RingState {
  std::uint32_t tail;
  std::uint32_t used;

  static RingState unpack(std::uint64_t word) {
    return {static_cast<std::uint32_t>(word >> 32), static_cast<std::uint32_t>(word)};
  }
  std::uint64_t packed() const { return (std::uint64_t{tail} << 32) | used; }
};

FileHeader& headerOf(std::byte* base) {
  return *reinterpret_cast<FileHeader*>(base);
}

void copyIntoRing(std::byte* ring, std::uint32_t ringBytes, std::uint32_t at, void const* from, std::size_t size) {
  std::size_t const first = std::min<std::size_t>(size, ringBytes - at);
  std::memcpy(ring + at, from, first);
  std::memcpy(ring, static_cast<std::byte const*>(from) + first, size - first);
}

void copyOutOfRing(std::byte const* ring, std::uint32_t ringBytes, std::uint32_t at, void* to, std::size_t size) {
  std::size_t const first = std::min<std::size_t>(size, ringBytes - at);
  std::memcpy(to, ring + at, first);
  std::memcpy(static_cast<std::byte*>(to) + first, ring, size - first);
}

// --- Opening a file ----------------------------------------------------------

[[noreturn]] void badSizeSpec(std::string const& spec, std::string const& why) {
  Rxn::throwRangeException("RingLog: bad ring sizeSpec \"" + spec + "\": " + why);
}

// Digits, then K, M or G for binary kilo-, mega- and gigabytes.
std::uint32_t parseRingBytes(std::string_view item, std::string const& spec) {
  std::size_t digits = 0;
  std::uint64_t value = 0;
  for (; digits < item.size() && item[digits] >= '0' && item[digits] <= '9'; ++digits) {
    value = value * 10 + static_cast<std::uint64_t>(item[digits] - '0');
    if (value > kMaxRingBytes) {
      badSizeSpec(spec, "a ring takes at most 256M");
    }
  }
  std::string_view const suffix = item.substr(digits);
  if (digits == 0 || suffix.size() > 1) {
    badSizeSpec(spec, "\"" + std::string(item) + "\" is not a size like 4096, 64K or 1M");
  }
  std::uint64_t unit = 1;
  if (suffix == "K" || suffix == "k") {
    unit = 1024;
  } else if (suffix == "M" || suffix == "m") {
    unit = 1024 * 1024;
  } else if (suffix == "G" || suffix == "g") {
    unit = 1024 * 1024 * 1024;
  } else if (!suffix.empty()) {
    badSizeSpec(spec, "\"" + std::string(item) + "\" has an unknown unit; use K, M or G");
  }
  value *= unit;
  if (value < kMinRingBytes || value > kMaxRingBytes) {
    badSizeSpec(spec, "\"" + std::string(item) + "\" is out of the range 4K..256M");
  }
  return static_cast<std::uint32_t>(value);
}

std::array<std::uint32_t, kLevels> parseSizeSpec(std::string const& spec) {
  std::vector<std::string_view> items;
  std::string_view rest = spec;
  for (std::size_t comma = rest.find(','); comma != std::string_view::npos; comma = rest.find(',')) {
    items.push_back(rest.substr(0, comma));
    rest.remove_prefix(comma + 1);
  }
  items.push_back(rest);
  if (items.size() > kLevels) {
    badSizeSpec(spec, "more sizes than the 10 levels");
  }
  std::array<std::uint32_t, kLevels> sizes{};
  for (std::size_t level = 0; level < kLevels; ++level) {
    sizes[level] = parseRingBytes(items[std::min(level, items.size() - 1)], spec);
  }
  return sizes;
}

std::uint64_t alignedTo8(std::uint64_t offset) {
  return (offset + 7) & ~std::uint64_t{7};
}

// The header of a fresh file with rings of these sizes; fileBytes is its size.
FileHeader freshHeader(std::array<std::uint32_t, kLevels> const& ringBytes, std::uint64_t& fileBytes) {
  FileHeader header{};
  header.magic = kMagic;
  header.version = kVersion;
  header.levelCount = kLevels;
  header.descCapacity = kMaxMsgDescs;
  header.descAreaBytes = kDescAreaBytes;
  header.descIndexOffset = alignedTo8(sizeof(FileHeader));
  header.descAreaOffset = header.descIndexOffset + std::uint64_t{kMaxMsgDescs} * sizeof(std::uint32_t);
  std::uint64_t offset = alignedTo8(header.descAreaOffset + kDescAreaBytes);
  for (int level = 0; level < kLevels; ++level) {
    header.levels[level].offset = offset;
    header.levels[level].bytes = ringBytes[level];
    offset = alignedTo8(offset + ringBytes[level]);
  }
  fileBytes = offset;
  return header;
}

// Shared, so that what was written is in the file when the process dies.
std::byte* mapFreshFile(std::string const& path, std::uint64_t fileBytes) {
  int const fd = ::open(path.c_str(), O_RDWR | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
  if (fd < 0) {
    throw Rxn::ErrnoException(errno, "RingLog: cannot create " + path);
  }
  // Blocks are reserved now: a write into a hole of a full disk would kill
  // the agent with SIGBUS at log time.
  int const reserveError = ::posix_fallocate(fd, 0, static_cast<off_t>(fileBytes));
  void* const mapping =
      reserveError == 0 ? ::mmap(nullptr, fileBytes, PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0) : MAP_FAILED;
  int const mapError = errno;
  ::close(fd);
  if (reserveError != 0) {
    throw Rxn::ErrnoException(reserveError, "RingLog: cannot size " + path);
  }
  if (mapping == MAP_FAILED) {
    throw Rxn::ErrnoException(mapError, "RingLog: cannot map " + path);
  }
  return static_cast<std::byte*>(mapping);
}

// Owns every handle. Never destroyed, so that handles outlive all static
// destructors that might still log.
std::vector<std::unique_ptr<RingFile>>& openFiles() {
  static auto* files = new std::vector<std::unique_ptr<RingFile>>();
  return *files;
}

std::mutex openFilesMutex;
std::atomic<std::uint32_t> nextSerial{1};

}  // namespace

RingFile* initialize_handle(std::string const& name, std::string const& sizeSpec, std::string const& directory,
                            bool multiThreading) {
  std::array<std::uint32_t, kLevels> const ringBytes = parseSizeSpec(sizeSpec);
  std::string const path = directory + "/" + name;
  // The ring of the agent's previous life tells why it ended: keep it.
  std::rename(path.c_str(), (path + ".1").c_str());
  std::uint64_t fileBytes = 0;
  FileHeader const header = freshHeader(ringBytes, fileBytes);
  std::byte* const base = mapFreshFile(path, fileBytes);
  std::memcpy(base, &header, sizeof(header));
  std::lock_guard<std::mutex> const lock(openFilesMutex);
  return openFiles().emplace_back(new RingFile(name, path, nextSerial.fetch_add(1), multiThreading, base)).get();
}

// --- Writing -------------------------------------------------------------------

RingFile::RingFile(std::string name, std::string path, std::uint32_t serial, bool multiThreading, std::byte* base)
    : name_(std::move(name)), path_(std::move(path)), serial_(serial), multiThreading_(multiThreading), base_(base) {}

std::uint32_t RingFile::ringBytes(int level) const {
  assert(level >= 0 && level < kLevels);
  return headerOf(base_).levels[level].bytes;
}

std::unique_lock<std::mutex> RingFile::lockIfShared() {
  return multiThreading_ ? std::unique_lock<std::mutex>(mutex_) : std::unique_lock<std::mutex>();
}

void RingFile::registerSite(MsgDesc const& desc, std::span<std::byte const> descriptor) {
  auto const lock = lockIfShared();
  if (desc.id_->numberIn(*this) != MsgId::kUnregistered) {
    return;  // another thread came first
  }
  auto [entry, fresh] = numbers_.try_emplace(desc.id_, MsgId::kDropped);
  if (fresh) {
    entry->second = addDescriptor(desc, descriptor);
  }
  desc.id_->numberIs(serial_, entry->second);
}

std::uint32_t RingFile::addDescriptor(MsgDesc const& desc, std::span<std::byte const> descriptor) {
  FileHeader& header = headerOf(base_);
  if (header.descCount == kMaxMsgDescs || descriptor.size() > header.descAreaBytes - header.descAreaUsed) {
    std::fprintf(stderr, "RingLog: %s: descriptor table full, the messages of %s:%u are dropped\n", path_.c_str(),
                 desc.sourceFile_, desc.line_);
    return MsgId::kDropped;
  }
  std::uint32_t const number = header.descCount;
  std::uint32_t const offset = header.descAreaUsed;
  std::memcpy(base_ + header.descAreaOffset + offset, descriptor.data(), descriptor.size());
  std::memcpy(base_ + header.descIndexOffset + number * sizeof(std::uint32_t), &offset, sizeof(offset));
  header.descAreaUsed += static_cast<std::uint32_t>(descriptor.size());
  levelOf_[number] = static_cast<std::uint8_t>(desc.level_);
  // The count last: a descriptor is in the table once it is whole.
  std::atomic_ref<std::uint32_t>(header.descCount).store(number + 1, std::memory_order_release);
  return number;
}

void RingFile::append(std::uint32_t number, std::span<std::byte> record) {
  auto const lock = lockIfShared();
  FileHeader& header = headerOf(base_);
  LevelHeader& ring = header.levels[levelOf_[number]];
  RecordHead const head{static_cast<std::uint32_t>(record.size()), number, header.nextSeq++,
                        Rxn::System::currentTime()};
  std::memcpy(record.data(), &head, sizeof(head));

  std::byte* const data = base_ + ring.offset;
  std::atomic_ref<std::uint64_t> stateWord(ring.state);
  RingState state = RingState::unpack(stateWord.load(std::memory_order_relaxed));
  while (ring.bytes - state.used < record.size()) {
    RecordHead oldest;
    copyOutOfRing(data, ring.bytes, state.tail, &oldest, sizeof(oldest));
    assert(oldest.bytes >= sizeof(RecordHead) && oldest.bytes <= state.used);
    state.tail = (state.tail + oldest.bytes) % ring.bytes;
    state.used -= oldest.bytes;
  }
  // The records given up leave the ring before their bytes are overwritten.
  stateWord.store(state.packed(), std::memory_order_release);
  copyIntoRing(data, ring.bytes, (state.tail + state.used) % ring.bytes, record.data(), record.size());
  state.used += static_cast<std::uint32_t>(record.size());
  stateWord.store(state.packed(), std::memory_order_release);
}

MsgDesc::MsgDesc(RingFile* file, MsgId* id, char const* sourceFile, std::uint32_t line, int level, char const* function)
    : file_(file), id_(id), sourceFile_(sourceFile), line_(line), level_(level), function_(function) {
  assert(file != nullptr && level >= 0 && level < kLevels);
}

MsgDesc& MsgDesc::formatIs(char const* format) {
  format_ = format;
  return *this;
}

MsgDesc& MsgDesc::argTypeAppend(ArgType type) {
  assert(argCount_ < kMaxArgs);
  argTypes_[argCount_++] = type;
  return *this;
}

void MsgDesc::finish() {
  auto const clip = [](char const* text) { return std::string_view(text).substr(0, 0xFFFF); };
  std::string_view const sourceFile = clip(sourceFile_);
  std::string_view const function = clip(function_);
  std::string_view const format = clip(format_);
  DescHead const head{line_,
                      static_cast<std::uint8_t>(level_),
                      static_cast<std::uint8_t>(argCount_),
                      static_cast<std::uint16_t>(sourceFile.size()),
                      static_cast<std::uint16_t>(function.size()),
                      static_cast<std::uint16_t>(format.size())};
  std::vector<std::byte> descriptor(sizeof(head) + argCount_);
  std::memcpy(descriptor.data(), &head, sizeof(head));
  std::memcpy(descriptor.data() + sizeof(head), argTypes_.data(), argCount_);
  for (std::string_view text : {sourceFile, function, format}) {
    auto const* bytes = reinterpret_cast<std::byte const*>(text.data());
    descriptor.insert(descriptor.end(), bytes, bytes + text.size());
  }
  file_->registerSite(*this, descriptor);
}

void RingBuf::startMsg(RingFile* file, std::uint32_t number) {
  file_ = file;
  number_ = number;
  size_ = kRecordHeadBytes;  // RingFile fills the head in when the record goes in
}

void RingBuf::endMsg() {
  static_assert(kRecordHeadBytes == sizeof(RecordHead));
  file_->append(number_, std::span<std::byte>(bytes_.data(), size_));
  file_ = nullptr;
}

// --- Reading -----------------------------------------------------------------

namespace {

// An argument as the reader found it; ip4, mac and text keep their text.
struct Arg {
  ArgType type;
  std::uint64_t bits = 0;
  double real = 0.0;
  std::string text;
};

bool isOneOf(char c, std::string_view set) {
  return set.find(c) != std::string_view::npos;
}

bool isInteger(ArgType type) {
  return type >= ArgType::int8 && type <= ArgType::boolean;
}
bool isSigned(ArgType type) {
  return type >= ArgType::int8 && type <= ArgType::int64;
}

int bitsOf(ArgType type) {
  switch (type) {
    case ArgType::int16:
    case ArgType::uint16:
      return 16;
    case ArgType::int32:
    case ArgType::uint32:
      return 32;
    case ArgType::int64:
    case ArgType::uint64:
      return 64;
    default:
      return 8;
  }
}

std::string textOf(Arg const& arg) {
  if (arg.type == ArgType::boolean) {
    return arg.bits != 0 ? "true" : "false";
  }
  if (isSigned(arg.type)) {
    return std::to_string(static_cast<std::int64_t>(arg.bits));
  }
  if (isInteger(arg.type)) {
    return std::to_string(arg.bits);
  }
  if (arg.type == ArgType::real) {
    return Rxn::format("%g", arg.real);
  }
  return arg.text;
}

double realOf(Arg const& arg) {
  if (arg.type == ArgType::real) {
    return arg.real;
  }
  return isSigned(arg.type) ? static_cast<double>(static_cast<std::int64_t>(arg.bits)) : static_cast<double>(arg.bits);
}

// One printf conversion of a format text.
struct Conversion {
  std::string options;  // flags, width and precision, passed on to printf
  int lengthBits = 0;   // what the length modifier asks for; 0 without one
  char type = 0;
  std::size_t end = 0;  // just past the conversion in the format text
};

// The conversion that starts at format[start] == '%', if it is one we print.
// Width and precision take three digits at most: the format comes from a file
// and must not make the reader build a string of a billion spaces.
std::optional<Conversion> parseConversion(std::string_view format, std::size_t start) {
  Conversion conversion;
  std::size_t at = start + 1;
  auto const takeWhile = [&](std::string_view accepted, std::size_t most) {
    std::size_t taken = 0;
    for (; at < format.size() && isOneOf(format[at], accepted); ++at, ++taken) {
      conversion.options += format[at];
    }
    return taken <= most;
  };
  constexpr std::string_view kDigits = "0123456789";
  if (!takeWhile("-+ #0", 5) || !takeWhile(kDigits, 3)) {
    return std::nullopt;
  }
  if (at < format.size() && format[at] == '.') {
    conversion.options += format[at++];
    if (!takeWhile(kDigits, 3)) {
      return std::nullopt;
    }
  }
  std::string_view const rest = format.substr(at);
  if (rest.starts_with("hh")) {
    conversion.lengthBits = 8;
    at += 2;
  } else if (rest.starts_with("h")) {
    conversion.lengthBits = 16;
    at += 1;
  } else if (rest.starts_with("ll")) {
    conversion.lengthBits = 64;
    at += 2;
  } else if (!rest.empty() && isOneOf(rest[0], "ljztqL")) {
    conversion.lengthBits = 64;
    at += 1;
  }
  if (at >= format.size() || !isOneOf(format[at], "diouxXcsfFeEgGaAp")) {
    return std::nullopt;
  }
  conversion.type = format[at];
  conversion.end = at + 1;
  return conversion;
}

// As printf prints the argument, promoted as C promotes it, for the length
// modifier: an int -1 under %u is 4294967295, 300 under %hhu is 44. Without a
// modifier a 64-bit argument keeps its 64 bits.
std::string renderInteger(Conversion const& conversion, Arg const& arg) {
  if (conversion.type == 'c') {
    return Rxn::format(("%" + conversion.options + "c").c_str(),
                       static_cast<int>(static_cast<unsigned char>(arg.bits)));
  }
  int const bits = conversion.lengthBits != 0 ? conversion.lengthBits : std::max(32, bitsOf(arg.type));
  std::uint64_t value = arg.bits;
  if (bits < 64) {
    std::uint64_t const mask = (std::uint64_t{1} << bits) - 1;
    bool const negative = (conversion.type == 'd' || conversion.type == 'i') && ((value >> (bits - 1)) & 1U) != 0;
    value = negative ? value | ~mask : value & mask;
  }
  std::string const spec = "%" + conversion.options + "ll" + conversion.type;
  if (conversion.type == 'd' || conversion.type == 'i') {
    return Rxn::format(spec.c_str(), static_cast<long long>(value));
  }
  return Rxn::format(spec.c_str(), static_cast<unsigned long long>(value));
}

// Integers under integer conversions and numbers under floating ones print as
// printf prints them; any other pairing prints the argument's text under %s.
std::string render(Conversion const& conversion, Arg const& arg) {
  if (isInteger(arg.type) && isOneOf(conversion.type, "diouxXc")) {
    return renderInteger(conversion, arg);
  }
  if ((isInteger(arg.type) || arg.type == ArgType::real) && isOneOf(conversion.type, "fFeEgGaA")) {
    return Rxn::format(("%" + conversion.options + conversion.type).c_str(), realOf(arg));
  }
  return Rxn::format(("%" + conversion.options + "s").c_str(), textOf(arg).c_str());
}

// A conversion without an argument left stays as written; arguments left
// without a conversion follow the text, so that nothing stored is lost.
std::string formatMessage(std::string_view format, std::vector<Arg> const& args) {
  std::string out;
  std::size_t next = 0;
  for (std::size_t at = 0; at < format.size();) {
    if (format[at] != '%') {
      out += format[at++];
    } else if (format.substr(at, 2) == "%%") {
      out += '%';
      at += 2;
    } else if (auto const conversion = parseConversion(format, at); conversion && next < args.size()) {
      out += render(*conversion, args[next++]);
      at = conversion->end;
    } else {
      out += format[at++];
    }
  }
  for (; next < args.size(); ++next) {
    out += " " + textOf(args[next]);
  }
  return out;
}

std::vector<std::byte> readWholeFile(std::string const& path) {
  int const fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd < 0) {
    throw Rxn::ErrnoException(errno, path);
  }
  std::vector<std::byte> bytes;
  std::array<std::byte, 64 * 1024> chunk;
  for (;;) {
    ssize_t const got = ::read(fd, chunk.data(), chunk.size());
    if (got < 0 && errno == EINTR) {
      continue;
    }
    if (got <= 0) {
      int const readError = errno;
      ::close(fd);
      if (got < 0) {
        throw Rxn::ErrnoException(readError, path);
      }
      return bytes;
    }
    bytes.insert(bytes.end(), chunk.begin(), chunk.begin() + got);
  }
}

// Reads a stretch of untrusted bytes in order, never past its end.
class Cursor {
 public:
  Cursor(std::span<std::byte const> bytes, std::string const& where) : bytes_(bytes), where_(where) {}
  std::size_t left() const { return bytes_.size(); }

  template <class T>
  T read() {
    T value;
    std::memcpy(&value, take(sizeof(T)).data(), sizeof(T));
    return value;
  }
  std::string text(std::size_t size) {
    std::span<std::byte const> const bytes = take(size);
    return std::string(reinterpret_cast<char const*>(bytes.data()), bytes.size());
  }

 private:
  std::span<std::byte const> take(std::size_t size) {
    if (size > bytes_.size()) {
      Rxn::throwRangeException(where_ + " ends early");
    }
    std::span<std::byte const> const taken = bytes_.first(size);
    bytes_ = bytes_.subspan(size);
    return taken;
  }

  std::span<std::byte const> bytes_;
  std::string const& where_;
};

struct Descriptor {
  std::uint32_t line;
  int level;
  std::vector<ArgType> argTypes;
  std::string sourceFile;
  std::string format;
};

struct Record {
  std::uint64_t seq;
  double time;
  Descriptor const* descriptor;
  std::vector<Arg> args;
};

std::string baseName(std::string const& path) {
  return path.substr(path.rfind('/') + 1);
}

// A ring file read into memory and trusted in nothing: each offset and length
// is checked against the bytes at hand before it is followed.
class RingImage {
 public:
  RingImage(std::string const& path, std::vector<std::byte> bytes) : path_(path), bytes_(std::move(bytes)) {
    readHeader();
    readDescriptors();
  }

  std::vector<Record> records(int level) const {
    LevelHeader const& ring = header_.levels[level];
    std::string const where = path_ + ": ring of level " + std::to_string(level);
    std::span<std::byte const> const data =
        within(ring.offset, ring.bytes, "the ring of level " + std::to_string(level));
    RingState const state = RingState::unpack(ring.state);
    if (ring.bytes < sizeof(RecordHead) || state.tail >= ring.bytes || state.used > ring.bytes) {
      fail(where + ": its bounds are inconsistent");
    }
    std::vector<Record> records;
    std::vector<std::byte> bytes;
    for (std::uint32_t at = state.tail, left = state.used; left > 0;) {
      std::string const recordWhere = where + ": record at " + std::to_string(at);
      RecordHead head{};
      if (left >= sizeof(head)) {
        copyOutOfRing(data.data(), ring.bytes, at, &head, sizeof(head));
      }
      if (head.bytes < sizeof(head) || head.bytes > left) {
        fail(recordWhere + ": bad length " + std::to_string(head.bytes));
      }
      bytes.resize(head.bytes);
      copyOutOfRing(data.data(), ring.bytes, at, bytes.data(), bytes.size());
      records.push_back(decode(head, std::span<std::byte const>(bytes).subspan(sizeof(head)), level, recordWhere));
      at = static_cast<std::uint32_t>((std::uint64_t{at} + head.bytes) % ring.bytes);
      left -= head.bytes;
    }
    return records;
  }

  static std::string line(Record const& record) {
    Descriptor const& descriptor = *record.descriptor;
    return Rxn::format("%.6f L%d %s:%u ", record.time, descriptor.level, baseName(descriptor.sourceFile).c_str(),
                       descriptor.line) +
           formatMessage(descriptor.format, record.args);
  }

 private:
  [[noreturn]] void fail(std::string const& text) const { Rxn::throwRangeException(text); }

  // The bytes [offset, offset + size) of the file.
  std::span<std::byte const> within(std::uint64_t offset, std::uint64_t size, std::string const& what) const {
    if (offset > bytes_.size() || size > bytes_.size() - offset) {
      fail(path_ + ": truncated: " + what + " lies beyond the end of the file (" + std::to_string(bytes_.size()) +
           " bytes)");
    }
    return std::span<std::byte const>(bytes_).subspan(offset, size);
  }

  void readHeader() {
    if (bytes_.size() < kMagic.size() || std::memcmp(bytes_.data(), kMagic.data(), kMagic.size()) != 0) {
      fail(path_ + ": not a ring file (no RingLog magic at its start)");
    }
    std::memcpy(&header_, within(0, sizeof(header_), "the header").data(), sizeof(header_));
    if (header_.version != kVersion) {
      fail(path_ + ": ring file version " + std::to_string(header_.version) + ", this reader knows version " +
           std::to_string(kVersion));
    }
    if (header_.levelCount != kLevels || header_.descCount > header_.descCapacity ||
        header_.descAreaUsed > header_.descAreaBytes) {
      fail(path_ + ": corrupt header: its counts are inconsistent");
    }
  }

  void readDescriptors() {
    std::string const where = path_ + ": descriptor table";
    Cursor index(within(header_.descIndexOffset, std::uint64_t{header_.descCount} * sizeof(std::uint32_t),
                        "the descriptor index"),
                 where);
    std::span<std::byte const> const area = within(header_.descAreaOffset, header_.descAreaUsed, "the descriptors");
    for (std::uint32_t number = 0; number < header_.descCount; ++number) {
      auto const offset = index.read<std::uint32_t>();
      std::string const descWhere = path_ + ": descriptor " + std::to_string(number);
      if (offset > area.size()) {
        fail(descWhere + ": offset " + std::to_string(offset) + " outside the descriptor area");
      }
      descriptors_.push_back(readDescriptor(Cursor(area.subspan(offset), descWhere), descWhere));
    }
  }

  Descriptor readDescriptor(Cursor entry, std::string const& where) const {
    auto const head = entry.read<DescHead>();
    if (head.level >= kLevels || head.argCount > kMaxArgs) {
      fail(where + ": bad level or argument count");
    }
    Descriptor descriptor{head.line, head.level, {}, {}, {}};
    for (int i = 0; i < head.argCount; ++i) {
      auto const type = static_cast<ArgType>(entry.read<std::uint8_t>());
      if (type < ArgType::int8 || type > ArgType::mac) {
        fail(where + ": unknown argument type " + std::to_string(static_cast<int>(type)));
      }
      descriptor.argTypes.push_back(type);
    }
    descriptor.sourceFile = entry.text(head.sourceFileBytes);
    entry.text(head.functionBytes);  // the line does not show the function
    descriptor.format = entry.text(head.formatBytes);
    return descriptor;
  }

  Record decode(RecordHead const& head, std::span<std::byte const> argBytes, int level,
                std::string const& where) const {
    if (head.number >= descriptors_.size() || descriptors_[head.number].level != level) {
      fail(where + ": no message " + std::to_string(head.number) + " of this level");
    }
    Descriptor const& descriptor = descriptors_[head.number];
    Cursor cursor(argBytes, where);
    Record record{head.seq, head.time, &descriptor, {}};
    for (ArgType type : descriptor.argTypes) {
      record.args.push_back(decodeArg(cursor, type));
    }
    if (cursor.left() != 0) {
      fail(where + ": " + std::to_string(cursor.left()) + " bytes beyond its arguments");
    }
    return record;
  }

  static Arg decodeArg(Cursor& cursor, ArgType type) {
    Arg arg{type, 0, 0.0, {}};
    switch (type) {
      case ArgType::boolean:
        arg.bits = cursor.read<std::uint8_t>();
        break;
      case ArgType::real:
        arg.real = cursor.read<double>();
        break;
      case ArgType::text:
        arg.text = cursor.text(cursor.read<std::uint8_t>());
        break;
      case ArgType::ip4: {
        auto const address = cursor.read<std::uint32_t>();
        arg.text =
            Rxn::format("%u.%u.%u.%u", address >> 24, (address >> 16) & 0xFF, (address >> 8) & 0xFF, address & 0xFF);
        break;
      }
      case ArgType::mac: {
        auto const b = cursor.read<std::array<std::uint8_t, 6>>();
        arg.text = Rxn::format("%02x%02x.%02x%02x.%02x%02x", b[0], b[1], b[2], b[3], b[4], b[5]);
        break;
      }
      default:
        arg.bits = cursor.read<std::uint64_t>();
        break;
    }
    return arg;
  }

  std::string path_;
  std::vector<std::byte> bytes_;
  FileHeader header_{};
  std::vector<Descriptor> descriptors_;
};

}  // namespace

std::vector<std::string> formatRingFile(std::string const& path, std::optional<int> level) {
  if (level && (*level < 0 || *level >= kLevels)) {
    Rxn::throwRangeException("RingLog: level " + std::to_string(*level) + " is not one of 0..9");
  }
  RingImage const image(path, readWholeFile(path));
  std::vector<Record> records;
  for (int each = 0; each < kLevels; ++each) {
    if (!level || *level == each) {
      std::vector<Record> ofLevel = image.records(each);
      std::move(ofLevel.begin(), ofLevel.end(), std::back_inserter(records));
    }
  }
  std::sort(records.begin(), records.end(), [](Record const& a, Record const& b) { return a.seq < b.seq; });
  std::vector<std::string> lines;
  lines.reserve(records.size());
  for (Record const& record : records) {
    lines.push_back(RingImage::line(record));
  }
  return lines;
}

}  // namespace RingLog
