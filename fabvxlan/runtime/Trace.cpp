#include "fabvxlan/runtime/Trace.h"

#include <fnmatch.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <utility>
#include <vector>

#include "fabvxlan/runtime/Activity.h"

namespace Rxn {

namespace {

constexpr std::uint32_t kAllLevels = (1U << 10) - 1;

struct TraceState {
  std::vector<TraceHandle*> handles;
  String spec;
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

std::uint32_t parseLevels(String const& text) {
  if (text == "*") {
    return kAllLevels;
  }
  std::uint32_t levels = 0;
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (text[i] < '0' || text[i] > '9') {
      continue;
    }
    int const from = text[i] - '0';
    int to = from;
    if (i + 2 < text.size() && text[i + 1] == '-' && text[i + 2] >= '0' && text[i + 2] <= '9') {
      to = text[i + 2] - '0';
      i += 2;
    }
    for (int level = from; level <= to; ++level) {
      levels |= 1U << level;
    }
  }
  return levels;
}

char const* baseName(char const* path) {
  char const* slash = std::strrchr(path, '/');
  return slash != nullptr ? slash + 1 : path;
}

}  // namespace

std::uint32_t traceLevelsFor(String const& spec, String const& module, bool enabledByDefault) {
  std::uint32_t levels = enabledByDefault ? kAllLevels : 0;
  std::size_t start = 0;
  while (start <= spec.size()) {
    std::size_t end = spec.find(',', start);
    if (end == String::npos) {
      end = spec.size();
    }
    String const entry = spec.substr(start, end - start);
    start = end + 1;
    if (entry.empty()) {
      continue;
    }
    std::size_t const slash = entry.find('/');
    String const pattern = entry.substr(0, slash);
    if (fnmatch(pattern.c_str(), module.c_str(), 0) == 0) {
      levels = slash == String::npos ? kAllLevels : parseLevels(entry.substr(slash + 1));
    }
  }
  return levels;
}

TraceHandle::TraceHandle(char const* name, bool enabledByDefault) : name_(name), enabledByDefault_(enabledByDefault) {
  TraceState& s = state();
  levels_ = traceLevelsFor(s.spec, name_, enabledByDefault_);
  s.handles.push_back(this);
}

TraceHandle::~TraceHandle() {
  auto& handles = state().handles;
  handles.erase(std::remove(handles.begin(), handles.end(), this), handles.end());
}

void traceConfigIs(String const& spec) {
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
