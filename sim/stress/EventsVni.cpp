// Events of the VLAN to VNI map: mappings added, moved to another VNI and
// removed, one or several at once (one VNI on several VLANs, one VLAN on
// several VTIs included), and the VLANs whose remote MACs wait for a flush.

#include "sim/stress/Driver.h"

namespace Stress {

namespace {

using Steps = std::vector<std::string>;

std::string mapStep(std::string const& vti, std::string const& maps) {
  return "{\"vti\": {\"name\": " + quoted(vti) + ", \"vlanToVni\": {" + maps + "}}}";
}

std::string mapping(int vlan, std::string const& vni) {
  return quoted(std::to_string(vlan)) + ": " + vni;
}

// The VLANs a VTI maps now.
std::vector<int> mappedVlans(Maker& maker, std::string const& vti) {
  std::vector<int> vlans;
  Rxn::Ptr<Vxlan::VtiStatus> const status = maker.platform().vtiStatusDir()->vtiStatus(Wire::IntfId(vti));
  if (status) {
    for (auto const& [vlan, pair] : status->vlanToVniMap()) {
      vlans.push_back(vlan.value());
    }
  }
  return vlans;
}

Steps mapAdd(Maker& maker) {
  std::vector<std::string> const vtis = maker.existingVtis();
  if (vtis.empty()) return {};
  return {mapStep(maker.pick(vtis), mapping(maker.vlan(), std::to_string(maker.vni())))};
}

// A VLAN that a VTI maps now gets another VNI, or none.
Steps remap(Maker& maker, bool remove) {
  std::vector<std::string> const vtis = maker.existingVtis();
  if (vtis.empty()) return {};
  std::string const vti = maker.pick(vtis);
  std::vector<int> const vlans = mappedVlans(maker, vti);
  if (vlans.empty()) return {};
  return {mapStep(vti, mapping(maker.pick(vlans), remove ? std::string("null") : std::to_string(maker.vni())))};
}

Steps mapMove(Maker& maker) {
  return remap(maker, false);
}

Steps mapRemove(Maker& maker) {
  return remap(maker, true);
}

// Several VLANs of one VTI change in one write, or a range of VLANs takes
// consecutive VNIs.
Steps mapSeveral(Maker& maker) {
  std::vector<std::string> const vtis = maker.existingVtis();
  if (vtis.empty()) return {};
  std::string const vti = maker.pick(vtis);
  if (maker.chance(0.3)) {
    int const first = maker.vlan();
    int const last =
        std::min(first + 1 + static_cast<int>(maker.below(3)), maker.universe().firstVlan + maker.universe().vlans - 1);
    std::string const range = std::to_string(first) + "-" + std::to_string(last);
    return {mapStep(vti, quoted(range) + ": " + (maker.chance(0.7) ? std::to_string(maker.vni()) : "null"))};
  }
  std::string maps;
  for (std::size_t n = 2 + maker.below(3); n > 0; --n) {
    maps += (maps.empty() ? "" : ", ") +
            mapping(maker.vlan(), maker.chance(0.75) ? std::to_string(maker.vni()) : std::string("null"));
  }
  return {mapStep(vti, maps)};
}

}  // namespace

std::vector<EventKind> vniEvents() {
  return {
      {"map-add", 6, mapAdd}, {"map-move", 4, mapMove}, {"map-remove", 4, mapRemove}, {"map-several", 2, mapSeveral}};
}

}  // namespace Stress
