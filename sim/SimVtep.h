#pragma once
// The VTEP side of the simulated platform: what the chip holds of VTEPs, the
// VTEP hook that VtepSm calls, the answers to the hook's handshakes, the
// tunnel layer that answers FabTunnelConfig, and the wire on which the data
// path copies learn frames to the CPU.

#include <cstdint>
#include <map>
#include <set>
#include <utility>
#include <vector>

#include "fabvxlan/state/FabTunnel.h"
#include "fabvxlan/vtep/FabHelperVtep.h"
#include "sim/AnswerQueue.h"

namespace Sim {

// What the chip holds of the VTEPs. It outlives an agent restart.
struct VtepHardware {
  bool initialized = false;
  bool dataPathLearning = true;
  Wire::UdpPort udpPort;
  std::map<Wire::IntfId, Wire::IpAddr> localVtepSrcIp;
  std::map<Wire::IntfId, Wire::IpAddr> varpVtepSrcIp;
  std::set<std::pair<Wire::IntfId, Wire::IpAddr>> vtepHandles;
  // The ports the chip gives the VTI.
  static constexpr std::uint16_t kTunnelPortId = 4001;
  static constexpr std::uint16_t kCpuSourcePortId = 4002;
};

// The platform's VTEP hook: programs the chip and checks it on verification.
// One per life of the agent; the chip it programs stays.
class SimFabHelperVtep : public FabHelper::FabHelperVtep {
 public:
  SimFabHelperVtep(VtepHardware& hardware, Rxn::Ptr<Fab::VerifyData const> const& verifyData,
                   std::uint32_t maxRemoteVteps);

  void createVtepHandle(Wire::IntfId const& vtiIntfId, Wire::IpAddr const& remoteVtepIp) override;
  void deleteVtepHandle(Wire::IntfId const& vtiIntfId, Wire::IpAddr const& remoteVtepIp) override;
  void updateLocalVtepSrcIp(Wire::IntfId const& vtiIntfId, Wire::IpAddr const& localVtepSrcIp) override;
  void updateVarpVtepSrcIp(Wire::IntfId const& vtiIntfId, Wire::IpAddr const& vArpVtepAddr) override;
  std::uint16_t getTunnelPortId() override { return VtepHardware::kTunnelPortId; }
  std::uint16_t getVxlanCpuSourcePortId() override { return VtepHardware::kCpuSourcePortId; }
  void verifyUdpPort(Wire::IntfId const& vtiIntfId, Wire::UdpPort const& udpPort) override;
  void verifyLocalVtepSrcIp(Wire::IntfId const& vtiIntfId, Wire::IpAddr const& localVtepSrcIp) override;
  void verifyVarpVtepSrcIp(Wire::IntfId const& vtiIntfId, Wire::IpAddr const& vArpVtepSrcIp) override;
  void verifyVccMode(bool enable) override;
  std::uint32_t getMaxRemoteVteps() override { return maxRemoteVteps_; }

  VtepHardware& hardware() const { return hardware_; }
  // The hook programs the chip's data path learning, and remembers it.
  void learningIs(bool on) {
    hardware_.dataPathLearning = on;
    learningAnswered_ = on;
  }
  // A port request asked (+1) or answered (-1).
  void udpPortAskedIs(int change) {
    udpPortAsked_ = true;
    udpPortAnswersDue_ += change;
  }

 private:
  void verifyAddress(char const* what, std::map<Wire::IntfId, Wire::IpAddr> const& programmed,
                     Wire::IntfId const& vtiIntfId, Wire::IpAddr const& expected) const;

  VtepHardware& hardware_;
  Rxn::Ptr<Fab::VerifyData const> verifyData_;
  std::uint32_t maxRemoteVteps_;
  bool learningAnswered_ = true;
  bool udpPortAsked_ = false;
  int udpPortAnswersDue_ = 0;
};

// The chip's side of the hook's handshakes: each request is done, and its
// status set to its config, an answer later.
class VtepHelperAnswers : public Rxn::PtrInterface {
 public:
  VtepHelperAnswers(Rxn::Ptr<SimFabHelperVtep> const& helper, AnswerQueue& answers);

 private:
  class RxnHelper : public Rxn::Reactor<VtepHelperAnswers, SimFabHelperVtep> {
   public:
    using Reactor::Reactor;
    void onHwInitConfig() override;
    void onHwCleanupConfig() override;
    void onDataPathLearningDisableConfig() override;
    void onDataPathLearningEnableConfig() override;
    void onUdpPortConfig() override;
  };

  VtepHardware& hardware() const { return helper_->notifier()->hardware(); }
  SimFabHelperVtep& helper() const { return *helper_->notifier(); }

  AnswerQueue& answers_;
  Rxn::Ptr<RxnHelper> helper_;
};

struct TunnelLayerLimits {
  std::uint32_t tunnels = 64;
  std::uint32_t nextHops = 128;
};

// The platform's tunnel layer. For each FabTunnelConfig entry it takes a
// tunnel id and a next hop id from pools of fixed size and answers in
// FabTunnelStatus; a next hop id goes back to its pool only when no tunnel
// has it, FabTunnelConfig does not keep it active and the hook maps it to no
// tunnel. When a pool is empty, the tunnel is answered as unreachable (next
// hop 0xFFFFFFFE) and served as soon as an id comes free. It outlives an
// agent restart, and so do its tables.
class SimTunnelLayer : public Rxn::PtrInterface {
 public:
  static constexpr std::uint32_t kFirstNextHopId = 1000;
  static constexpr std::uint32_t kUnreachable = 0xFFFFFFFE;

  SimTunnelLayer(Rxn::Ptr<Fab::FabTunnelConfig const> const& config, Rxn::Ptr<Fab::FabTunnelStatus> const& status,
                 TunnelLayerLimits const& limits, AnswerQueue& answers);
  // The hook of the agent's present life, whose next hop map holds ids too.
  void helperIs(Rxn::Ptr<FabHelper::FabHelperVtep const> const& helper);
  // Moves every tunnel to this VTEP to a new next hop, as a platform may at
  // any time; the old next hop stays while anything holds it.
  bool switchNextHop(Wire::IpAddr const& vtep);
  // Whether a tunnel to this VTEP stands with a next hop.
  bool reachable(Wire::IpAddr const& vtep) const;

  std::size_t tunnelsInUse() const { return limits_.tunnels - freeTunnelIds_.size(); }
  bool tunnelIdFree(std::uint32_t id) const { return freeTunnelIds_.count(id) != 0; }
  bool nextHopIdFree(std::uint32_t id) const { return freeNextHopIds_.count(id) != 0; }
  // The tunnels that stand, by key.
  std::set<Fab::TunnelKey> tunnelKeys() const;
  // Next hop ids that tunnels had and that something else still holds.
  std::set<std::uint32_t> const& retiredNextHopIds() const { return retired_; }
  bool nextHopHeld(std::uint32_t nhId) const;
  std::size_t nextHopsInUse() const { return limits_.nextHops - freeNextHopIds_.size(); }
  TunnelLayerLimits const& limits() const { return limits_; }
  std::size_t waitingForResources() const { return starved_.size(); }

 private:
  class RxnConfig : public Rxn::Reactor<SimTunnelLayer, Fab::FabTunnelConfig const> {
   public:
    using Reactor::Reactor;
    void onInit() override;
    void onCleanup() override;
    void onTunnelConfigEntry(Fab::TunnelKey const& key) override;
    void onActiveNextHopId(Fab::FabNextHopId const& nhId) override;
  };
  class RxnHelper : public Rxn::Reactor<SimTunnelLayer, FabHelper::FabHelperVtep const> {
   public:
    using Reactor::Reactor;
    void onNextHopIdToTunnelIdMap(Fab::FabNextHopId const& nhId) override;
  };
  struct Tunnel {
    Fab::FabTunnelId tunnelId;
    Fab::FabNextHopId nextHopId;
  };

  void answerEntry(Fab::TunnelKey const& key, bool wanted);
  void setUp(Fab::TunnelKey const& key);
  void tearDown(Fab::TunnelKey const& key);
  // Gives the tunnel a next hop (and a tunnel id if it has none) if the pools
  // allow; otherwise it waits, unreachable.
  void serve(Fab::TunnelKey const& key, Tunnel& tunnel);
  void publish(Fab::TunnelKey const& key, Tunnel const& tunnel);
  void retire(std::uint32_t nhId);
  // Frees the id if nothing holds it any more, then serves the waiting tunnels.
  void reclaim(std::uint32_t nhId);
  void serveStarved();

  Rxn::Ptr<Fab::FabTunnelConfig const> config_;
  Rxn::Ptr<Fab::FabTunnelStatus> status_;
  TunnelLayerLimits limits_;
  AnswerQueue& answers_;
  Rxn::Ptr<RxnConfig> configReactor_;
  Rxn::Ptr<RxnHelper> helperReactor_;
  std::map<Fab::TunnelKey, Tunnel> tunnels_;
  std::set<std::uint32_t> freeTunnelIds_;
  std::set<std::uint32_t> freeNextHopIds_;
  // The next hops that tunnels have now.
  std::map<std::uint32_t, Fab::TunnelKey> currentNextHop_;
  // Ids that a tunnel had and that something else may still hold.
  std::set<std::uint32_t> retired_;
  std::vector<Fab::TunnelKey> starved_;
};

// The path on which the data path copies learn frames to the CPU: a datagram
// socket pair standing in for the raw packet socket, so that the simulator
// needs no privileges. VtepEventSm reads one end; the platform writes frames
// into the other.
class LearnWire {
 public:
  LearnWire();
  ~LearnWire();
  LearnWire(LearnWire const&) = delete;
  LearnWire& operator=(LearnWire const&) = delete;
  // A descriptor of the reading end, for VtepEventSm to own.
  int open() const;
  void send(std::vector<std::uint8_t> const& frame) const;
  // Whether a frame waits, unread, on the wire.
  bool pending() const;

 private:
  int ends_[2] = {-1, -1};
};

}  // namespace Sim
