#!/usr/bin/env python3
"""rxngen: generates the C++ of declared entities, value records and enumerations.

A schema file (.rxn) declares state, about one line per attribute:

    namespace Fab::VXLAN;
    include "fabvxlan/state/imported/Wire.h";

    enum FabVxlanState { initializing_ = 0, initialized_ = 1, cleaning_ = 2, clean_ = 3 }

    value HwVtepInfo key swTunnelGroupId {
      swTunnelGroupId : Fab::SwTunnelGroupId;
      tunnelId : Fab::FabTunnelId;
    }

    entity FabVxlanInfo {
      state : FabVxlanState = clean_;
      activatedVti : set<Wire::IntfId>;
    }

For each schema a.rxn the generator writes a.h and a.cpp under the output
folder, at the schema's path relative to the source root. A file is written
only when its text changes, so the build recompiles only what a schema edit
touches. See docs/runtime.md for the whole language.
"""

import argparse
import os
import re
import sys

PRIMITIVES = {
    "bool": "bool",
    "u8": "std::uint8_t",
    "u16": "std::uint16_t",
    "u32": "std::uint32_t",
    "u64": "std::uint64_t",
    "i8": "std::int8_t",
    "i16": "std::int16_t",
    "i32": "std::int32_t",
    "i64": "std::int64_t",
    "double": "double",
    "string": "Rxn::String",
}
NUMERIC = {"u8", "u16", "u32", "u64", "i8", "i16", "i32", "i64", "double"}
# Members of Rxn::Entity that an attribute or key must not hide.
ENTITY_RESERVED = {"name", "fullName", "parent", "parentAttrName", "entity", "fwkType", "fwkKey", "notifieeList"}


class SchemaError(Exception):
    pass


# ---------------------------------------------------------------------------
# Reading


class Token:
    def __init__(self, kind, text, line, start, end):
        self.kind, self.text, self.line, self.start, self.end = kind, text, line, start, end


TOKEN_RE = re.compile(
    r"""(?P<space>\s+)|(?P<comment>//[^\n]*|\#[^\n]*)|(?P<string>"[^"\n]*")|"""
    r"""(?P<name>[A-Za-z_][A-Za-z0-9_]*(?:::[A-Za-z_][A-Za-z0-9_]*)*)|(?P<number>-?(?:0[xX][0-9a-fA-F]+|\d+))|"""
    r"""(?P<punct>::|[{}\[\]<>:;=,()&*!.~|+\-/'])"""
)


def tokenize(text, path):
    tokens, pos, line = [], 0, 1
    while pos < len(text):
        m = TOKEN_RE.match(text, pos)
        if not m:
            raise SchemaError(f"{path}:{line}: unexpected character {text[pos]!r}")
        kind = m.lastgroup
        if kind not in ("space", "comment"):
            tokens.append(Token(kind, m.group(), line, m.start(), m.end()))
        line += m.group().count("\n")
        pos = m.end()
    return tokens


class Parser:
    def __init__(self, path, text):
        self.path, self.text = path, text
        self.tokens = tokenize(text, path)
        self.i = 0

    def error(self, what, token=None):
        token = token or self.peek()
        self.error_at(token.line if token else self.text.count("\n") + 1, what)

    def error_at(self, line, what):
        raise SchemaError(f"{self.path}:{line}: {what}")

    def peek(self, offset=0):
        j = self.i + offset
        return self.tokens[j] if j < len(self.tokens) else None

    def next(self):
        token = self.peek()
        if token is None:
            self.error("unexpected end of file")
        self.i += 1
        return token

    def accept(self, text):
        token = self.peek()
        if token is not None and token.text == text:
            self.i += 1
            return True
        return False

    def expect(self, text):
        if not self.accept(text):
            self.error(f"expected '{text}'")

    def name(self):
        token = self.next()
        if token.kind != "name":
            self.error(f"expected a name, got '{token.text}'", token)
        return token.text

    def raw_until_semicolon(self):
        """The source text up to the next ';' at bracket depth 0, verbatim; or,
        for a method with a body, up to and with the '}' that closes it."""
        first = self.peek()
        depth = 0
        while True:
            token = self.next()
            if token.text in ("(", "[", "{"):
                depth += 1
            elif token.text in (")", "]", "}"):
                depth -= 1
                if token.text == "}" and depth == 0:
                    return " ".join(self.text[first.start:token.end].split()), first.line
            elif token.text == ";" and depth <= 0:
                return " ".join(self.text[first.start:token.start].split()), first.line

    def declaration(self):
        """A method line: a declaration ending in ';', or a definition with a body."""
        text = self.raw_until_semicolon()[0]
        return text if text.endswith("}") else text + ";"

    def type_expr(self):
        """A type: a name, optionally with template arguments."""
        start = self.peek()
        self.name()
        if self.accept("<"):
            depth = 1
            while depth:
                token = self.next()
                depth += {"<": 1, ">": -1}.get(token.text, 0)
        return " ".join(self.text[start.start:self.tokens[self.i - 1].end].split()).replace(" ::", "::")


class Schema:
    def __init__(self, path):
        self.path = path
        self.includes = []
        self.decls = []


class Decl:
    def __init__(self, kind, name, namespace, line):
        self.kind, self.name, self.namespace, self.line = kind, name, namespace, line
        self.base = None
        self.key = None  # entity: (name, type); value: field name
        self.members = []  # attributes or fields
        self.methods = []
        self.enumerators = []
        self.underlying = None
        self.empty_when = None
        self.unscoped = False
        self.default_value = None
        self.range = None
        self.word = None

    @property
    def qualified(self):
        return f"{self.namespace}::{self.name}" if self.namespace else self.name


class Member:
    """An attribute of an entity or a field of a value record."""

    def __init__(self, name, line):
        self.name, self.line = name, line
        self.kind = "scalar"  # scalar, coll, inside, set, child, children
        self.type = None
        self.key = None
        self.default = None
        self.virtual = False
        self.ref = False
        self.key_field = None
        self.queue = False  # a key set that walks in arrival order


def parse_schema(path, text):
    p = Parser(path, text)
    schema = Schema(path)
    namespace = ""
    while p.peek() is not None:
        token = p.next()
        if token.text == "namespace":
            namespace = p.name()
            p.expect(";")
        elif token.text == "include":
            inc = p.next()
            if inc.kind != "string":
                p.error("include takes a quoted path", inc)
            schema.includes.append(inc.text[1:-1])
            p.expect(";")
        elif token.text == "enum":
            schema.decls.append(parse_enum(p, namespace, token.line))
        elif token.text == "value":
            schema.decls.append(parse_value(p, namespace, token.line))
        elif token.text == "entity":
            schema.decls.append(parse_entity(p, namespace, token.line))
        elif token.text == "wrapper":
            schema.decls.append(parse_wrapper(p, namespace, token.line))
        elif token.text == "attrs":
            decl = parse_entity(p, namespace, token.line)
            decl.kind = "attrs"
            schema.decls.append(decl)
        else:
            p.error(f"expected namespace, include, enum, value, wrapper, entity or attrs, got '{token.text}'", token)
    return schema


def parse_enum(p, namespace, line):
    decl = Decl("enum", p.name(), namespace, line)
    if p.accept(":"):
        decl.underlying = p.name()
    # Enumerators reached as Ns::name_, as some expressions of the system spell them.
    decl.unscoped = p.accept("unscoped")
    p.expect("{")
    value = 0
    while not p.accept("}"):
        name = p.name()
        if p.accept("="):
            value = int(p.next().text, 0)
        decl.enumerators.append((name, value))
        value += 1
        if not p.accept(","):
            p.expect("}")
            break
    if not decl.enumerators:
        p.error_at(decl.line, f"enum {decl.name} has no enumerators")
    return decl


def parse_wrapper(p, namespace, line):
    """wrapper Name : u32 [= default] [range lo hi "text"] [text value "word"] [{ method ...; }]"""
    decl = Decl("wrapper", p.name(), namespace, line)
    p.expect(":")
    decl.underlying = p.name()
    if decl.underlying not in NUMERIC - {"double"}:
        p.error_at(line, f"wrapper {decl.name} wraps an integer type")
    if p.accept("="):
        decl.default_value = p.next().text
    if p.accept("range"):
        decl.range = (p.next().text, p.next().text, p.next().text[1:-1])
    if p.accept("text"):
        decl.word = (p.next().text, p.next().text[1:-1])
    if p.accept("{"):
        while not p.accept("}"):
            p.expect("method")
            decl.methods.append(p.declaration())
    else:
        p.expect(";")
    return decl


def parse_value(p, namespace, line):
    decl = Decl("value", p.name(), namespace, line)
    if p.accept("key"):
        decl.key = p.name()
    p.expect("{")
    while not p.accept("}"):
        if p.accept("method"):
            decl.methods.append(p.declaration())
        elif p.accept("alias"):
            decl.methods.append("using " + p.raw_until_semicolon()[0] + ";")
        elif p.accept("empty"):
            p.expect("when")
            decl.empty_when = p.raw_until_semicolon()[0]
        else:
            decl.members.append(parse_member(p, allow_collections=False))
    if not decl.members:
        p.error_at(decl.line, f"value {decl.name} has no fields")
    refuse_duplicates(p, decl, [(m.name, m.line) for m in decl.members])
    if decl.key and decl.key not in [m.name for m in decl.members]:
        p.error_at(decl.line, f"value {decl.name}: key {decl.key} is not a field")
    return decl


def parse_entity(p, namespace, line):
    decl = Decl("entity", p.name(), namespace, line)
    if p.accept(":"):
        decl.base = p.type_expr()
    if p.accept("key"):
        key_name = p.name()
        p.expect(":")
        decl.key = (key_name, p.type_expr())
    p.expect("{")
    while not p.accept("}"):
        if p.accept("method"):
            decl.methods.append(p.declaration())
        else:
            decl.members.append(parse_member(p, allow_collections=True))
    named = ([(decl.key[0], decl.line)] if decl.key else []) + [(m.name, m.line) for m in decl.members]
    for name, line in named:
        if name in ENTITY_RESERVED:
            p.error_at(line, f"entity {decl.name}: '{name}' would hide a member every entity has")
    refuse_duplicates(p, decl, named)
    return decl


def refuse_duplicates(p, decl, named):
    """Two attributes of one name would declare the same members twice."""
    seen = set()
    for name, line in named:
        if name in seen:
            p.error_at(line, f"{decl.name}: duplicate attribute '{name}'")
        seen.add(name)


def parse_member(p, allow_collections):
    token = p.peek()
    member = Member(p.name(), token.line)
    p.expect(":")
    if p.accept("owned"):
        member.kind = "child"
    elif p.accept("ref"):
        member.ref = True
    if p.peek() and p.peek().text == "set" and p.peek(1) and p.peek(1).text == "<":
        p.next()
        p.expect("<")
        member.kind, member.type, member.key = "set", "bool", p.type_expr()
        p.expect(">")
    else:
        member.type = p.type_expr()
        if p.accept("["):
            member.key = p.type_expr()
            p.expect("]")
            member.kind = "children" if member.kind == "child" else "coll"
    while True:
        if p.accept("inside"):
            if member.kind != "coll":
                p.error(f"{member.name}: 'inside' applies to a keyed value collection")
            member.kind = "inside"
            # The field of the value that holds the key; fwkKey() if not named.
            if p.peek() is not None and p.peek().kind == "name" and p.peek().text not in ("virtual",):
                member.key_field = p.name()
        elif p.accept("virtual"):
            member.virtual = True
        elif p.accept("queue"):
            if member.kind != "set":
                p.error(f"{member.name}: 'queue' applies to a key set")
            member.queue = True
        else:
            break
    if p.accept("="):
        member.default = p.raw_until_semicolon()[0]
    else:
        p.expect(";")
    if not allow_collections and member.kind not in ("scalar", "set"):
        p.error(f"{member.name}: a value record holds plain fields and key sets only", token)
    if not allow_collections and member.queue:
        p.error(f"{member.name}: a key set of a value record walks in key order; a queue is an attribute", token)
    if member.kind in ("child", "children") and member.default:
        p.error(f"{member.name}: an owned entity takes no default", token)
    if member.kind in ("coll", "inside", "set") and member.default:
        p.error(f"{member.name}: a collection takes no default; it starts empty", token)
    return member


# ---------------------------------------------------------------------------
# Checking types
#
# A type is a primitive, a declaration of a schema of the run, or a C++ type
# declared in a hand-written header that the schema includes (directly, or
# through the headers and schemas it includes). Declarations are found by a
# plain scan of namespaces, classes, structs, enums and aliases: enough to
# tell a misspelt name from a real one.

# Every generated header includes these: the runtime's own types.
RUNTIME_HEADERS = ["fabvxlan/runtime/Entity.h", "fabvxlan/runtime/Value.h"]
CPP_NOISE_RE = re.compile(r"//[^\n]*|/\*.*?\*/|\"(?:\\.|[^\"\\\n])*\"|'(?:\\.|[^'\\\n])*'", re.S)
CPP_DECL_RE = re.compile(
    r"\bnamespace\s+([\w:]+)\s*\{|\b(?:class|struct)\s+(\w+)|\benum\s+(?:class\s+)?(\w+)|\busing\s+(\w+)\s*=|([{}])")
INCLUDE_RE = re.compile(r'^\s*#\s*include\s+"([^"]+)"', re.M)


class CppTypes:
    """The C++ types that hand-written headers declare, by qualified name."""

    def __init__(self, roots, schema_includes):
        self.roots = roots  # the source root, then the folders of installed headers
        self.schema_includes = schema_includes  # a generated header: its schema's includes
        self.names_by_header = {}

    def reachable(self, headers):
        names, seen, todo = set(), set(), list(headers)
        while todo:
            header = todo.pop()
            if header in seen:
                continue
            seen.add(header)
            if header in self.schema_includes:
                todo.extend(self.schema_includes[header])
                continue
            declared, included = self.scan(header)
            names |= declared
            todo.extend(included)
        return names

    def scan(self, header):
        if header not in self.names_by_header:
            text = ""  # a system header or one outside the tree: nothing to learn
            for root in self.roots:
                try:
                    with open(os.path.join(root, header), encoding="utf-8") as f:
                        text = f.read()
                    break
                except OSError:
                    continue
            self.names_by_header[header] = (declared_names(CPP_NOISE_RE.sub(" ", text)), INCLUDE_RE.findall(text))
        return self.names_by_header[header]


def declared_names(text):
    names, scopes = set(), []  # per open brace: the namespace it opens, or None
    for m in CPP_DECL_RE.finditer(text):
        namespace, record, enum, alias, brace = m.groups()
        if namespace:
            scopes.append(namespace)
        elif brace == "{":
            scopes.append(None)
        elif brace == "}":
            if scopes:
                scopes.pop()
        else:
            names.add("::".join([s for s in scopes if s] + [record or enum or alias]))
    return names


def check_types(schema, symbols, cpp_types):
    known = cpp_types.reachable(RUNTIME_HEADERS + schema.includes)
    for decl in schema.decls:
        used = []
        if decl.kind in ("entity", "attrs"):
            used += [(decl.name, decl.base, decl.line)] if decl.base else []
            used += [(decl.name, decl.key[1], decl.line)] if decl.key else []
        for m in decl.members:
            used += [(m.name, m.type, m.line)] + ([(m.name, m.key, m.line)] if m.key else [])
        for what, type_name, line in used:
            if not known_type(type_name, decl.namespace, symbols, known):
                raise SchemaError(f"{schema.path}:{line}: {what}: unknown type '{type_name}'")


def known_type(type_name, namespace, symbols, known):
    name = type_name.split("<")[0].strip()
    if name in PRIMITIVES or symbols.find(name, namespace):
        return True
    parts = namespace.split("::") if namespace else []
    return any("::".join(parts[:n] + [name]) in known for n in range(len(parts), -1, -1))


# ---------------------------------------------------------------------------
# Writing


def cap(name):
    return name[0].upper() + name[1:]


def lower_first(name):
    return name[0].lower() + name[1:]


class Symbols:
    """What every schema of the run declares, for resolving names across files."""

    def __init__(self):
        self.by_qualified = {}

    def add(self, decl):
        self.by_qualified[decl.qualified] = decl

    def find(self, name, namespace):
        parts = namespace.split("::") if namespace else []
        for n in range(len(parts), -1, -1):
            candidate = "::".join(parts[:n] + [name])
            if candidate in self.by_qualified:
                return self.by_qualified[candidate]
        return None


class Writer:
    def __init__(self):
        self.lines = []

    def __call__(self, text=""):
        self.lines.extend(text.split("\n") if text else [""])

    def text(self):
        return "\n".join(self.lines).rstrip("\n") + "\n"


def cpp_type(type_name):
    return PRIMITIVES.get(type_name, type_name)


def member_cpp_type(member):
    base = cpp_type(member.type)
    if member.kind in ("child", "children") or member.ref:
        return f"Rxn::Ptr<{base}>"
    return base


def storage_type(member, in_record=False):
    value = member_cpp_type(member)
    if member.kind == "scalar" or member.kind == "child":
        return value
    if in_record:
        return f"Rxn::KeySet<{cpp_type(member.key)}>"
    if member.queue:
        return f"Rxn::QueueSet<{cpp_type(member.key)}>"
    return f"Rxn::HashMap2018<{cpp_type(member.key)}, {value}>"


def storage_line(member, decl, symbols):
    """The data member of an attribute. A collection of an entity or a machine
    is named Ns::Class::attribute, which salts its walk order."""
    if member.kind in ("scalar", "child") or decl.kind == "value":
        init = default_expr(member, decl, symbols) or ""
    else:
        init = f'Rxn::MapName("{decl.qualified}::{member.name}")'
    return f"  {storage_type(member, decl.kind == 'value')} {member.name}_{{{init}}};"


def default_expr(member, decl, symbols):
    if member.default is None:
        return None
    enum = symbols.find(member.type, decl.namespace)
    if enum is not None and enum.kind == "enum" and member.default in [e[0] for e in enum.enumerators]:
        return f"{cpp_type(member.type)}::{member.default}"
    return member.default


def emit_enum(h, cpp, decl):
    underlying = f" : {cpp_type(decl.underlying)}" if decl.underlying else ""
    enumerators = ", ".join(f"{n} = {v}" for n, v in decl.enumerators)
    h(f"enum {'' if decl.unscoped else 'class '}{decl.name}{underlying} {{ {enumerators} }};")
    h(f"std::ostream& operator<<(std::ostream& out, {decl.name} value);")
    h()
    cpp(f"std::ostream& operator<<(std::ostream& out, {decl.name} value) {{")
    cpp("  switch (value) {")
    for n, _ in decl.enumerators:
        cpp(f"    case {decl.name}::{n}:")
        cpp(f'      return out << "{n}";')
    cpp("  }")
    cpp("  return out << static_cast<long long>(value);")
    cpp("}")
    cpp()


def emit_enum_traits(h, cpp, decl):
    q = decl.qualified
    h("template <>")
    h(f"struct ValueTraits<{q}> {{")
    h(f'  static char const* rxnTypeName() {{ return "{q}"; }}')
    h(f"  static String strep({q} value);")
    h(f"  static {q} fromStrep(StrepNode const& node);")
    h("};")
    h()
    cpp(f"String ValueTraits<{q}>::strep({q} value) {{")
    cpp(f'  return "Value(\'{q}\', " + quoteStrep(valueToString(value)) + ")";')
    cpp("}")
    cpp()
    cpp(f"{q} ValueTraits<{q}>::fromStrep(StrepNode const& node) {{")
    cpp(f'  if (node.kind != StrepNode::Kind::string && (node.kind != StrepNode::Kind::wrapper || node.typeName != "{q}")) {{')
    cpp(f'    throwStrepError("expected a {q}", node);')
    cpp("  }")
    for n, _ in decl.enumerators:
        cpp(f'  if (node.text == "{n}") return {q}::{n};')
    cpp(f'  throwRangeException("bad value text: " + node.text + " is no {q}");')
    cpp("}")
    cpp()


def emit_value(h, cpp, decl, symbols):
    n = decl.name
    fields = decl.members
    # Key sets are filled member by member; the constructor takes the rest.
    plain = [f for f in fields if f.kind == "scalar"]
    h(f"class {n} {{")
    h(" public:")
    h(f"  {n}() = default;")
    params = ", ".join(f"{member_cpp_type(f)} const& {f.name}" for f in plain)
    inits = ", ".join(f"{f.name}_({f.name})" for f in plain)
    if plain:
        h(f"  {'explicit ' if len(plain) == 1 else ''}{n}({params}) : {inits} {{}}")
    h(f'  static char const* rxnTypeName() {{ return "{decl.qualified}"; }}')
    h()
    for f in fields:
        t = member_cpp_type(f)
        if f.kind == "set":
            k = cpp_type(f.key)
            h(f"  bool {f.name}({k} const& key) const {{ return {f.name}_.contains(key); }}")
            h(f"  Rxn::KeySet<{k}> const& {f.name}() const {{ return {f.name}_; }}")
            h(f"  std::size_t {f.name}s() const {{ return {f.name}_.size(); }}")
            h(f"  void {f.name}Is({k} const& key, bool member) {{")
            h(f"    if (member) {f.name}_.insert(key); else {f.name}_.erase(key);")
            h("  }")
            h(f"  void {f.name}Del({k} const& key) {{ {f.name}_.erase(key); }}")
            continue
        getter = t if f.type in PRIMITIVES and f.type != "string" else f"{t} const&"
        h(f"  {getter} {f.name}() const {{ return {f.name}_; }}")
        h(f"  void {f.name}Is({t} const& value) {{ {f.name}_ = value; }}")
    if decl.key:
        key = next(f for f in fields if f.name == decl.key)
        h(f"  {member_cpp_type(key)} const& fwkKey() const {{ return {key.name}_; }}")
    for m in decl.methods:
        h(f"  {m}")
    h()
    h(f"  bool operator==({n} const& other) const = default;")
    ties = ", ".join(f"{f.name}_" for f in fields)
    other_ties = ", ".join(f"other.{f.name}_" for f in fields)
    h(f"  bool operator<({n} const& other) const {{ return std::tie({ties}) < std::tie({other_ties}); }}")
    empty = decl.empty_when or f"*this == {n}()"
    h(f"  bool operator!() const {{ return {empty}; }}")
    # Inline, so that hashing a key for a lookup costs no call.
    h(f"  std::uint64_t hash() const {{ return Rxn::hashFields({', '.join(f.name + '_' for f in fields)}); }}")
    h("  Rxn::String stringValue() const;")
    h()
    h(" private:")
    for f in fields:
        h(storage_line(f, decl, symbols))
    h("};")
    h(f"std::ostream& operator<<(std::ostream& out, {n} const& value);")
    h()
    cpp(f"Rxn::String {n}::stringValue() const {{")
    cpp("  std::ostringstream out;")
    cpp("  out << *this;")
    cpp("  return out.str();")
    cpp("}")
    cpp()
    cpp(f"std::ostream& operator<<(std::ostream& out, {n} const& value) {{")
    parts = ' << ", "'.join(f' << "{f.name}=" << Rxn::valueToString(value.{f.name}())' for f in fields)
    cpp(f'  return out << "{n}("{parts} << ")";')
    cpp("}")
    cpp()


def emit_wrapper(h, cpp, decl):
    n, q = decl.name, decl.qualified
    t = cpp_type(decl.underlying)
    h(f"class {n} : public Rxn::ValueOps<{n}> {{")
    h(" public:")
    h(f"  {n}() = default;")
    h(f"  explicit {n}(std::int64_t value) : value_(checked(value)) {{}}")
    h(f"  static {n} fromString(Rxn::String const& text);")
    h(f'  static char const* rxnTypeName() {{ return "{q}"; }}')
    h()
    h(f"  {t} value() const {{ return value_; }}")
    h(f"  void valueIs(std::int64_t value) {{ value_ = checked(value); }}")
    for m in decl.methods:
        h(f"  {m}")
    h("  Rxn::String stringValue() const;")
    h("  std::uint64_t hash() const { return value_; }")
    h(f"  bool operator==({n} const& other) const = default;")
    h(f"  auto operator<=>({n} const& other) const = default;")
    h()
    h(" private:")
    h(f"  static {t} checked(std::int64_t value);")
    h(f"  {t} value_ = {decl.default_value or 0};")
    h("};")
    h()
    lo, hi, text = decl.range if decl.range else (f"std::numeric_limits<{t}>::min()", f"std::numeric_limits<{t}>::max()", None)
    text = text or f"{q} value out of range"
    cpp(f"{t} {n}::checked(std::int64_t value) {{")
    cpp(f"  if (value < static_cast<std::int64_t>({lo}) || value > static_cast<std::int64_t>({hi})) {{")
    cpp(f'    Rxn::throwRangeException("{text}");')
    cpp("  }")
    cpp(f"  return static_cast<{t}>(value);")
    cpp("}")
    cpp()
    cpp(f"{n} {n}::fromString(Rxn::String const& text) {{")
    if decl.word:
        cpp(f'  if (text == "{decl.word[1]}") return {n}({decl.word[0]});')
    cpp(f'  return {n}(Rxn::parseInteger(text, "{q}"));')
    cpp("}")
    cpp()
    cpp(f"Rxn::String {n}::stringValue() const {{")
    if decl.word:
        cpp(f'  if (value_ == static_cast<{t}>({decl.word[0]})) return "{decl.word[1]}";')
    cpp("  return std::to_string(value_);")
    cpp("}")
    cpp()


def emit_value_traits(h, cpp, decl):
    q = decl.qualified
    fields = decl.members
    h("template <>")
    h(f"struct ValueTraits<{q}> {{")
    h(f"  static String strep({q} const& value);")
    h(f"  static {q} fromStrep(StrepNode const& node);")
    h("};")
    h()
    cpp(f"String ValueTraits<{q}>::strep({q} const& value) {{")
    text = f'String("Value(\'{q}\', ** {{'
    for i, f in enumerate(fields):
        sep = ", " if i else ""
        close = '")' if i == 0 else '"'
        text += f'{sep}\'{f.name}\': {close} + valueToStrep(value.{f.name}()) + "'
    cpp(f'  return {text}}})";')
    cpp("}")
    cpp()
    cpp(f"{q} ValueTraits<{q}>::fromStrep(StrepNode const& node) {{")
    cpp(f'  strep::expectRecord(node, "{q}", {len(fields)});')
    cpp(f"  {q} value;")
    for i, f in enumerate(fields):
        t = storage_type(f, in_record=True)
        parsed = f'ValueTraits<{t}>::fromStrep(strep::field(node, "{q}", "{f.name}", {i}))'
        if f.kind == "set":
            cpp(f"  for (auto const& [key, member] : {parsed}) value.{f.name}Is(key, member);")
        else:
            cpp(f"  value.{f.name}Is({parsed});")
    cpp("  return value;")
    cpp("}")
    cpp()


def inherited_key(decl, symbols):
    """The key of the nearest keyed base declared in a schema, if any."""
    base = symbols.find(decl.base, decl.namespace) if decl.base else None
    while base is not None:
        if base.key:
            return base.key
        base = symbols.find(base.base, base.namespace) if base.base else None
    return None


def emit_entity(h, decl, symbols):
    n = decl.name
    base = decl.base or "Rxn::Entity"
    h(f"class {n} : public {base} {{")
    h(" public:")
    h("  class NotifieeConst;")
    base_key = inherited_key(decl, symbols)
    if decl.key and base_key:
        raise SchemaError(f"{decl.name}: a keyed entity's base already has the key {base_key[0]}")
    if decl.key:
        key_name, key_type = decl.key
        kt = cpp_type(key_type)
        h(f"  explicit {n}({kt} const& {key_name})")
        h(f"      : {base}(Rxn::valueToString({key_name})), {key_name}_({key_name}) {{}}")
    elif base_key:
        key_name, key_type = base_key
        h(f"  explicit {n}({cpp_type(key_type)} const& {key_name}) : {base}({key_name}) {{}}")
    else:
        h(f"  explicit {n}(Rxn::Name const& name) : {base}(name) {{}}")
    h(f'  char const* fwkType() const override {{ return "{decl.qualified}"; }}')
    owned = [m for m in decl.members if m.kind in ("child", "children")]
    if owned:
        h(f"  ~{n}() override {{")
        for m in owned:
            helper = "orphan" if m.kind == "child" else "orphanAll"
            h(f"    Rxn::attr::{helper}({m.name}_);")
        h("  }")
    if decl.key:
        key_name, key_type = decl.key
        kt = cpp_type(key_type)
        h(f"  {kt} const& {key_name}() const {{ return {key_name}_; }}")
        h(f"  {kt} const& fwkKey() const {{ return {key_name}_; }}")
    for m in decl.methods:
        h(f"  {m}")
    for m in decl.members:
        h()
        emit_attribute(h, decl, m)
    if decl.key or decl.members:
        h()
        h(" private:")
    if decl.key:
        h(f"  {cpp_type(decl.key[1])} {decl.key[0]}_;")
    for m in decl.members:
        h(storage_line(m, decl, symbols))
    h("};")
    h()
    emit_notifiee(h, decl)
    for m in decl.members:
        emit_notify(h, decl, m)
    factory = lower_first(n) + "Factory"
    if decl.key or base_key:
        key_name, key_type = decl.key or base_key
        h(f"inline Rxn::Ptr<{n}> {factory}({cpp_type(key_type)} const& {key_name}) {{ return new {n}({key_name}); }}")
    else:
        h(f"inline Rxn::Ptr<{n}> {factory}(Rxn::Name const& name) {{ return new {n}(name); }}")
    h()


def null_text(decl, m):
    return f"null _{m.name} parameter to mutator for {decl.qualified}::{m.name} not allowed"


def emit_attribute(h, decl, m, parent="this", notify_body=";"):
    """The members of one attribute. A machine's own state (an `attrs`
    declaration) has no parent entity and notifies nobody."""
    x, X = m.name, cap(m.name)
    t = member_cpp_type(m)
    if m.kind in ("scalar",):
        virtual = "virtual " if m.virtual else ""
        h(f"  {virtual}{t} {x}() const {{ return {x}_; }}")
        h(f"  void {x}Is({t} const& value) {{")
        h(f"    if ({x}_ == value) return;")
        h(f"    {x}_ = value;")
        h(f"    {x}Notify();")
        h("  }")
        if m.type in NUMERIC:
            h(f"  {t} {x}Inc({t} const& delta) {{")
            h(f"    {t} const sum = static_cast<{t}>({x}_ + delta);")
            h(f"    {x}Is(sum);")
            h("    return sum;")
            h("  }")
        h(f"  void {x}Notify() const{notify_body}")
        return
    if m.kind == "child":
        h(f"  {t} {x}() const {{ return {x}_; }}")
        h(f"  {t} {x}Is(Rxn::Name const& name) {{")
        h(f"    if ({x}_ && {x}_->name() == name) return {x}_;")
        h(f"    Rxn::attr::orphan({x}_);")
        h(f"    {x}_ = Rxn::attr::adopt({t}(new {cpp_type(m.type)}(name)), {parent}, \"{x}\");")
        h(f"    {x}Notify();")
        h(f"    return {x}_;")
        h("  }")
        h(f"  void {x}Del() {{")
        h(f"    if (!{x}_) return;")
        h(f"    Rxn::attr::orphan({x}_);")
        h(f"    {x}_ = nullptr;")
        h(f"    {x}Notify();")
        h("  }")
        h(f"  void {x}Notify() const{notify_body}")
        return
    k = cpp_type(m.key)
    h(f"  {t} {x}({k} const& key) const {{ return Rxn::attr::valueAt({x}_, key); }}")
    h(f"  {storage_type(m)} const& {x}() const {{ return {x}_; }}")
    h(f"  std::size_t {x}s() const {{ return {x}_.size(); }}")
    # Mutators take their key by value: a key read from this collection, or
    # from one that a handler changes, stays good through the notification.
    if m.kind == "children":
        h(f"  {t} {x}Is({k} key) {{")
        h(f"    auto [slot, fresh] = {x}_.findOrInsert(key);")
        h("    if (!fresh) return *slot;")
        h(f"    *slot = Rxn::attr::adopt({t}(new {cpp_type(m.type)}(key)), {parent}, \"{x}\");")
        h(f"    {t} const child = *slot;")
        h(f"    {x}Notify(key);")
        h("    return child;")
        h("  }")
        h(f"  void {x}Del({k} key) {{")
        h(f"    std::optional<{t}> const old = {x}_.take(key);")
        h("    if (!old) return;")
        h(f"    Rxn::attr::orphan(*old);")
        h(f"    {x}Notify(key);")
        h("  }")
    elif m.kind == "inside":
        h(f"  void {x}Is({t} const& value) {{")
        h(f"    {k} const key = value.{m.key_field or 'fwkKey'}();")
        h(f"    if ({x}_.insertOrAssign(key, value).second) {x}Notify(key);")
        h("  }")
        h(f"  {t} {x}Del({k} key) {{")
        h(f"    std::optional<{t}> const old = {x}_.take(key);")
        h(f"    if (!old) return {t}();")
        h(f"    {x}Notify(key);")
        h("    return *old;")
        h("  }")
    elif m.kind == "set":
        h(f"  void {x}Is({k} key, bool member) {{")
        h("    if (!member) {")
        h(f"      {x}Del(key);")
        h("    } else if (" + f"{x}_.insertOrAssign(key, true).second) {{")
        h(f"      {x}Notify(key);")
        h("    }")
        h("  }")
        h(f"  void {x}Del({k} key) {{")
        h(f"    if ({x}_.erase(key)) {x}Notify(key);")
        h("  }")
    else:
        h(f"  void {x}Is({k} key, {t} const& value) {{")
        if m.ref:
            h(f'    if (!value) Rxn::throwRangeException("{null_text(decl, m)}");')
        h(f"    if ({x}_.insertOrAssign(key, value).second) {x}Notify(key);")
        h("  }")
        h(f"  void {x}Del({k} key) {{")
        h(f"    if ({x}_.erase(key)) {x}Notify(key);")
        h("  }")
    h(f"  void {x}DelAll() {{")
    h(f"    Rxn::attr::delAll({x}_, [this]({k} const& key) {{ {x}Del(key); }});")
    h("  }")
    h(f"  void {x}Notify({k} const&) const{notify_body}")
    h(f"  // Any key may have changed.")
    h(f"  void {x}Notify() const{notify_body}")


def emit_attrs(h, decl, symbols):
    """The own state of a state machine: uniform members, no notification."""
    n = decl.name
    h(f"class {n} {{")
    h(" public:")
    for m in decl.methods:
        h(f"  {m}")
    for i, m in enumerate(decl.members):
        if i or decl.methods:
            h()
        emit_attribute(h, decl, m, parent="nullptr", notify_body=" {}")
    h()
    h(" private:")
    for m in decl.members:
        h(storage_line(m, decl, symbols))
    h("};")
    h()


def emit_notifiee(h, decl):
    n = decl.name
    base = decl.base or "Rxn::Entity"
    h(f"class {n}::NotifieeConst : public {base}::NotifieeConst {{")
    h(" public:")
    h(f"  static constexpr std::uint8_t kDepth = {base}::NotifieeConst::kDepth + 1;")
    h('  static_assert(kDepth <= Rxn::NotifieeList::kDepthMask, "entities derive at most 6 deep");')
    h("  NotifieeConst() { notifyDepthIs(kDepth); }")
    h(f"  Rxn::Ptr<{n} const> notifier() const {{ return Rxn::ptrCast<{n} const>(notifierBase()); }}")
    for m in decl.members:
        X = cap(m.name)
        if m.kind in ("scalar", "child"):
            h(f"  virtual void on{X}() {{}}")
        else:
            h(f"  virtual void on{X}({cpp_type(m.key)} const&) {{}}")
            h(f"  virtual void on{X}rxnImmediate() {{}}")
            h(f"  virtual void on{X}() {{}}")
    h("};")
    h()


# A scalar's notify member is forced inline into its mutator: a change with
# one reactor then costs one call, the handler's. A keyed one is left to the
# compiler, since inlining it beside the hash map's own work made it slower.
SCALAR_NOTIFY = "[[gnu::always_inline]] inline void"


def emit_notify(h, decl, m):
    n, x, X = decl.name, m.name, cap(m.name)
    visit = "rxnVisitNotifiees<NotifieeConst>(NotifieeConst::kDepth, "
    if m.kind in ("scalar", "child"):
        h(f"{SCALAR_NOTIFY} {n}::{x}Notify() const {{")
        h(f"  {visit}[](NotifieeConst* n) {{ n->on{X}(); }});")
        h("}")
        return
    h(f"inline void {n}::{x}Notify({cpp_type(m.key)} const& key) const {{")
    h(f"  {visit}[&key](NotifieeConst* n) {{ n->on{X}(key); }});")
    h("}")
    h(f"inline void {n}::{x}Notify() const {{")
    h(f"  {visit}[](NotifieeConst* n) {{ n->on{X}rxnImmediate(); }});")
    h("}")


def open_namespace(w, namespace):
    if namespace:
        w(f"namespace {namespace} {{")
        w()


def close_namespace(w, namespace):
    if namespace:
        w(f"}}  // namespace {namespace}")
        w()


def generate(schema, rel_path, symbols):
    banner = f"// Generated by tools/rxngen/rxngen.py from {rel_path}. Do not edit."
    header_name = rel_path[: -len(".rxn")] + ".h"
    h, cpp = Writer(), Writer()
    h(banner)
    h("#pragma once")
    h()
    for inc in ["cstdint", "limits", "optional", "ostream", "tuple"]:
        h(f"#include <{inc}>")
    h()
    for inc in ["fabvxlan/runtime/Entity.h", "fabvxlan/runtime/Value.h"] + schema.includes:
        h(f'#include "{inc}"')
    h()
    cpp(banner)
    cpp(f'#include "{header_name}"')
    cpp()
    cpp("#include <sstream>")
    cpp()

    # Group consecutive declarations of one namespace.
    groups = []
    for decl in schema.decls:
        if groups and groups[-1][0] == decl.namespace:
            groups[-1][1].append(decl)
        else:
            groups.append((decl.namespace, [decl]))
    for namespace, decls in groups:
        open_namespace(h, namespace)
        open_namespace(cpp, namespace)
        for decl in decls:
            if decl.kind == "enum":
                emit_enum(h, cpp, decl)
            elif decl.kind == "wrapper":
                emit_wrapper(h, cpp, decl)
            elif decl.kind == "value":
                emit_value(h, cpp, decl, symbols)
            elif decl.kind == "attrs":
                emit_attrs(h, decl, symbols)
            else:
                emit_entity(h, decl, symbols)
        close_namespace(h, namespace)
        close_namespace(cpp, namespace)
    traits = [d for d in schema.decls if d.kind in ("enum", "value")]
    if traits:
        open_namespace(h, "Rxn")
        open_namespace(cpp, "Rxn")
        for decl in traits:
            if decl.kind == "enum":
                emit_enum_traits(h, cpp, decl)
            else:
                emit_value_traits(h, cpp, decl)
        close_namespace(h, "Rxn")
        close_namespace(cpp, "Rxn")
    return h.text(), cpp.text()


def write_if_changed(path, text):
    try:
        with open(path, encoding="utf-8") as f:
            if f.read() == text:
                return False
    except FileNotFoundError:
        pass
    os.makedirs(os.path.dirname(path) or ".", exist_ok=True)
    with open(path, "w", encoding="utf-8") as f:
        f.write(text)
    return True


def schema_path(path, roots):
    """The schema's path below the first root that holds it: its include name."""
    for root in roots:
        rel = os.path.relpath(path, root)
        if not rel.startswith(os.pardir + os.sep):
            return rel
    return os.path.relpath(path, roots[0])


def main(argv=None):
    parser = argparse.ArgumentParser(description="Generate C++ from .rxn schemas.")
    parser.add_argument("--root", required=True, help="source root; outputs mirror schema paths below it")
    parser.add_argument("--out", required=True, help="output folder")
    parser.add_argument("--import", dest="imports", action="append", default=[],
                        help="a schema whose names are known but which is not generated")
    parser.add_argument("--include-dir", dest="include_dirs", action="append", default=[],
                        help="a folder of installed headers and schemas, searched after the root")
    parser.add_argument("schemas", nargs="+")
    args = parser.parse_args(argv)

    symbols = Symbols()
    parsed = []
    schema_includes = {}
    try:
        for path in args.imports + args.schemas:
            with open(path, encoding="utf-8") as f:
                schema = parse_schema(schema_path(path, [args.root] + args.include_dirs), f.read())
            for decl in schema.decls:
                symbols.add(decl)
            schema_includes[schema.path[: -len(".rxn")] + ".h"] = schema.includes
            if path in args.schemas:
                parsed.append(schema)
        cpp_types = CppTypes([args.root] + args.include_dirs, schema_includes)
        for schema in parsed:
            check_types(schema, symbols, cpp_types)
        for schema in parsed:
            header, source = generate(schema, schema.path, symbols)
            stem = os.path.join(args.out, schema.path[: -len(".rxn")])
            write_if_changed(stem + ".h", header)
            write_if_changed(stem + ".cpp", source)
    except (SchemaError, OSError) as e:
        print(f"rxngen: {e}", file=sys.stderr)
        return 1
    return 0


if __name__ == "__main__":
    sys.exit(main())
