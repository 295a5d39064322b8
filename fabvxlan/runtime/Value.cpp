#include "fabvxlan/runtime/Value.h"

#include <cctype>
#include <cerrno>
#include <cstdlib>

namespace Rxn {

namespace {

class StrepParser {
 public:
  explicit StrepParser(String const& text) : text_(text) {}

  StrepNode parseAll() {
    StrepNode node = parseNode();
    skipSpace();
    if (pos_ != text_.size()) {
      fail("unexpected text after the value");
    }
    return node;
  }

 private:
  [[noreturn]] void fail(String const& what) const {
    throwRangeException("bad value text '" + text_ + "' at offset " + std::to_string(pos_) + ": " + what);
  }
  void skipSpace() {
    while (pos_ < text_.size() && std::isspace(static_cast<unsigned char>(text_[pos_]))) {
      ++pos_;
    }
  }
  bool accept(String const& token) {
    skipSpace();
    if (text_.compare(pos_, token.size(), token) == 0) {
      pos_ += token.size();
      return true;
    }
    return false;
  }
  void expect(String const& token) {
    if (!accept(token)) {
      fail("expected " + token);
    }
  }

  StrepNode parseNode() {
    skipSpace();
    if (accept("Value(")) {
      return parseValue();
    }
    if (accept("[")) {
      return parseSequence();
    }
    if (pos_ < text_.size() && text_[pos_] == '\'') {
      StrepNode node;
      node.kind = StrepNode::Kind::string;
      node.text = parseQuoted();
      return node;
    }
    for (char const* word : {"True", "False"}) {
      if (accept(word)) {
        StrepNode node;
        node.kind = StrepNode::Kind::boolean;
        node.text = word;
        return node;
      }
    }
    return parseNumber();
  }

  StrepNode parseValue() {
    StrepNode node;
    node.typeName = parseQuoted();
    expect(",");
    if (accept("**")) {
      node.kind = StrepNode::Kind::record;
      expect("{");
      if (!accept("}")) {
        do {
          String name = parseQuoted();
          expect(":");
          node.fields.emplace_back(std::move(name), parseNode());
        } while (accept(","));
        expect("}");
      }
    } else {
      node.kind = StrepNode::Kind::wrapper;
      node.text = parseQuoted();
    }
    expect(")");
    return node;
  }

  StrepNode parseSequence() {
    StrepNode node;
    node.kind = StrepNode::Kind::sequence;
    if (accept("]")) {
      return node;
    }
    do {
      node.items.push_back(parseNode());
    } while (accept(","));
    expect("]");
    return node;
  }

  String parseQuoted() {
    skipSpace();
    if (pos_ >= text_.size() || text_[pos_] != '\'') {
      fail("expected a quoted text");
    }
    String out;
    for (++pos_; pos_ < text_.size(); ++pos_) {
      char const c = text_[pos_];
      if (c == '\'') {
        ++pos_;
        return out;
      }
      if (c == '\\' && pos_ + 1 < text_.size()) {
        ++pos_;
      }
      out.push_back(text_[pos_]);
    }
    fail("unterminated quoted text");
  }

  StrepNode parseNumber() {
    std::size_t const start = pos_;
    while (pos_ < text_.size() && (std::isalnum(static_cast<unsigned char>(text_[pos_])) || text_[pos_] == '-' ||
                                   text_[pos_] == '+' || text_[pos_] == '.')) {
      ++pos_;
    }
    if (pos_ == start) {
      fail("expected a value");
    }
    StrepNode node;
    node.kind = StrepNode::Kind::number;
    node.text = text_.substr(start, pos_ - start);
    return node;
  }

  String const& text_;
  std::size_t pos_ = 0;
};

}  // namespace

StrepNode parseStrep(String const& text) {
  return StrepParser(text).parseAll();
}

std::int64_t parseInteger(String const& text, char const* typeName) {
  char* end = nullptr;
  errno = 0;
  long long const value =
      text.empty() || std::isspace(static_cast<unsigned char>(text[0])) ? 0 : std::strtoll(text.c_str(), &end, 0);
  if (end == nullptr || *end != '\0' || errno == ERANGE) {
    throwRangeException(String("bad ") + typeName + " '" + text + "': expected a number");
  }
  return value;
}

String quoteStrep(String const& text) {
  String out = "'";
  for (char const c : text) {
    if (c == '\'' || c == '\\') {
      out.push_back('\\');
    }
    out.push_back(c);
  }
  out.push_back('\'');
  return out;
}

void throwStrepError(String const& what, StrepNode const& node) {
  String const shown = node.kind == StrepNode::Kind::record || node.kind == StrepNode::Kind::wrapper
                           ? "Value('" + node.typeName + "', ...)"
                           : node.text;
  throwRangeException("bad value text: " + what + ", got " + (shown.empty() ? String("a sequence") : shown));
}

template <class T>
T arithmeticFromStrep(StrepNode const& node) {
  if constexpr (std::is_same_v<T, bool>) {
    if (node.kind != StrepNode::Kind::boolean) {
      throwStrepError("expected True or False", node);
    }
    return node.text == "True";
  } else {
    if (node.kind != StrepNode::Kind::number) {
      throwStrepError("expected a number", node);
    }
    char* end = nullptr;
    errno = 0;
    T value{};
    if constexpr (std::is_floating_point_v<T>) {
      value = static_cast<T>(std::strtod(node.text.c_str(), &end));
    } else if constexpr (std::is_signed_v<T>) {
      long long const v = std::strtoll(node.text.c_str(), &end, 0);
      value = static_cast<T>(v);
      if (static_cast<long long>(value) != v) {
        errno = ERANGE;
      }
    } else {
      if (!node.text.empty() && node.text[0] == '-') {
        errno = ERANGE;
      }
      unsigned long long const v = std::strtoull(node.text.c_str(), &end, 0);
      value = static_cast<T>(v);
      if (static_cast<unsigned long long>(value) != v) {
        errno = ERANGE;
      }
    }
    if (end == nullptr || *end != '\0' || errno == ERANGE) {
      throwStrepError("expected a number in range", node);
    }
    return value;
  }
}

template bool arithmeticFromStrep<bool>(StrepNode const&);
template char arithmeticFromStrep<char>(StrepNode const&);
template signed char arithmeticFromStrep<signed char>(StrepNode const&);
template unsigned char arithmeticFromStrep<unsigned char>(StrepNode const&);
template short arithmeticFromStrep<short>(StrepNode const&);
template unsigned short arithmeticFromStrep<unsigned short>(StrepNode const&);
template int arithmeticFromStrep<int>(StrepNode const&);
template unsigned int arithmeticFromStrep<unsigned int>(StrepNode const&);
template long arithmeticFromStrep<long>(StrepNode const&);
template unsigned long arithmeticFromStrep<unsigned long>(StrepNode const&);
template long long arithmeticFromStrep<long long>(StrepNode const&);
template unsigned long long arithmeticFromStrep<unsigned long long>(StrepNode const&);
template float arithmeticFromStrep<float>(StrepNode const&);
template double arithmeticFromStrep<double>(StrepNode const&);
template struct ValueTraits<bool>;
template struct ValueTraits<char>;
template struct ValueTraits<signed char>;
template struct ValueTraits<unsigned char>;
template struct ValueTraits<short>;
template struct ValueTraits<unsigned short>;
template struct ValueTraits<int>;
template struct ValueTraits<unsigned int>;
template struct ValueTraits<long>;
template struct ValueTraits<unsigned long>;
template struct ValueTraits<long long>;
template struct ValueTraits<unsigned long long>;
template struct ValueTraits<float>;
template struct ValueTraits<double>;

namespace strep {

StrepNode const& field(StrepNode const& node, char const* typeName, char const* name, std::size_t index) {
  if (node.kind == StrepNode::Kind::sequence) {
    return node.items.at(index);
  }
  for (auto const& [fieldName, value] : node.fields) {
    if (fieldName == name) {
      return value;
    }
  }
  throwRangeException(String("bad value text: ") + typeName + " has no field '" + name + "'");
}

void expectRecord(StrepNode const& node, char const* typeName, std::size_t count) {
  if (node.kind == StrepNode::Kind::sequence) {
    if (node.items.size() != count) {
      throwRangeException(String("bad value text: ") + typeName + " takes " + std::to_string(count) + " fields, got " +
                          std::to_string(node.items.size()));
    }
    return;
  }
  if (node.kind != StrepNode::Kind::record || node.typeName != typeName) {
    throwStrepError(String("expected a ") + typeName, node);
  }
  if (node.fields.size() != count) {
    throwRangeException(String("bad value text: ") + typeName + " takes " + std::to_string(count) + " fields, got " +
                        std::to_string(node.fields.size()));
  }
}

}  // namespace strep

}  // namespace Rxn
