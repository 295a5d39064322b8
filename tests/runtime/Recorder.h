#pragma once
// A reactor that records every notification of a Sensor as a line of text.

#include <string>
#include <vector>

#include "tests/runtime/RxnTestState.h"

namespace RxnTest {

class SensorRecorder : public Sensor::NotifieeConst {
 public:
  explicit SensorRecorder(Rxn::Ptr<Sensor const> const& sensor) {
    notifierIs(sensor);
    isRegisteredNotifieeIs(true);
    hasNotificationActiveIs(true);
  }
  void onMode() override { heard.push_back("mode"); }
  void onCount() override { heard.push_back("count"); }
  void onLevel() override { heard.push_back("level"); }
  void onLimit(std::uint32_t const& key) override { heard.push_back("limit " + std::to_string(key)); }
  void onLimitrxnImmediate() override { heard.push_back("limit *"); }
  void onReading(std::uint32_t const& key) override { heard.push_back("reading " + std::to_string(key)); }
  void onTag(std::string const& key) override { heard.push_back("tag " + key); }
  void onReadingByLevel(std::int32_t const& key) override { heard.push_back("readingByLevel " + std::to_string(key)); }
  void onPeer() override { heard.push_back("peer"); }

  std::vector<std::string> take() { return std::exchange(heard, {}); }
  std::vector<std::string> heard;
};

}  // namespace RxnTest
