#pragma once
// Named log messages: a static LogHandle per message, rate-limited per
// argument hash, written to a sink that the platform agent may redirect.
//
//   static Rxn::LogHandle const ETH_VNIVLANMAPFULL("ETH_VNIVLANMAPFULL", 4,
//       "Unable to program VLAN %d to VNI %d mapping ...", "explanation",
//       "recommended action", 60.0, 1.0, 0);
//   Rxn::log(ETH_VNIVLANMAPFULL, vlan, vni);
//
// Repeats of one message with the same selected arguments pass once per
// minimum interval (a token bucket of `burst` tokens); different arguments
// pass independently.

#include <array>
#include <cstdint>
#include <functional>
#include <type_traits>
#include <utility>

#include "fabvxlan/runtime/String.h"

namespace Rxn {

class LogHandle {
 public:
  LogHandle(char const* name, int severity, char const* format, char const* explanation,
            char const* recommendedAction, double minInterval, double burst = 1.0, unsigned flags = 0);

  char const* name() const { return name_; }
  int severity() const { return severity_; }
  char const* format() const { return format_; }
  char const* explanation() const { return explanation_; }
  char const* recommendedAction() const { return recommendedAction_; }
  double minInterval() const { return minInterval_; }
  double burst() const { return burst_; }
  unsigned flags() const { return flags_; }

  std::uint64_t idHash() const { return idHash_; }
  // Bit i selects argument i for the rate-limit hash; all by default.
  std::uint64_t rateLimitArgs() const { return rateLimitArgs_; }
  void rateLimitArgsIs(std::uint64_t mask) { rateLimitArgs_ = mask; }
  // Takes a token for this argument hash if one is left.
  bool okToLog(std::uint64_t hash) const;

 private:
  char const* name_;
  int severity_;
  char const* format_;
  char const* explanation_;
  char const* recommendedAction_;
  double minInterval_;
  double burst_;
  unsigned flags_;
  std::uint64_t idHash_;
  std::uint64_t rateLimitArgs_ = ~std::uint64_t{0};
};

// Receives each message that passed the rate limit, with its rendered text.
using LogSink = std::function<void(LogHandle const& handle, String const& text)>;
// Installs a sink; an empty one restores the default (one line on stderr).
void logSinkIs(LogSink sink);
// The default line: "%ETH-4-VNIVLANMAPFULL: <text>".
String logLine(LogHandle const& handle, String const& text);
// Forgets every rate-limit state, for a fresh agent life in one process.
void logRateLimitReset();

namespace detail {

template <class T>
String logArgText(T const& arg) {
  return valueToString(arg);
}
inline String logArgText(char const* arg) { return arg; }

// printf needs its own types: numbers pass as they are, all else as text.
template <class T>
auto logFormatArg(T const& arg, String const& text) {
  if constexpr (std::is_enum_v<T>) {
    return static_cast<int>(arg);
  } else if constexpr (std::is_arithmetic_v<T>) {
    return arg;
  } else {
    return text.c_str();
  }
}

std::uint64_t logArgsHash(LogHandle const& handle, String const* texts, std::size_t count);
void logEmit(LogHandle const& handle, String const& text);

template <class... Args, std::size_t... I>
String logText(LogHandle const& handle, String const* texts, std::index_sequence<I...>, Args const&... args) {
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
#pragma GCC diagnostic ignored "-Wformat-security"
  return format(handle.format(), logFormatArg(args, texts[I])...);
#pragma GCC diagnostic pop
}

}  // namespace detail

template <class... Args>
void log(LogHandle const& handle, Args const&... args) {
  std::array<String, sizeof...(Args)> const texts{detail::logArgText(args)...};
  if (!handle.okToLog(detail::logArgsHash(handle, texts.data(), texts.size()))) {
    return;
  }
  detail::logEmit(handle, detail::logText(handle, texts.data(), std::index_sequence_for<Args...>{}, args...));
}

// Reports an exception that escaped a reactor's handler.
void logNotificationException(char const* reactorType, String const& what);

}  // namespace Rxn
