// Named log messages, traces and toggles.

#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <fstream>

#include "fabvxlan/runtime/Activity.h"
#include "fabvxlan/runtime/Log.h"
#include "fabvxlan/runtime/Toggle.h"
#include "fabvxlan/runtime/Trace.h"
#include "fabvxlan/state/imported/Bridging.h"

RXN_TRACE_MODULE("RxnTestModule");

namespace {

using Lines = std::vector<std::string>;

Rxn::LogHandle const MAPFULL("ETH_VNIVLANMAPFULL", 4,
                             "Unable to program VLAN %d to VNI %d mapping due to hardware resource exhaustion.",
                             "explanation", "recommended action", 60.0, 1.0, 0);

class CapturedLog {
 public:
  CapturedLog() {
    Rxn::logRateLimitReset();
    Rxn::logSinkIs(
        [this](Rxn::LogHandle const& handle, Rxn::String const& text) { lines.push_back(Rxn::logLine(handle, text)); });
  }
  ~CapturedLog() { Rxn::logSinkIs(nullptr); }
  Lines lines;
};

TEST(Log, RepeatsWithTheSameArgumentsPassOncePerInterval) {
  Rxn::Activity activity(Rxn::Activity::TimeMode::simulated);
  CapturedLog log;
  Rxn::log(MAPFULL, 10, 10010);
  Rxn::log(MAPFULL, 10, 10010);
  Rxn::log(MAPFULL, 11, 10011);  // other arguments pass
  EXPECT_EQ(log.lines,
            (Lines{"%ETH-4-VNIVLANMAPFULL: Unable to program VLAN 10 to VNI 10010 mapping due to hardware resource "
                   "exhaustion.",
                   "%ETH-4-VNIVLANMAPFULL: Unable to program VLAN 11 to VNI 10011 mapping due to hardware resource "
                   "exhaustion."}));
  activity.advanceTime(59);
  Rxn::log(MAPFULL, 10, 10010);
  EXPECT_EQ(log.lines.size(), 2U);
  activity.advanceTime(1);
  Rxn::log(MAPFULL, 10, 10010);
  EXPECT_EQ(log.lines.size(), 3U);

  // Only the selected arguments make a repeat: here the VLAN alone.
  Rxn::LogHandle byVlan("ETH_VNIVLANMAPFULL", 4, "VLAN %d VNI %d", "", "", 60.0);
  byVlan.rateLimitArgsIs(1);
  Rxn::log(byVlan, 20, 1);
  Rxn::log(byVlan, 20, 2);
  Rxn::log(byVlan, 21, 2);
  EXPECT_EQ(log.lines.size(), 5U);
  EXPECT_EQ(log.lines.back(), "%ETH-4-VNIVLANMAPFULL: VLAN 21 VNI 2");

  // Values print their display text, under %s or %d; numbers follow their
  // conversion; an interval of 0 never limits.
  Rxn::LogHandle always("VXLAN_TEST", 3, "VLAN %d %4d: %s %x %-3s| %.1f %%", "", "", 0.0);
  Rxn::log(always, Bridging::VlanId(7), Bridging::VlanId(8), "full", 255U, "ab", 2.25);
  Rxn::log(always, Bridging::VlanId(7), Bridging::VlanId(8), "full", 255U, "ab", 2.25);
  EXPECT_EQ(log.lines.back(), "%VXLAN-3-TEST: VLAN 7    8: full ff ab | 2.2 %");
  EXPECT_EQ(log.lines.size(), 7U);
  // Missing arguments leave the conversion as written.
  Rxn::log(always, Bridging::VlanId(7));
  EXPECT_EQ(log.lines.back(), "%VXLAN-3-TEST: VLAN 7 %4d: %s %x %-3s| %.1f %%");
}

TEST(Log, RepeatsPassExactlyOncePerIntervalWhateverTheirSpacing) {
  Rxn::Activity activity(Rxn::Activity::TimeMode::simulated);
  CapturedLog log;
  std::vector<double> passed;
  for (int i = 0; i < 1800; ++i) {  // every 0.1 s for three minutes
    std::size_t const before = log.lines.size();
    Rxn::log(MAPFULL, 10, 10010);
    if (log.lines.size() > before) passed.push_back(activity.now() - Rxn::Activity::kSimulatedStart);
    activity.advanceTime(0.1);
  }
  ASSERT_EQ(passed.size(), 3U);
  EXPECT_NEAR(passed[1], 60.0, 0.11);
  EXPECT_NEAR(passed[2], 120.0, 0.21);
}

int evaluations = 0;
int counted() {
  return ++evaluations;
}

TEST(Trace, ArgumentsAreEvaluatedOnlyWhenTheLevelIsOn) {
  Rxn::Activity activity(Rxn::Activity::TimeMode::simulated);
  Lines lines;
  Rxn::traceSinkIs([&](Rxn::String const& line) { lines.push_back(line); });

  Rxn::traceConfigIs("Other/0-9");
  RXN_TRACE(8, "value " << counted());
  EXPECT_EQ(evaluations, 0);
  EXPECT_TRUE(lines.empty());

  Rxn::traceConfigIs("RxnTest*/1,RxnTestModule/0-38");
  RXN_TRACE(9, "value " << counted());
  RXN_TRACE(8, " curr state : " << counted());
  EXPECT_EQ(evaluations, 1);
  ASSERT_EQ(lines.size(), 1U);
  EXPECT_NE(lines[0].find(" RxnTestModule 8 DiagnosticsTest.cpp:"), std::string::npos) << lines[0];
  EXPECT_NE(lines[0].find("TestBody: curr state : 1"), std::string::npos) << lines[0];
  EXPECT_EQ(lines[0].substr(0, 15), "1000000.000000 ");

  EXPECT_EQ(Rxn::traceLevelsFor("*/*,X/", "X", false), 0U);
  EXPECT_EQ(Rxn::traceLevelsFor("X", "X", false), 0x3FFU);
  EXPECT_EQ(Rxn::traceLevelsFor("", "X", true), 0x3FFU);
  EXPECT_EQ(Rxn::traceLevelsFor("X/789", "X", false), 0x380U);

  Rxn::traceConfigIs("");
  Rxn::traceSinkIs(nullptr);
}

// A platform team finds the module names in the list, and learns of a
// setting that can do nothing instead of watching a silent trace.
TEST(Trace, EveryModuleIsListedAndABadSettingIsIgnoredWithOneWarning) {
  // Modules that have not traced yet are listed: the library's and the agent's own, each once.
  std::vector<Rxn::String> const modules = Rxn::traceModules();
  EXPECT_TRUE(std::is_sorted(modules.begin(), modules.end()));
  for (char const* module :
       {"FabHelperVniSm", "FabVxlanCentralSm", "FabVxlanVniSm", "FabVxlanVtepSm", "RxnTestModule"}) {
    EXPECT_EQ(std::count(modules.begin(), modules.end(), module), 1) << module;
  }
  EXPECT_EQ(std::count(modules.begin(), modules.end(), "FabVxlanVtepEventSm"), 1);  // declared by two files

  EXPECT_EQ(Rxn::traceConfigProblems("FabVxlan*/1,,FabHelperVniSm/0-38,RxnTestModule,RxnTestModule/,*/*"), Lines{});
  EXPECT_EQ(
      Rxn::traceConfigProblems("FabVxlanVniSm/high,/7,FabVxlanVniSm/8-3,FabVxlanVniSm/3-,FabVxlan/7, RxnTestModule"),
      (Lines{"entry 'FabVxlanVniSm/high' is ignored: expected module-glob or module-glob/levels, the levels being "
             "digits and ranges such as 0-38, or *",
             "entry '/7' is ignored: expected module-glob or module-glob/levels, the levels being digits and "
             "ranges such as 0-38, or *",
             "entry 'FabVxlanVniSm/8-3' is ignored: expected module-glob or module-glob/levels, the levels being "
             "digits and ranges such as 0-38, or *",
             "entry 'FabVxlanVniSm/3-' is ignored: expected module-glob or module-glob/levels, the levels being "
             "digits and ranges such as 0-38, or *",
             "entry 'FabVxlan/7' is ignored: it matches no trace module",
             "entry ' RxnTestModule' is ignored: it matches no trace module"}));
  // An entry that does not parse changes no level; the others still count.
  EXPECT_EQ(Rxn::traceLevelsFor("RxnTestModule/7,RxnTestModule/7x", "RxnTestModule", false), 0x80U);

  // Applied, a setting tells each problem once on stderr, however often it is applied.
  testing::internal::CaptureStderr();
  Rxn::traceConfigIs("RxnTestModule/7,NoSuchModule*/7");
  Rxn::traceConfigIs("RxnTestModule/7,NoSuchModule*/7");
  EXPECT_EQ(testing::internal::GetCapturedStderr(),
            "fabvxlan: trace setting entry 'NoSuchModule*/7' is ignored: it matches no trace module\n");
  Rxn::traceConfigIs("");
}

TEST(Toggle, EnvironmentThenFileThenDefault) {
  char path[] = "/tmp/fabvxlan-toggles-XXXXXX";
  int const fd = ::mkstemp(path);
  ASSERT_GE(fd, 0);
  ::close(fd);
  std::ofstream(path) << "# toggles of this agent\nAlpha=off\n\nBeta = on\nbroken line\n";
  ::setenv("FABVXLAN_TOGGLE_FILE", path, 1);
  ::setenv("FABVXLAN_TOGGLE_Alpha", "on", 1);

  EXPECT_TRUE(getToggleState("Alpha", false));  // the environment wins
  EXPECT_TRUE(getToggleState("Beta", false));
  EXPECT_FALSE(getToggleState("Gamma", false));
  EXPECT_TRUE(getToggleState("Gamma", true));
  ::setenv("FABVXLAN_TOGGLE_Alpha", "maybe", 1);
  EXPECT_FALSE(getToggleState("Alpha", true));  // a bad value falls through to the file

  ::unsetenv("FABVXLAN_TOGGLE_Alpha");
  ::unsetenv("FABVXLAN_TOGGLE_FILE");
  ::unlink(path);
  EXPECT_TRUE(getToggleState("Alpha", true));
}

}  // namespace
