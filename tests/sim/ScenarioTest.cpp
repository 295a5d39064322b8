// Scenarios of the simulated platform: a bad one is refused whole, with one
// line that names the file, the step and the fault; a good one shows state.

#include <gtest/gtest.h>
#include <rapidjson/document.h>

#include "sim/ScenarioRunner.h"

namespace {

std::string errorOf(std::string const& json) {
  try {
    Sim::parseScenario(json, "bad.json");
  } catch (Sim::ScenarioError const& e) {
    return e.what();
  }
  return "no error";
}

std::string steps(std::string const& list) {
  return R"({"steps": [)" + list + "]}";
}

// Steps on a platform where the scenario plays the remote MAC machine.
std::string stepsByHand(std::string const& list) {
  return R"({"platform": {"remoteMacMachine": false}, "steps": [)" + list + "]}";
}

TEST(Scenario, ABadScenarioNamesTheFileTheStepAndTheFault) {
  struct Case {
    std::string json;
    std::string error;
  };
  std::vector<Case> const cases = {
      {"{", "bad.json: bad JSON at line 1, column 2: Missing a name for object member."},
      {"[]", "bad.json: a scenario must be an object"},
      {R"({"steps": [], "colour": 1})",
       "bad.json: unknown key 'colour' in the scenario (expected description, "
       "platform, toggles, checks, steps)"},
      {R"({"description": "x"})", "bad.json: 'steps' must be a list of steps"},
      {R"({"platform": {"answerDelay": -1}, "steps": []})", "bad.json: 'answerDelay' must not be negative"},
      {R"({"toggles": {"PerVniControlPlane": "off"}, "steps": []})",
       "bad.json: toggle 'PerVniControlPlane' must be true or false"},
      {steps(R"({"at": 0, "wait": 3})"),
       "bad.json: step 1: unknown key 'wait' in a step (expected at, show, vti, vtis, floodSet, l2rib, bridging, "
       "restart, agent, answers, settle, vtep, activeNextHop, switchover, learn, activeVxlanVlan, hosts, "
       "learnRestrict, clearCounters, corruptL2RibRow)"},
      {steps(R"({"at": 0})"),
       "bad.json: step 1: a step needs vti, vtis, floodSet, l2rib, bridging, restart, agent, answers, settle, "
       "vtep, activeNextHop, switchover, learn, activeVxlanVlan, hosts, learnRestrict, clearCounters, corruptL2RibRow or show"},
      {steps(R"({"at": 2, "show": true}, {"at": 1, "show": true})"),
       "bad.json: step 2: 'at' goes back in time, to 1 after 2"},
      {steps(R"({"vti": {"name": "Ethernet1", "operStatus": "up"}})"),
       "bad.json: step 1: bad interface 'Ethernet1': a VTI is named Vxlan<number>"},
      {steps(R"({"vti": {"name": "Vxlan1", "operStatus": "sideways"}})"),
       "bad.json: step 1: bad operStatus 'sideways': expected up or down"},
      {steps(R"({"vti": {"name": "Vxlan1", "vlanToGroup": {"5000": "239.1.1.1"}}})"),
       "bad.json: step 1: bad VLAN '5000': VlanId::value < 1 or > 4094 not allowed"},
      {steps(R"({"vti": {"name": "Vxlan1", "floodMcastGrp": "239.1.1"}})"),
       "bad.json: step 1: bad group '239.1.1': bad IPv4 address '239.1.1'"},
      {steps(R"({"floodSet": {"vlan": 10, "mac": "00:11", "add": []}})"),
       "bad.json: step 1: bad MAC '00:11': bad MAC address '00:11': expected 0011.2233.4455"},
      {steps(R"({"floodSet": {"vlan": 10, "mac": "0000.0000.0000", "type": "some"}})"),
       "bad.json: step 1: bad flood set type 'some': expected all, any or a number"},
      {steps(R"({"vti": {"name": "Vxlan1"}, "l2rib": {"source": 4}})"),
       "bad.json: step 1: a step does one thing: vti, vtis, floodSet, l2rib, bridging, restart, agent, answers, "
       "settle, vtep, activeNextHop, switchover, learn, activeVxlanVlan, hosts, learnRestrict, clearCounters, "
       "corruptL2RibRow"},
      {steps(R"({"bridging": {"vlan": "20-10"}})"),
       "bad.json: step 1: bad VLAN range '20-10': the first is above the last"},
      {steps(R"({"vti": {"name": "Vxlan1", "vlanToVni": {"10": "x"}}})"),
       "bad.json: step 1: a VNI in 'vlanToVni' must be a number below 16777216, or null"},
      {steps(R"({"vtep": {"vti": "Vxlan1", "add": ["10.0.0.2"]}})"),
       "bad.json: step 1: 'vtep' writes what the remote MAC machine owns: give hosts, or a platform with "
       "\"remoteMacMachine\": false"},
      {stepsByHand(R"({"activeVxlanVlan": {"add": [true]}})"), "bad.json: step 1: 'add' must be a list of VLANs"},
      {stepsByHand(R"({"vtep": {"vti": "Ethernet3", "add": ["10.0.0.2"]}})"),
       "bad.json: step 1: bad interface 'Ethernet3': a VTI is named Vxlan<number>"},
      {stepsByHand(R"({"vtep": {"vti": "Vxlan1", "add": ["10.0.0.256"]}})"),
       "bad.json: step 1: bad address '10.0.0.256': bad IPv4 address '10.0.0.256'"},
      {stepsByHand(R"({"activeNextHop": {"add": ["1000"]}})"), "bad.json: step 1: 'add' must be a list of next hop ids"},
      {steps(R"({"switchover": 7})"), "bad.json: step 1: 'switchover' takes the address of a remote VTEP"},
      {steps(R"({"answers": {"delay": -2}})"), "bad.json: step 1: 'delay' must not be negative"},
      {steps(R"({"learn": {"vtep": "10.0.0.9", "vni": 16777216}})"),
       "bad.json: step 1: 'vni' must be a number below 16777216"},
      {steps(R"({"vti": {"name": "Vxlan1", "udpPort": 70000}})"), "bad.json: step 1: 'udpPort' must be a port number"},
      {R"({"platform": {"maxTunnels": -1}, "steps": []})", "bad.json: 'maxTunnels' must be a number from 0 to 1000000"},
      {steps(R"({"restart": "warm"})"),
       "bad.json: step 1: 'restart' takes \"hitless\", \"hitlessKeepingState\" or \"cold\""},
      {steps(R"({"vtis": []})"), "bad.json: step 1: 'vtis' must be a list of VTI changes"},
      {steps(R"({"answers": {"of": "tunnelLayer", "newestFirst": true}})"),
       "bad.json: step 1: 'newestFirst' is for the answers of the vniHook alone"},
      {R"({"checks": 1, "steps": []})", "bad.json: 'checks' must be true or false"},
      {steps(R"({"bridging": {"vlan": 10, "adminState": "half"}})"),
       "bad.json: step 1: bad adminState 'half': expected active, suspended or shutdown"},
  };
  for (Case const& c : cases) {
    EXPECT_EQ(errorOf(c.json), c.error) << c.json;
  }
  EXPECT_THROW(Sim::loadScenario("/nonexistent/scenario.json"), Sim::ScenarioError);
}

TEST(Scenario, AReaderThatListsANextHopNobodyPublishedStopsTheRunWithTheStep) {
  Sim::Scenario const scenario = Sim::parseScenario(stepsByHand(R"(
      {"at": 0, "vti": {"name": "Vxlan1", "operStatus": "up"}},
      {"at": 1, "activeNextHop": {"add": [4242]}})"),
                                                    "reader.json");
  try {
    Sim::runScenario(scenario);
    ADD_FAILURE() << "the run went on";
  } catch (Sim::ScenarioError const& e) {
    EXPECT_STREQ(e.what(),
                 "reader.json: step 2: the reader's next hops +4242: next hop 4242 is not published in VtepStatus");
  }
}

TEST(Scenario, AGoodScenarioShowsWhatItAsksForAndTheEnd) {
  Sim::Scenario const scenario = Sim::parseScenario(steps(R"(
      {"at": 0, "vti": {"name": "Vxlan1", "vlanToGroup": {"10": "239.1.1.10"}, "operStatus": "up"}},
      {"at": 1, "show": "up"},
      {"at": 2, "vti": {"name": "Vxlan1", "delete": true}, "show": true})"),
                                                    "good.json");
  std::vector<Sim::Snapshot> const snapshots = Sim::runScenario(scenario);
  ASSERT_EQ(snapshots.size(), 3U);
  EXPECT_EQ(snapshots[0].label, "up");
  EXPECT_EQ(snapshots[0].states[0], (std::pair<std::string, std::string>("Feature", "initialized_")));
  EXPECT_EQ(snapshots[0].bumReplicationMode, "bumRepMulticast");
  EXPECT_EQ(snapshots[0].bumMcastGrp, (std::vector<std::pair<int, std::string>>{{10, "239.1.1.10"}}));
  EXPECT_EQ(snapshots[1].label, "vti Vxlan1 deleted");
  EXPECT_EQ(snapshots[2].label, "end of scenario");
  EXPECT_EQ(snapshots[2].states[0].second, "clean_");

  // The JSON form carries the same snapshots.
  rapidjson::Document json;
  json.Parse(Sim::renderJson("good.json", snapshots).c_str());
  ASSERT_FALSE(json.HasParseError());
  ASSERT_EQ(json["snapshots"].Size(), 3U);
  EXPECT_STREQ(json["snapshots"][0]["bumMcastGrp"]["10"].GetString(), "239.1.1.10");
  EXPECT_STREQ(json["snapshots"][2]["states"]["Feature"].GetString(), "clean_");
}

}  // namespace
