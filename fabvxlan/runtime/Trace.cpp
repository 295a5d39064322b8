#include "fabvxlan/runtime/Trace.h"

#include <fnmatch.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <set>
#include <utility>
#include <vector>

#include "fabvxlan/runtime/Activity.h"

namespace Rxn {

namespace {

constexpr std::uint32_t kAllLevels = (1U << 10) - 1;

struct TraceState {
  std::vector<TraceHandle*> handles;
  String spec;
  // The last configuration whose problems were told.
  String warnedSpec;
  std::function<void(String const&)> sink;
  FILE* file = nullptr;
};

TraceState& state() {
  static TraceState* s = [] {
    auto* fresh = new TraceState;
    if (char const* env = std::getenv("FABVXLAN_TRACE")) {
      fresh->spec = env;
    }
    return fresh;
  }();
  return *s;
}

FILE* output() {
  TraceState& s = state();
  if (s.file == nullptr) {
    char const* path = std::getenv("FABVXLAN_TRACE_FILE");
    s.file = path != nullptr ? std::fopen(path, "a") : nullptr;
    if (s.file == nullptr) {
      s.file = stderr;
    }
  }
  return s.file;
}

bool isDigit(char c) {
  return c >= '0' && c <= '9';
}

// "*", or digits and ascending ranges written together ("0-38"); an empty
// list turns the module off. Nothing for anything else.
std::optional<std::uint32_t> parseLevels(String const& text) {
  if (text == "*") {
    return kAllLevels;
  }
  std::uint32_t levels = 0;
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (!isDigit(text[i])) {
      return std::nullopt;
    }
    int const from = text[i] - '0';
    int to = from;
    if (i + 1 < text.size() && text[i + 1] == '-') {
      if (i + 2 == text.size() || !isDigit(text[i + 2]) || text[i + 2] - '0' < from) {
        return std::nullopt;
      }
      to = text[i + 2] - '0';
      i += 2;
    }
    for (int level = from; level <= to; ++level) {
      levels |= 1U << level;
    }
  }
  return levels;
}

struct TraceEntry {
  String pattern;
  std::uint32_t levels;
};

// `module-glob` (all levels) or `module-glob/levels`.
std::optional<TraceEntry> parseEntry(String const& entry) {
  std::size_t const slash = entry.find('/');
  TraceEntry parsed{entry.substr(0, slash), kAllLevels};
  if (parsed.pattern.empty()) {
    return std::nullopt;
  }
  if (slash != String::npos) {
    std::optional<std::uint32_t> const levels = parseLevels(entry.substr(slash + 1));
    if (!levels) {
      return std::nullopt;
    }
    parsed.levels = *levels;
  }
  return parsed;
}

// Calls fn on each entry of a comma-separated configuration, empty ones left out.
template <class Fn>
void forEachEntry(String const& spec, Fn&& fn) {
  std::size_t start = 0;
  while (start <= spec.size()) {
    std::size_t end = spec.find(',', start);
    if (end == String::npos) {
      end = spec.size();
    }
    String const entry = spec.substr(start, end - start);
    start = end + 1;
    if (!entry.empty()) {
      fn(entry);
    }
  }
}

bool matches(String const& pattern, String const& module) {
  return fnmatch(pattern.c_str(), module.c_str(), 0) == 0;
}

// Never destroyed: modules register during static initialisation and may
// be listed during static destruction.
std::set<String>& moduleNames() {
  static auto* names = new std::set<String>;
  return *names;
}

bool matchesAnyModule(String const& pattern) {
  std::set<String> const& names = moduleNames();
  return std::any_of(names.begin(), names.end(), [&](String const& name) { return matches(pattern, name); });
}

// Each problem of a configuration once, however often it is applied: every
// handle reads it, and an agent may set it again unchanged.
void warnProblems(String const& spec) {
  TraceState& s = state();
  if (spec == s.warnedSpec) {
    return;
  }
  s.warnedSpec = spec;
  for (String const& problem : traceConfigProblems(spec)) {
    std::fprintf(stderr, "fabvxlan: trace setting %s\n", problem.c_str());
  }
}

char const* baseName(char const* path) {
  char const* slash = std::strrchr(path, '/');
  return slash != nullptr ? slash + 1 : path;
}

}  // namespace

std::uint32_t traceLevelsFor(String const& spec, String const& module, bool enabledByDefault) {
  std::uint32_t levels = enabledByDefault ? kAllLevels : 0;
  forEachEntry(spec, [&](String const& text) {
    std::optional<TraceEntry> const entry = parseEntry(text);
    if (entry && matches(entry->pattern, module)) {
      levels = entry->levels;
    }
  });
  return levels;
}

TraceModuleName::TraceModuleName(char const* name) {
  moduleNames().insert(name);
}

std::vector<String> traceModules() {
  std::set<String> const& names = moduleNames();
  return {names.begin(), names.end()};
}

std::vector<String> traceConfigProblems(String const& spec) {
  std::vector<String> problems;
  forEachEntry(spec, [&](String const& text) {
    std::optional<TraceEntry> const entry = parseEntry(text);
    if (!entry) {
      problems.push_back("entry '" + text +
                         "' is ignored: expected module-glob or module-glob/levels, the levels being digits and "
                         "ranges such as 0-38, or *");
    } else if (!matchesAnyModule(entry->pattern)) {
      problems.push_back("entry '" + text + "' is ignored: it matches no trace module");
    }
  });
  return problems;
}

TraceHandle::TraceHandle(char const* name, bool enabledByDefault) : name_(name), enabledByDefault_(enabledByDefault) {
  TraceState& s = state();
  // The environment's setting is checked when the first handle reads it:
  // by then every module of the process has registered.
  warnProblems(s.spec);
  levels_ = traceLevelsFor(s.spec, name_, enabledByDefault_);
  s.handles.push_back(this);
}

TraceHandle::~TraceHandle() {
  auto& handles = state().handles;
  handles.erase(std::remove(handles.begin(), handles.end(), this), handles.end());
}

void traceConfigIs(String const& spec) {
  warnProblems(spec);
  TraceState& s = state();
  s.spec = spec;
  for (TraceHandle* handle : s.handles) {
    handle->levels_ = traceLevelsFor(spec, handle->name_, handle->enabledByDefault_);
  }
}

void traceSinkIs(std::function<void(String const& line)> sink) {
  state().sink = std::move(sink);
}

TraceHelper* TraceHelper::createIfEnabled(TraceHandle const& handle, int level, std::optional<TraceHelper>& buffer) {
  if (!handle.enabled(level)) {
    return nullptr;
  }
  return &buffer.emplace(handle, level);
}

void TraceHelper::trace(char const* file, int line, char const* function) {
  String const text =
      format("%.6f %s %d %s:%d %s:", System::currentTime(), handle_.name(), level_, baseName(file), line, function) +
      text_.str();
  TraceState& s = state();
  if (s.sink) {
    s.sink(text);
    return;
  }
  FILE* out = output();
  std::fprintf(out, "%s\n", text.c_str());
  std::fflush(out);
}

}  // namespace Rxn
