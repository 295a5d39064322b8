// Verification of VtepSm: what it tells the hook to compare with the chip,
// by the feature state and the learning request that may be out.

#include <gtest/gtest.h>

#include "tests/SimFixture.h"

namespace FabTest {
namespace {

using Fab::VXLAN::FabVxlanState;

class VtepVerifyTest : public SimFixture {
 protected:
  static Sim::PlatformConfig slowPlatform() {
    Sim::PlatformConfig config;
    // The test plays the remote MAC machine.
    config.remoteMacMachine = false;
    config.answerDelay = 1.0;
    return config;
  }
  VtepVerifyTest() : SimFixture(slowPlatform()) {
    verifyData().verifyRequiredIs(true);
    Rxn::Ptr<Vxlan::VtiStatus> const vti = platform().vti(kVxlan1);
    vti->localVtepAddrIs(Wire::IpAddr::fromString("10.0.0.1"));
    vti->udpPortIs(Wire::UdpPort(4789));
  }
  Fab::VerifyData& verifyData() { return *platform().acsd()->verifyData(); }
  // The mismatches a verification run finds now.
  std::vector<std::string> verify() {
    verifyData().cliVerifyOutputDelAll();
    verifyData().doRequestVerify();
    platform().runUntilIdle();
    std::vector<std::string> failures;
    for (auto const& [function, text] : verifyData().cliVerifyOutput()) {
      failures.push_back(text);
    }
    return failures;
  }
  using Failures = std::vector<std::string>;
};

TEST_F(VtepVerifyTest, TheChipIsComparedWithTheVtiOnlyWhereTheVtiIsInForce) {
  vtiUp(kVxlan1);
  platform().settle();
  ASSERT_EQ(info().state(), FabVxlanState::initialized_);
  EXPECT_EQ(verify(), Failures{});

  platform().vtepHardware().localVtepSrcIp[kVxlan1] = Wire::IpAddr::fromString("9.9.9.9");
  EXPECT_EQ(verify(), Failures{"Vxlan1: local VTEP address 10.0.0.1 expected, the chip has 9.9.9.9"});
  platform().vtepHardware().localVtepSrcIp[kVxlan1] = Wire::IpAddr::fromString("10.0.0.1");

  // Cleaning with the VTI active again: zeros are what the chip must hold.
  vtiUp(kVxlan1, false);
  vtiUp(kVxlan1);
  platform().runFor(1);
  ASSERT_EQ(info().state(), FabVxlanState::cleaning_);
  ASSERT_TRUE(info().activatedVti(kVxlan1));
  EXPECT_EQ(verify(), Failures{});
  platform().vtepHardware().udpPort = Wire::UdpPort(4789);
  EXPECT_EQ(verify(), Failures{"Vxlan1: UDP port 0 expected, the chip has 4789"});
}

TEST_F(VtepVerifyTest, TheControllerClientModeIsNotVerifiedWhileALearningRequestIsOut) {
  Rxn::Ptr<Vxlan::VtiStatus> const vti = platform().vti(kVxlan1);
  vtiUp(kVxlan1);
  platform().settle();
  // Learning off outside controller client mode, as a control plane without
  // a controller asks: the chip agrees once done.
  vti->datapathLearningIs(false);
  platform().settle();
  EXPECT_EQ(verify(), Failures{});
  // A chip that turned learning on behind the machine's back disagrees.
  platform().vtepHardware().dataPathLearning = true;
  Failures const on{"data path learning is on in controller client mode off, the hook answered off"};
  EXPECT_EQ(verify(), on);

  // Asked on: until the platform answers, the chip is not judged.
  platform().vtepHardware().dataPathLearning = false;
  vti->datapathLearningIs(true);
  EXPECT_FALSE(platform().vtepHardware().dataPathLearning);
  EXPECT_EQ(verify(), Failures{});
  platform().settle();
  EXPECT_EQ(verify(), Failures{});
}

}  // namespace
}  // namespace FabTest
