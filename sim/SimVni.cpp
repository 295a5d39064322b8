#include "sim/SimVni.h"

#include "fabvxlan/runtime/Trace.h"
#include "fabvxlan/state/FabBaseSm.h"

RXN_TRACE_MODULE("FabVxlanSim");

namespace Sim {

SimFabHelperVni::SimFabHelperVni(VniTable const& table, Rxn::Ptr<Fab::VerifyData const> const& verifyData)
    : FabHelperVni("fabHelperVni"), table_(table), verifyData_(verifyData) {}

void SimFabHelperVni::verifyHwVni() {
  for (auto const& [vlanId, row] : config()->configEntry()) {
    FabHelper::FabHelperVniStatusEntry const answer = status()->statusEntry(vlanId);
    if (row.vlanVniMapConfigAction() != FabHelper::vlanVniMapAdded_ || !answer ||
        answer.tableAddStatus() != FabTypes::success_) {
      continue;
    }
    auto const found = table_.mappings.find(vlanId);
    std::string const held = found == table_.mappings.end()
                                 ? std::string("nothing")
                                 : found->second.vni.stringValue() + " on " + found->second.vti.stringValue();
    if (found == table_.mappings.end() || found->second.vni != row.vni() || found->second.vti != row.vtiIntfId()) {
      FAB_VERIFY_FAILURE(verifyData_, "VLAN " + vlanId.stringValue() + ": VNI " + row.vni().stringValue() + " on " +
                                          row.vtiIntfId().stringValue() + " expected, the chip has " + held);
    }
  }
}

SimFabHelperVniSm::SimFabHelperVniSm(Rxn::Ptr<FabHelper::FabHelperVniConfig const> const& config,
                                     Rxn::Ptr<FabHelper::FabHelperVniStatus> const& status, VniTable& table,
                                     AnswerQueue* answers)
    : FabHelperVniSm(config, status), table_(table), answers_(answers) {}

void SimFabHelperVniSm::answer(std::function<void()> work) {
  if (answers_ == nullptr) {
    work();
  } else {
    answers_->post(std::move(work));
  }
}

void SimFabHelperVniSm::handleHwInit() {
  answer([this] {
    table_.initialized = true;
    FabHelperVniSm::handleHwInit();
  });
}

void SimFabHelperVniSm::handleHwCleanup() {
  answer([this] {
    table_.initialized = false;
    FabHelperVniSm::handleHwCleanup();
  });
}

void SimFabHelperVniSm::handleVlanVniMap(Bridging::VlanId const& vlanId) {
  answer([this, vlanId] { program(vlanId); });
}

// The chip works on the row as it stands when it gets to it.
void SimFabHelperVniSm::program(Bridging::VlanId const& vlanId) {
  if (table_.programCost > 0.0) {
    Rxn::Activity::current().advanceTime(table_.programCost);
  }
  FabHelper::FabHelperVniConfigEntry const row = helperVniConfig()->configEntry(vlanId);
  FabHelper::FabHelperVniStatus& status = *helperVniStatus();
  if (!row) {
    table_.mappings.erase(vlanId);
    table_.flushing.erase(vlanId);
    status.statusEntryDel(vlanId);
    return;
  }
  if (row.vlanVniMapConfigAction() == FabHelper::vlanVniMapDeletedMacFlushPending_) {
    table_.flushing.insert(vlanId);
    return;
  }
  if (!table_.flushing.empty()) {
    table_.flushing.erase(vlanId);
  }
  // One walk down the table finds the row or the place for it.
  auto const at = table_.mappings.lower_bound(vlanId);
  bool const present = at != table_.mappings.end() && at->first == vlanId;
  bool const fits = present || table_.mappings.size() < table_.capacity;
  if (present) {
    at->second = {row.vni(), row.vtiIntfId()};
  } else if (fits) {
    table_.mappings.emplace_hint(at, vlanId, VniTable::Mapping{row.vni(), row.vtiIntfId()});
  } else {
    RXN_TRACE(1, "VLAN-VNI table full: VLAN " << vlanId << " is not programmed");
  }
  status.statusEntryIs(FabHelper::FabHelperVniStatusEntry(vlanId, row.vni(), row.vtiIntfId(),
                                                          fits ? FabTypes::success_ : FabTypes::full_));
}

VniTableSweeper::VniTableSweeper(Rxn::Ptr<Fab::VXLAN::VxlanBootStatus const> const& boot,
                                 Rxn::Ptr<FabHelper::FabHelperVniConfig const> const& config, VniTable& table)
    : config_(config), table_(table), boot_(new RxnBootStatus(boot, this)) {
  boot_->hasNotificationActiveIs(true);
}

void VniTableSweeper::RxnBootStatus::onStageVlanVniMappingReady() {
  if (rxnMarkedForDeletion() || !notifier()->stageVlanVniMappingReady()) return;
  owner()->sweep();
}

void VniTableSweeper::sweep() {
  for (auto it = table_.mappings.begin(); it != table_.mappings.end();) {
    if (!config_->configEntry(it->first)) {
      RXN_TRACE(7, "VLAN-VNI table: VLAN " << it->first << " was not asked for again, removed");
      it = table_.mappings.erase(it);
    } else {
      ++it;
    }
  }
}

}  // namespace Sim
