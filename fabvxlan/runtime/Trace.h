#pragma once
// Textual tracing. Each source module owns one lazily built TraceHandle:
//
//   RXN_TRACE_MODULE("FabVxlanCentralSm");           // once per .cpp file
//   RXN_TRACE(8, " curr state : " << current << ", new state : " << next);
//
// The stream arguments are evaluated only when the level is on for the
// module. Levels run from 0 to 9: 8 is the entry and state dump of handlers,
// 7 tells decisions, lower levels the rarer events.
//
// Which levels are on comes from the environment variable FABVXLAN_TRACE, a
// comma-separated list of `module-glob/levels`; levels are digits and
// ranges written together ("0-38" is 0,1,2,3,8; "*" is all). The last entry
// that matches a module decides. Example:
//   FABVXLAN_TRACE='FabVxlan*/1,FabVxlanVniSm/0-9'
// Output goes to stderr, or to the file named by FABVXLAN_TRACE_FILE.
// An entry that does not parse, or whose glob matches no module of the
// process, is ignored with one warning on stderr.

#include <cstdint>
#include <functional>
#include <optional>
#include <sstream>
#include <vector>

#include "fabvxlan/runtime/String.h"

namespace Rxn {

class TraceHandle {
 public:
  TraceHandle(char const* name, bool enabledByDefault);
  ~TraceHandle();
  TraceHandle(TraceHandle const&) = delete;
  TraceHandle& operator=(TraceHandle const&) = delete;

  char const* name() const { return name_; }
  bool enabled(int level) const { return (levels_ >> level) & 1U; }
  std::uint32_t levels() const { return levels_; }
  void levelsIs(std::uint32_t levels) { levels_ = levels; }

 private:
  char const* name_;
  bool enabledByDefault_;
  std::uint32_t levels_ = 0;
  friend void traceConfigIs(String const& spec);
};

class TraceHelper {
 public:
  TraceHelper(TraceHandle const& handle, int level) : handle_(handle), level_(level) {}
  // A helper in `buffer` if the level is on for the handle, otherwise null.
  static TraceHelper* createIfEnabled(TraceHandle const& handle, int level, std::optional<TraceHelper>& buffer);
  std::ostream& stream() { return text_; }
  // Writes the line with its time, module, level and source position.
  void trace(char const* file, int line, char const* function);

 private:
  TraceHandle const& handle_;
  int level_;
  std::ostringstream text_;
};

// Replaces the configuration of every handle, present and future.
void traceConfigIs(String const& spec);
// The levels that a configuration gives a module name.
std::uint32_t traceLevelsFor(String const& spec, String const& module, bool enabledByDefault);
// Receives every trace line; an empty sink restores stderr or FABVXLAN_TRACE_FILE.
void traceSinkIs(std::function<void(String const& line)> sink);

// Enters a module name in the list of modules when the code that declares it
// is loaded, so that the list holds modules that have not traced yet.
class TraceModuleName {
 public:
  explicit TraceModuleName(char const* name);
};
// The names of the trace modules of the process (the library's and the
// agent's own), sorted, each once.
std::vector<String> traceModules();
// One text per entry of a configuration that is ignored: it does not parse,
// or its glob matches no module.
std::vector<String> traceConfigProblems(String const& spec);

}  // namespace Rxn

// Declares the module's trace handle, reached through _defaultTraceHandle(),
// and enters its name in the list of modules.
#define RXN_TRACE_MODULE(moduleName)                            \
  namespace {                                                   \
  [[maybe_unused]] ::Rxn::TraceHandle& _defaultTraceHandle() {  \
    static ::Rxn::TraceHandle handle(moduleName, false);        \
    return handle;                                              \
  }                                                             \
  ::Rxn::TraceModuleName const rxnTraceModuleName_(moduleName); \
  }                                                             \
  static_assert(true, "")

#define RXN_TRACE(level, args)                                                                \
  do {                                                                                        \
    ::Rxn::TraceHandle const& rxnTraceHandle_ = _defaultTraceHandle();                        \
    if (rxnTraceHandle_.enabled(level)) {                                                     \
      std::optional<::Rxn::TraceHelper> rxnTraceBuffer_;                                      \
      if (::Rxn::TraceHelper* rxnTrace_ =                                                     \
              ::Rxn::TraceHelper::createIfEnabled(rxnTraceHandle_, level, rxnTraceBuffer_)) { \
        rxnTrace_->stream() << args;                                                          \
        rxnTrace_->trace(__FILE__, __LINE__, __func__);                                       \
      }                                                                                       \
    }                                                                                         \
  } while (0)
