// Value types: display text, the parsable string form, and range checks.

#include <gtest/gtest.h>

#include "fabvxlan/runtime/Exception.h"
#include "fabvxlan/state/imported/Bridging.h"
#include "fabvxlan/state/imported/Wire.h"
#include "tests/runtime/CountedAllocations.h"
#include "tests/runtime/RxnTestState.h"

namespace {

template <class T>
void expectRangeError(std::function<T()> const& make, std::string const& text) {
  try {
    make();
    FAIL() << "expected: " << text;
  } catch (Rxn::RangeException const& e) {
    EXPECT_NE(std::string(e.what()).find(text), std::string::npos) << e.what();
  }
}

TEST(Value, RecordsAndEnumerationsRoundTripThroughTheirStringForm) {
  RxnTest::Reading const reading(4, -12, "it's cold");
  std::string const strep = Rxn::valueToStrep(reading);
  EXPECT_EQ(strep, "Value('RxnTest::Reading', ** {'channel': 4, 'level': -12, 'note': 'it\\'s cold'})");
  EXPECT_EQ(Rxn::strepToValue<RxnTest::Reading>(strep), reading);
  EXPECT_EQ(Rxn::sequenceToValue<RxnTest::Reading>({"4", "-12", "'it\\'s cold'"}), reading);
  EXPECT_EQ(reading.stringValue(), "Reading(channel=4, level=-12, note=it's cold)");

  EXPECT_EQ(Rxn::valueToStrep(RxnTest::Mode::standby), "Value('RxnTest::Mode', 'standby')");
  EXPECT_EQ(Rxn::strepToValue<RxnTest::Mode>("'on'"), RxnTest::Mode::on);
  EXPECT_EQ(Rxn::valueToString(RxnTest::Mode::on), "on");

  EXPECT_TRUE(!RxnTest::Reading());
  EXPECT_FALSE(!reading);
  EXPECT_LT(RxnTest::Reading(4, -13, ""), reading);
  EXPECT_EQ(reading.hash(), RxnTest::Reading(4, -12, "it's cold").hash());

  expectRangeError<RxnTest::Reading>(
      [] { return Rxn::strepToValue<RxnTest::Reading>("Value('RxnTest::Reading', ** {'channel': 4})"); },
      "takes 3 fields, got 1");
  expectRangeError<RxnTest::Reading>(
      [] { return Rxn::strepToValue<RxnTest::Reading>("Value('Other', ** {'a': 1, 'b': 2, 'c': 3})"); },
      "expected a RxnTest::Reading");
  expectRangeError<RxnTest::Mode>([] { return Rxn::strepToValue<RxnTest::Mode>("'sideways'"); },
                                  "sideways is no RxnTest::Mode");
  expectRangeError<std::uint8_t>([] { return Rxn::strepToValue<std::uint8_t>("300"); }, "in range");
  expectRangeError<int>([] { return Rxn::strepToValue<int>("Value('X'"); }, "expected ,");

  // A record with a key set.
  RxnTest::Calibration calibration;
  calibration.pointsIs(3, true);
  calibration.pointsIs(7, true);
  calibration.scaleIs(0.5);
  EXPECT_EQ(calibration.pointss(), 2U);
  RxnTest::Calibration const parsed = Rxn::strepToValue<RxnTest::Calibration>(Rxn::valueToStrep(calibration));
  EXPECT_EQ(parsed, calibration);
  EXPECT_TRUE(parsed.points(7));
  calibration.pointsDel(7);
  EXPECT_LT(calibration, parsed);
  EXPECT_NE(calibration.hash(), parsed.hash());
  EXPECT_EQ(calibration.stringValue(), "Calibration(points=[3], scale=0.5)");
}

// Records are read by copy, as an entity's accessors hand them out: a
// record that holds a key set must not copy the set each time.
TEST(Value, AKeySetInARecordCostsNoAllocationToReadAndWalksInKeyOrder) {
  RxnTest::Calibration many;
  for (std::uint32_t point : {9, 3, 7}) {
    many.pointsIs(point, true);
  }
  RxnTest::Calibration one;
  one.pointsIs(5, true);
  Rxn::Ptr<RxnTest::Sensor> sensor = RxnTest::sensorFactory(1);
  sensor->calibrationIs(many);

  std::size_t const before = RxnTest::allocationsSoFar();
  RxnTest::Calibration const read = sensor->calibration();
  RxnTest::Calibration single;
  single.pointsIs(4, true);
  RxnTest::Calibration const copyOfOne = single;
  EXPECT_EQ(RxnTest::allocationsSoFar(), before);
  EXPECT_EQ(read, many);
  EXPECT_TRUE(copyOfOne.points(4));

  // A change is the changed copy's alone.
  RxnTest::Calibration changed = read;
  changed.pointsIs(11, true);
  changed.pointsDel(3);
  EXPECT_TRUE(changed.points(11));
  EXPECT_FALSE(sensor->calibration().points(11));
  EXPECT_TRUE(sensor->calibration().points(3));

  // Equal sets walk, compare, hash and print alike, whatever their history.
  RxnTest::Calibration other;
  for (std::uint32_t point : {7, 11, 9, 3}) {
    other.pointsIs(point, true);
  }
  other.pointsIs(3, false);
  EXPECT_EQ(other, changed);
  EXPECT_EQ(other.hash(), changed.hash());
  EXPECT_EQ(other.stringValue(), "Calibration(points=[7, 9, 11], scale=1)");
  std::vector<std::uint32_t> walked;
  for (auto const& [point, member] : other.points()) {
    EXPECT_TRUE(member);
    walked.push_back(point);
  }
  EXPECT_EQ(walked, (std::vector<std::uint32_t>{7, 9, 11}));

  // Down to one key, and to none.
  other.pointsDel(7);
  other.pointsDel(11);
  EXPECT_EQ(other.pointss(), 1U);
  EXPECT_TRUE(other.points(9));
  other.pointsDel(9);
  EXPECT_TRUE(!other);
  EXPECT_LT(other, one);
}

TEST(Value, WrappersCheckTheirRangeAndKnowTheirWord) {
  EXPECT_EQ(RxnTest::Channel().stringValue(), "none");
  EXPECT_EQ(RxnTest::Channel::fromString("none"), RxnTest::Channel());
  EXPECT_TRUE(!RxnTest::Channel());
  RxnTest::Channel const channel = RxnTest::Channel::fromString("0x10");
  EXPECT_EQ(channel.value(), 16);
  EXPECT_TRUE(channel.isSet());
  EXPECT_EQ(Rxn::valueToStrep(channel), "Value('RxnTest::Channel', '16')");
  expectRangeError<RxnTest::Channel>([] { return RxnTest::Channel(4096); }, "Channel::value > 4095 not allowed");
  expectRangeError<RxnTest::Channel>([] { return RxnTest::Channel::fromString("16x"); },
                                     "bad RxnTest::Channel '16x': expected a number");
  EXPECT_EQ(RxnTest::degraded_, RxnTest::Health::degraded_);
}

TEST(Value, AddressesAndIdsParseAndPrintInTheirUsualForms) {
  Wire::IpAddr const ip = Wire::IpAddr::fromString("10.0.0.1");
  EXPECT_EQ(ip.value(), 0x0a000001U);
  EXPECT_EQ(ip.stringValue(), "10.0.0.1");
  EXPECT_TRUE(Wire::IpAddr::fromString("239.1.1.1").isMulticast());
  EXPECT_FALSE(ip.isMulticast());
  EXPECT_TRUE(!Wire::IpAddr());
  EXPECT_EQ(Rxn::strepToValue<Wire::IpAddr>(Rxn::valueToStrep(ip)), ip);
  expectRangeError<Wire::IpAddr>([] { return Wire::IpAddr::fromString("10.0.0.256"); }, "bad IPv4 address");

  Wire::EthAddr const mac = Wire::EthAddr::fromString("0011.2233.4455");
  EXPECT_EQ(mac.stringValue(), "0011.2233.4455");
  EXPECT_EQ(Wire::EthAddr::fromString("00:11:22:33:44:55"), mac);
  EXPECT_TRUE(mac.isUnicast());
  EXPECT_FALSE(Wire::EthAddr::fromString("0100.5e00.0001").isUnicast());
  expectRangeError<Wire::EthAddr>([] { return Wire::EthAddr::fromString("0011.2233.44"); }, "bad MAC address");

  Wire::IntfId const vti("Vxlan1");
  EXPECT_EQ(vti, Wire::IntfId::fromString("Vxlan1"));
  EXPECT_EQ(vti.stringValue(), "Vxlan1");
  EXPECT_TRUE(Wire::VxlanTunnelIntfId::isVxlanTunnelIntfId(vti));
  EXPECT_FALSE(Wire::VxlanTunnelIntfId::isVxlanTunnelIntfId(Wire::IntfId("Ethernet1")));
  EXPECT_LT(Wire::IntfId("Ethernet1"), vti);
  expectRangeError<Wire::IntfId>([] { return Wire::IntfId("Vxlan 1"); }, "blank");

  EXPECT_EQ(Bridging::VlanId().value(), 1);
  EXPECT_EQ(Bridging::VlanId::fromString("4094").value(), 4094);
  expectRangeError<Bridging::VlanId>([] { return Bridging::VlanId(0); }, "VlanId::value < 1 or > 4094 not allowed");
  expectRangeError<Bridging::VlanId>([] { return Bridging::VlanId(4095); }, "VlanId::value < 1 or > 4094 not allowed");
  expectRangeError<Bridging::VlanId>([] { return Bridging::VlanId::fromString("ten"); },
                                     "bad Bridging::VlanId 'ten': expected a number");
}

}  // namespace
