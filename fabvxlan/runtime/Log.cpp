#include "fabvxlan/runtime/Log.h"

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <cstring>
#include <functional>
#include <unordered_map>
#include <utility>

#include "fabvxlan/runtime/Activity.h"
#include "fabvxlan/runtime/Hash.h"

namespace Rxn {

namespace {

// The rate-limit state of one (message, arguments) hash: the theoretical
// time of the next pass, as the generic cell rate algorithm keeps it. No
// tokens accumulate, so no rounding delays a repeat past its interval.
std::unordered_map<std::uint64_t, double>& nextPass() {
  static std::unordered_map<std::uint64_t, double> table;
  return table;
}

// Argument sets come and go (a VTEP per VNI...): forget the ones whose
// interval is long over.
void pruneRateLimits(double now) {
  auto& table = nextPass();
  if (table.size() < 4096) {
    return;
  }
  std::erase_if(table, [now](auto const& entry) { return entry.second < now; });
}

LogSink& sink() {
  static LogSink installed;
  return installed;
}

LogHandle const& notificationExceptionHandle() {
  static LogHandle const handle("RXN_NOTIFICATION_EXCEPTION", 3, "Reactor %s of %s: %s",
                                "An exception escaped a reactor's handler; the other reactors still heard the change.",
                                "Report the message to the developers of the reactor.", 0.0);
  return handle;
}

}  // namespace

LogHandle::LogHandle(char const* name, int severity, char const* format, char const* explanation,
                     char const* recommendedAction, double minInterval, double burst, unsigned flags)
    : name_(name),
      severity_(severity),
      format_(format),
      explanation_(explanation),
      recommendedAction_(recommendedAction),
      minInterval_(minInterval),
      burst_(burst),
      flags_(flags),
      idHash_(hashMix(std::hash<std::string>{}(name))) {}

bool LogHandle::okToLog(std::uint64_t hash) const {
  if (minInterval_ <= 0.0) {
    return true;
  }
  double const now = System::currentTime();
  pruneRateLimits(now);
  auto [it, fresh] = nextPass().try_emplace(hash, now);
  double& next = it->second;
  // A burst of b lets b messages pass at once, then one per interval.
  if (!fresh && now < next - (std::max(burst_, 1.0) - 1.0) * minInterval_) {
    return false;
  }
  next = std::max(next, now) + minInterval_;
  return true;
}

void logSinkIs(LogSink installed) {
  sink() = std::move(installed);
}

void logRateLimitReset() {
  nextPass().clear();
}

String logLine(LogHandle const& handle, String const& text) {
  String const name = handle.name();
  std::size_t const split = name.find('_');
  String const facility = split == String::npos ? name : name.substr(0, split);
  String const mnemonic = split == String::npos ? name : name.substr(split + 1);
  return "%" + facility + "-" + std::to_string(handle.severity()) + "-" + mnemonic + ": " + text;
}

namespace detail {

std::uint64_t logArgsHash(LogHandle const& handle, LogArg const* args, std::size_t count) {
  std::uint64_t h = handle.idHash();
  for (std::size_t i = 0; i < count; ++i) {
    if (i < 64 && (handle.rateLimitArgs() >> i) & 1U) {
      h = hashCombine(h, std::hash<std::string>{}(args[i].text));
    }
  }
  return h;
}

namespace {

// A printf conversion, taken apart: "%-08.3lx" is flags "-0", width "8",
// precision ".3", conversion 'x' (the length modifier is dropped).
struct Conversion {
  String flags;
  String width;
  String precision;
  char type;

  static Conversion parse(String const& spec) {
    Conversion c;
    std::size_t i = 1;
    while (i < spec.size() && std::strchr("-+ #0", spec[i]) != nullptr)
      c.flags.push_back(spec[i++]);
    while (i < spec.size() && std::isdigit(static_cast<unsigned char>(spec[i])))
      c.width.push_back(spec[i++]);
    if (i < spec.size() && spec[i] == '.') {
      c.precision.push_back(spec[i++]);
      while (i < spec.size() && std::isdigit(static_cast<unsigned char>(spec[i])))
        c.precision.push_back(spec[i++]);
    }
    c.type = spec.back();
    return c;
  }
};

// The text of one argument under one printf conversion `spec` ("%-5d").
String renderArg(String const& spec, LogArg const& arg) {
  Conversion const c = Conversion::parse(spec);
  String const head = "%" + c.flags + c.width + c.precision;
  bool const integer = std::strchr("diouxXc", c.type) != nullptr;
  if (integer && arg.kind == LogArg::Kind::signedInt) {
    return format((head + "ll" + c.type).c_str(), arg.signedValue);
  }
  if (integer && arg.kind == LogArg::Kind::unsignedInt) {
    return format((head + "ll" + c.type).c_str(), arg.unsignedValue);
  }
  if (std::strchr("eEfFgGaA", c.type) != nullptr && arg.kind == LogArg::Kind::real) {
    return format((head + c.type).c_str(), arg.realValue);
  }
  // Text, or a value type under a numeric conversion: its display text, in
  // the width of the conversion.
  bool const leftAligned = c.flags.find('-') != String::npos;
  String const textHead = String("%") + (leftAligned ? "-" : "") + c.width + (c.type == 's' ? c.precision : "");
  return format((textHead + "s").c_str(), arg.text.c_str());
}

}  // namespace

String logText(char const* formatText, LogArg const* args, std::size_t count) {
  String out;
  std::size_t next = 0;
  for (char const* p = formatText; *p != '\0'; ++p) {
    if (*p != '%') {
      out.push_back(*p);
      continue;
    }
    if (p[1] == '%') {
      out.push_back('%');
      ++p;
      continue;
    }
    char const* end = p + 1;
    while (*end != '\0' && std::strchr("diouxXceEfFgGaAsp", *end) == nullptr) {
      ++end;
    }
    if (*end == '\0' || next >= count) {
      out.append(p);  // a broken conversion, or no argument left: shown as written
      break;
    }
    out += renderArg(String(p, end + 1), args[next++]);
    p = end;
  }
  return out;
}

void logEmit(LogHandle const& handle, String const& text) {
  if (sink()) {
    sink()(handle, text);
    return;
  }
  std::fprintf(stderr, "%s\n", logLine(handle, text).c_str());
}

}  // namespace detail

void logNotificationException(String const& reactorType, String const& machineType, String const& what) {
  log(notificationExceptionHandle(), reactorType, machineType, what);
}

}  // namespace Rxn
