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
  LogHandle(char const* name, int severity, char const* format, char const* explanation, char const* recommendedAction,
            double minInterval, double burst = 1.0, unsigned flags = 0);

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

// One argument of a message: its number, if it is one, and its display text.
struct LogArg {
  enum class Kind { signedInt, unsignedInt, real, text };
  Kind kind;
  long long signedValue = 0;
  unsigned long long unsignedValue = 0;
  double realValue = 0.0;
  String text;
};

template <class T>
LogArg logArg(T const& arg) {
  if constexpr (std::is_enum_v<T>) {
    return LogArg{LogArg::Kind::text, 0, 0, 0.0, valueToString(arg)};
  } else if constexpr (std::is_integral_v<T> && std::is_signed_v<T> && !std::is_same_v<T, bool>) {
    return LogArg{LogArg::Kind::signedInt, arg, 0, 0.0, std::to_string(arg)};
  } else if constexpr (std::is_integral_v<T>) {
    return LogArg{LogArg::Kind::unsignedInt, 0, arg, 0.0, std::to_string(+arg)};
  } else if constexpr (std::is_floating_point_v<T>) {
    return LogArg{LogArg::Kind::real, 0, 0, arg, format("%g", static_cast<double>(arg))};
  } else if constexpr (std::is_convertible_v<T const&, char const*>) {
    char const* text = arg;
    return LogArg{LogArg::Kind::text, 0, 0, 0.0, text != nullptr ? text : "(null)"};
  } else {
    return LogArg{LogArg::Kind::text, 0, 0, 0.0, valueToString(arg)};
  }
}

// Renders the message: each conversion of the format takes the next
// argument, a number as the conversion says, anything else as its text. No
// argument can mislead printf.
String logText(char const* format, LogArg const* args, std::size_t count);
std::uint64_t logArgsHash(LogHandle const& handle, LogArg const* args, std::size_t count);
void logEmit(LogHandle const& handle, String const& text);

}  // namespace detail

template <class... Args>
void log(LogHandle const& handle, Args const&... args) {
  std::array<detail::LogArg, sizeof...(Args)> const rendered{detail::logArg(args)...};
  if (!handle.okToLog(detail::logArgsHash(handle, rendered.data(), rendered.size()))) {
    return;
  }
  detail::logEmit(handle, detail::logText(handle.format(), rendered.data(), rendered.size()));
}

// Reports an exception that escaped a reactor's handler, with the reactor's
// type and the type of the state machine that owns it.
void logNotificationException(String const& reactorType, String const& machineType, String const& what);

}  // namespace Rxn
