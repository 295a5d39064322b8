#pragma once
// The parsable string form ("strep") of values, for tooling: scenario files,
// golden output, the ring-trace reader. The logic itself reads only the
// display text (operator<<).
//
//   record      Value('Ns::Type', ** {'field': <strep>, ...})
//   wrapper     Value('Ns::Type', 'display text')     (addresses, ids, enums)
//   sequence    [<strep>, ...]                         (a record, field by field)
//   number      42   -7   1.5
//   boolean     True   False
//   string      'text'   (backslash escapes ' and \)
//
// A value type takes part through Rxn::ValueTraits<T>. Numbers, bool and
// strings are built in; a class with `static char const* rxnTypeName()`,
// `stringValue()` and `static T fromString(String)` is a wrapper; records and
// enumerations get their traits from the schema generator.

#include <compare>
#include <concepts>
#include <cstdint>
#include <ostream>
#include <type_traits>
#include <utility>
#include <vector>

#include "fabvxlan/runtime/Exception.h"
#include "fabvxlan/runtime/KeySet.h"
#include "fabvxlan/runtime/String.h"

namespace Rxn {

// One parsed strep.
struct StrepNode {
  enum class Kind { number, boolean, string, wrapper, record, sequence };
  // User-provided: the vectors below hold this type while it is incomplete,
  // which every standard library then accepts.
  StrepNode() {}
  Kind kind = Kind::number;
  String text;                                       // number, boolean, string: the token; wrapper: the display text
  String typeName;                                   // wrapper and record
  std::vector<std::pair<String, StrepNode>> fields;  // record, by name
  std::vector<StrepNode> items;                      // sequence
};

StrepNode parseStrep(String const& text);
// A whole decimal or 0x-hexadecimal integer; anything else throws a range
// exception naming the type: "bad Bridging::VlanId 'ten': expected a number".
std::int64_t parseInteger(String const& text, char const* typeName);
String quoteStrep(String const& text);
[[noreturn]] void throwStrepError(String const& what, StrepNode const& node);

template <class T>
struct ValueTraits;
template <class T>
T arithmeticFromStrep(StrepNode const& node);

template <class T>
concept WrapperValue = requires(T const& t, String const& s) {
  { T::rxnTypeName() } -> std::convertible_to<char const*>;
  { t.stringValue() } -> std::convertible_to<String>;
  { T::fromString(s) } -> std::same_as<T>;
};

template <class T>
requires std::is_arithmetic_v<T>
struct ValueTraits<T> {
  static String strep(T value) {
    if constexpr (std::is_same_v<T, bool>) {
      return value ? "True" : "False";
    } else if constexpr (std::is_floating_point_v<T>) {
      return format("%.17g", static_cast<double>(value));
    } else {
      return std::to_string(value);
    }
  }
  static T fromStrep(StrepNode const& node) { return arithmeticFromStrep<T>(node); }
};

template <>
struct ValueTraits<String> {
  static String strep(String const& value) { return quoteStrep(value); }
  static String fromStrep(StrepNode const& node) {
    if (node.kind != StrepNode::Kind::string) {
      throwStrepError("expected a string", node);
    }
    return node.text;
  }
};

template <WrapperValue T>
struct ValueTraits<T> {
  static String strep(T const& value) {
    return String("Value('") + T::rxnTypeName() + "', " + quoteStrep(value.stringValue()) + ")";
  }
  static T fromStrep(StrepNode const& node) {
    if (node.kind == StrepNode::Kind::string) {
      return T::fromString(node.text);
    }
    if (node.kind != StrepNode::Kind::wrapper || node.typeName != T::rxnTypeName()) {
      throwStrepError(String("expected a ") + T::rxnTypeName(), node);
    }
    return T::fromString(node.text);
  }
};

// A key set of a record, as a sequence of its keys in order.
template <class K>
struct ValueTraits<KeySet<K>> {
  static String strep(KeySet<K> const& set) {
    String out = "[";
    for (auto it = set.begin(); it != set.end(); ++it) {
      out += (it == set.begin() ? "" : ", ") + ValueTraits<K>::strep(it.key());
    }
    return out + "]";
  }
  static KeySet<K> fromStrep(StrepNode const& node) {
    if (node.kind != StrepNode::Kind::sequence) {
      throwStrepError("expected a sequence of keys", node);
    }
    KeySet<K> set;
    for (StrepNode const& item : node.items) {
      set.insert(ValueTraits<K>::fromStrep(item));
    }
    return set;
  }
};

template <class T>
String valueToStrep(T const& value) {
  return ValueTraits<T>::strep(value);
}

template <class T>
T strepToValue(String const& text) {
  return ValueTraits<T>::fromStrep(parseStrep(text));
}

// A record from the streps of its fields, in declaration order.
template <class T>
T sequenceToValue(std::vector<String> const& fields) {
  StrepNode node;
  node.kind = StrepNode::Kind::sequence;
  for (String const& field : fields) {
    node.items.push_back(parseStrep(field));
  }
  return ValueTraits<T>::fromStrep(node);
}

// The uniform operators of a hand-written value type: `!` (the default
// value) and `<<` (the display text of stringValue()). The type itself
// defaults == and <=>, and answers hash().
template <class Derived>
class ValueOps {
 public:
  bool operator!() const { return self() == Derived(); }
  friend std::ostream& operator<<(std::ostream& out, Derived const& value) { return out << value.stringValue(); }
  // The mixin holds nothing: defaulted comparisons of the type see it as equal.
  bool operator==(ValueOps const&) const = default;
  auto operator<=>(ValueOps const&) const = default;

 private:
  Derived const& self() const { return static_cast<Derived const&>(*this); }
};

namespace strep {

// The field `name` of a record node, or item `index` of a sequence node.
StrepNode const& field(StrepNode const& node, char const* typeName, char const* name, std::size_t index);
// Checks that a node is a record of this type or a sequence of `count` items.
void expectRecord(StrepNode const& node, char const* typeName, std::size_t count);

}  // namespace strep

}  // namespace Rxn
