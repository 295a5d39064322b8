// The scenario steps of the VTEP subsystem: the remote VTEPs and next hops
// that the remote MAC machine and the reader use, the tunnel layer's
// switchovers, and learn frames from the data path.

#include "sim/LearnFrames.h"
#include "sim/ScenarioReader.h"

namespace Sim {

namespace {

Step vtepStep(Context const& ctx, Json const& spec, PlatformConfig const& config) {
  refuseWhileRemoteMacMachineRuns(ctx, config, "vtep");
  expectKeys(ctx, spec, "vtep", {"vti", "add", "remove", "withdraw"});
  Wire::IntfId const vti = vtiAt(ctx, spec, "vti");
  if (spec.HasMember("withdraw") && boolAt(ctx, spec, "withdraw")) {
    Step step;
    step.what = "the remote MAC machine withdraws every remote VTEP of " + vti.stringValue();
    step.action = [vti](Platform& platform) { platform.remoteVtepsWithdrawn(vti); };
    return step;
  }
  std::vector<Wire::IpAddr> const add = addressesAt(ctx, spec, "add");
  std::vector<Wire::IpAddr> const remove = addressesAt(ctx, spec, "remove");
  Step step;
  step.what = "remote VTEPs of " + vti.stringValue();
  for (Wire::IpAddr const& vtep : add)
    step.what += " +" + vtep.stringValue();
  for (Wire::IpAddr const& vtep : remove)
    step.what += " -" + vtep.stringValue();
  step.action = [vti, add, remove](Platform& platform) {
    for (Wire::IpAddr const& vtep : add) {
      platform.remoteVtepIs(vti, vtep, true);
    }
    for (Wire::IpAddr const& vtep : remove) {
      platform.remoteVtepIs(vti, vtep, false);
    }
  };
  return step;
}

std::vector<Fab::FabNextHopId> nextHopsAt(Context const& ctx, Json const& object, char const* key) {
  return listAt<Fab::FabNextHopId>(ctx, object, key, "next hop ids", [](Json const& item, Fab::FabNextHopId& id) {
    if (item.IsUint()) {
      id = Fab::FabNextHopId(item.GetUint());
    }
    return item.IsUint();
  });
}

// Whether some VTI publishes this next hop for a tunnel: a reader lists only
// what it read.
bool published(Platform const& platform, Fab::FabNextHopId const& nhId) {
  for (auto const& [vti, status] : platform.vtepStatusDir()->vtepStatus()) {
    for (auto const& [id, info] : status->hwVtepInfo()) {
      if (info.nextHopId() == nhId) {
        return true;
      }
    }
  }
  return false;
}

Step activeNextHopStep(Context const& ctx, Json const& spec, PlatformConfig const& config) {
  refuseWhileRemoteMacMachineRuns(ctx, config, "activeNextHop");
  expectKeys(ctx, spec, "activeNextHop", {"add", "remove"});
  std::vector<Fab::FabNextHopId> const add = nextHopsAt(ctx, spec, "add");
  std::vector<Fab::FabNextHopId> const remove = nextHopsAt(ctx, spec, "remove");
  Step step;
  step.what = "the reader's next hops";
  for (Fab::FabNextHopId const& id : add)
    step.what += " +" + id.stringValue();
  for (Fab::FabNextHopId const& id : remove)
    step.what += " -" + id.stringValue();
  step.action = [add, remove](Platform& platform) {
    Fab::VXLAN::VtepConfigDir& dir = *platform.vtepConfigDir();
    for (Fab::FabNextHopId const& id : add) {
      if (!published(platform, id)) {
        throw ScenarioError("next hop " + id.stringValue() + " is not published in VtepStatus");
      }
      dir.activeNextHopIdListIs(id, true);
    }
    for (Fab::FabNextHopId const& id : remove) {
      dir.activeNextHopIdListDel(id);
    }
  };
  return step;
}

Step switchoverStep(Context const& ctx, Json const& spec, PlatformConfig const&) {
  if (!spec.IsString()) {
    ctx.fail("'switchover' takes the address of a remote VTEP");
  }
  Wire::IpAddr const vtep = valueOf<Wire::IpAddr>(ctx, spec.GetString(), "address");
  Step step;
  step.what = "the tunnel layer moves " + vtep.stringValue() + " to a new next hop";
  step.action = [vtep](Platform& platform) {
    // With no next hop free the platform keeps the tunnel where it is.
    if (!platform.tunnelLayer().reachable(vtep)) {
      throw ScenarioError("no reachable tunnel to " + vtep.stringValue());
    }
    platform.tunnelLayer().switchNextHop(vtep);
  };
  return step;
}

Step learnStep(Context const& ctx, Json const& spec, PlatformConfig const&) {
  expectKeys(ctx, spec, "learn", {"vtep", "vni", "mac", "count"});
  LearnFrameSpec frame;
  frame.remoteVtep = valueOf<Wire::IpAddr>(ctx, stringAt(ctx, spec, "vtep"), "address");
  if (spec.HasMember("mac")) frame.innerSrcMac = valueOf<Wire::EthAddr>(ctx, stringAt(ctx, spec, "mac"), "MAC");
  if (spec.HasMember("vni")) {
    if (!spec["vni"].IsUint() || spec["vni"].GetUint() > 0xFFFFFF) {
      ctx.fail("'vni' must be a number below 16777216");
    }
    frame.vni = spec["vni"].GetUint();
  }
  unsigned count = 1;
  if (spec.HasMember("count")) {
    if (!spec["count"].IsUint() || spec["count"].GetUint() == 0) {
      ctx.fail("'count' must be a positive number");
    }
    count = spec["count"].GetUint();
  }
  Step step;
  step.what = "learn frame from " + frame.remoteVtep.stringValue() + " vni " + std::to_string(frame.vni) + " mac " +
              frame.innerSrcMac.stringValue();
  step.action = [bytes = buildLearnFrame(frame), count](Platform& platform) {
    for (unsigned i = 0; i < count; ++i) {
      platform.learnFrame(bytes);
    }
  };
  return step;
}

}  // namespace

std::vector<StepKind> vtepStepKinds() {
  return {{"vtep", true, vtepStep},
          {"activeNextHop", true, activeNextHopStep},
          {"switchover", false, switchoverStep},
          {"learn", true, learnStep}};
}

}  // namespace Sim
