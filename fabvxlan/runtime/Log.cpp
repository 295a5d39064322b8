#include "fabvxlan/runtime/Log.h"

#include <cstdio>
#include <functional>
#include <unordered_map>
#include <utility>

#include "fabvxlan/runtime/Activity.h"
#include "fabvxlan/runtime/Hash.h"

namespace Rxn {

namespace {

struct Bucket {
  double tokens;
  double stamp;
};

// Rate-limit state per (message, arguments) hash.
std::unordered_map<std::uint64_t, Bucket>& buckets() {
  static std::unordered_map<std::uint64_t, Bucket> table;
  return table;
}

LogSink& sink() {
  static LogSink installed;
  return installed;
}

LogHandle const& notificationExceptionHandle() {
  static LogHandle const handle("RXN_NOTIFICATION_EXCEPTION", 3, "Reactor %s: %s",
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
  auto [it, fresh] = buckets().try_emplace(hash, Bucket{burst_, now});
  Bucket& bucket = it->second;
  if (!fresh) {
    bucket.tokens = std::min(burst_, bucket.tokens + (now - bucket.stamp) / minInterval_);
    bucket.stamp = now;
  }
  if (bucket.tokens < 1.0) {
    return false;
  }
  bucket.tokens -= 1.0;
  return true;
}

void logSinkIs(LogSink installed) { sink() = std::move(installed); }

void logRateLimitReset() { buckets().clear(); }

String logLine(LogHandle const& handle, String const& text) {
  String const name = handle.name();
  std::size_t const split = name.find('_');
  String const facility = split == String::npos ? name : name.substr(0, split);
  String const mnemonic = split == String::npos ? name : name.substr(split + 1);
  return "%" + facility + "-" + std::to_string(handle.severity()) + "-" + mnemonic + ": " + text;
}

namespace detail {

std::uint64_t logArgsHash(LogHandle const& handle, String const* texts, std::size_t count) {
  std::uint64_t h = handle.idHash();
  for (std::size_t i = 0; i < count; ++i) {
    if (i < 64 && (handle.rateLimitArgs() >> i) & 1U) {
      h = hashCombine(h, std::hash<std::string>{}(texts[i]));
    }
  }
  return h;
}

void logEmit(LogHandle const& handle, String const& text) {
  if (sink()) {
    sink()(handle, text);
    return;
  }
  std::fprintf(stderr, "%s\n", logLine(handle, text).c_str());
}

}  // namespace detail

void logNotificationException(char const* reactorType, String const& what) {
  log(notificationExceptionHandle(), reactorType, what);
}

}  // namespace Rxn
