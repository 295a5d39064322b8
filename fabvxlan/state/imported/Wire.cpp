#include "fabvxlan/state/imported/Wire.h"

#include <arpa/inet.h>

#include <cctype>
#include <cstdio>
#include <functional>
#include <unordered_map>
#include <utility>
#include <vector>

namespace Wire {

namespace {

struct NameTable {
  std::vector<Rxn::String> names{""};
  std::vector<std::uint64_t> hashes{std::hash<std::string>{}("")};
  std::unordered_map<Rxn::String, std::uint32_t> index{{"", 0}};
};

NameTable& names() {
  static NameTable* table = new NameTable;
  return *table;
}

int hexDigit(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  return -1;
}

}  // namespace

IntfId::IntfId(Rxn::String const& name) {
  if (name.empty()) {
    Rxn::throwRangeException("IntfId name must not be empty");
  }
  for (char const c : name) {
    if (std::isspace(static_cast<unsigned char>(c)) || !std::isprint(static_cast<unsigned char>(c))) {
      Rxn::throwRangeException("IntfId name '" + name + "' has a blank or unprintable character");
    }
  }
  NameTable& table = names();
  auto [it, fresh] = table.index.try_emplace(name, static_cast<std::uint32_t>(table.names.size()));
  if (fresh) {
    table.names.push_back(name);
    table.hashes.push_back(std::hash<std::string>{}(name));
  }
  index_ = it->second;
}

Rxn::String const& IntfId::stringValue() const {
  return names().names[index_];
}

std::uint64_t IntfId::hash() const {
  return names().hashes[index_];
}

bool VxlanTunnelIntfId::isVxlanTunnelIntfId(IntfId const& id) {
  Rxn::String const& name = id.stringValue();
  return name.size() > 5 && name.compare(0, 5, "Vxlan") == 0 &&
         name.find_first_not_of("0123456789", 5) == Rxn::String::npos;
}

EthAddr EthAddr::fromString(Rxn::String const& text) {
  std::array<std::uint8_t, 6> bytes{};
  std::vector<int> digits;
  bool dotted = false;
  bool coloned = false;
  for (char const c : text) {
    if (c == '.' || c == ':') {
      (c == '.' ? dotted : coloned) = true;
      continue;
    }
    int const d = hexDigit(c);
    if (d < 0) {
      digits.clear();
      break;
    }
    digits.push_back(d);
  }
  bool const shaped = (dotted && !coloned && text.size() == 14 && text[4] == '.' && text[9] == '.') ||
                      (coloned && !dotted && text.size() == 17);
  if (digits.size() != 12 || !shaped) {
    Rxn::throwRangeException("bad MAC address '" + text + "': expected 0011.2233.4455");
  }
  for (std::size_t i = 0; i < 6; ++i) {
    bytes[i] = static_cast<std::uint8_t>(digits[2 * i] * 16 + digits[2 * i + 1]);
  }
  return EthAddr(bytes);
}

Rxn::String EthAddr::stringValue() const {
  return Rxn::format("%02x%02x.%02x%02x.%02x%02x", bytes_[0], bytes_[1], bytes_[2], bytes_[3], bytes_[4], bytes_[5]);
}

IpAddr IpAddr::fromString(Rxn::String const& text) {
  in_addr addr{};
  if (inet_pton(AF_INET, text.c_str(), &addr) != 1) {
    Rxn::throwRangeException("bad IPv4 address '" + text + "'");
  }
  return fromNbo(addr.s_addr);
}

IpAddr IpAddr::fromNbo(std::uint32_t networkOrder) {
  return IpAddr(ntohl(networkOrder));
}

std::uint32_t IpAddr::valueNbo() const {
  return htonl(value_);
}

Rxn::String IpAddr::stringValue() const {
  return Rxn::format("%u.%u.%u.%u", value_ >> 24, (value_ >> 16) & 0xFF, (value_ >> 8) & 0xFF, value_ & 0xFF);
}

Ip6Addr Ip6Addr::fromString(Rxn::String const& text) {
  std::array<std::uint8_t, 16> bytes{};
  if (inet_pton(AF_INET6, text.c_str(), bytes.data()) != 1) {
    Rxn::throwRangeException("bad IPv6 address '" + text + "'");
  }
  return Ip6Addr(bytes);
}

Rxn::String Ip6Addr::stringValue() const {
  char text[INET6_ADDRSTRLEN];
  inet_ntop(AF_INET6, bytes_.data(), text, sizeof text);
  return text;
}

std::uint64_t Ip6Addr::hash() const {
  std::uint64_t h = 0;
  for (std::uint8_t const b : bytes_) {
    h = Rxn::hashCombine(h, b);
  }
  return h;
}

namespace {

// Splits "address/length" and checks the length against the family's bits.
std::pair<Rxn::String, std::uint8_t> splitPrefix(Rxn::String const& text, unsigned bits) {
  std::size_t const slash = text.find('/');
  if (slash == Rxn::String::npos || slash + 1 == text.size() ||
      text.find_first_not_of("0123456789", slash + 1) != Rxn::String::npos || text.size() - slash > 4 ||
      std::stoul(text.substr(slash + 1)) > bits) {
    Rxn::throwRangeException("bad prefix '" + text + "': expected address/length");
  }
  return {text.substr(0, slash), static_cast<std::uint8_t>(std::stoul(text.substr(slash + 1)))};
}

void checkLength(unsigned length, unsigned bits) {
  if (length > bits) {
    Rxn::throwRangeException("prefix length " + std::to_string(length) + " > " + std::to_string(bits) + " not allowed");
  }
}

}  // namespace

Ip6Prefix::Ip6Prefix(Ip6Addr const& addr, std::uint8_t length) : addr_(addr), length_(length) {
  checkLength(length, 128);
}

Ip6Prefix Ip6Prefix::fromString(Rxn::String const& text) {
  auto const [addr, length] = splitPrefix(text, 128);
  return Ip6Prefix(Ip6Addr::fromString(addr), length);
}

bool Ip6Prefix::contains(Ip6Addr const& addr) const {
  for (unsigned bit = 0; bit < length_; ++bit) {
    unsigned const byte = bit / 8;
    unsigned const mask = 0x80U >> (bit % 8);
    if ((addr.bytes()[byte] & mask) != (addr_.bytes()[byte] & mask)) {
      return false;
    }
  }
  return true;
}

IpGenAddr IpGenAddr::fromString(Rxn::String const& text) {
  return text.find(':') != Rxn::String::npos ? IpGenAddr(Ip6Addr::fromString(text))
                                             : IpGenAddr(IpAddr::fromString(text));
}

IpPrefix::IpPrefix(IpAddr const& addr, std::uint8_t length) : addr_(addr), length_(length) {
  checkLength(length, 32);
}

IpPrefix IpPrefix::fromString(Rxn::String const& text) {
  auto const [addr, length] = splitPrefix(text, 32);
  return IpPrefix(IpAddr::fromString(addr), length);
}

bool IpPrefix::contains(IpAddr const& addr) const {
  std::uint32_t const mask = length_ == 0 ? 0 : ~std::uint32_t{0} << (32 - length_);
  return (addr.value() & mask) == (addr_.value() & mask);
}

IpGenPrefix::IpGenPrefix(IpGenAddr const& addr, std::uint8_t length) : addr_(addr), length_(length) {
  checkLength(length, addr.isV6() ? 128 : 32);
}

IpGenPrefix IpGenPrefix::fromString(Rxn::String const& text) {
  bool const v6 = text.find(':') != Rxn::String::npos;
  auto const [addr, length] = splitPrefix(text, v6 ? 128 : 32);
  return IpGenPrefix(IpGenAddr::fromString(addr), length);
}

}  // namespace Wire
