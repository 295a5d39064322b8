#pragma once
// The show output's sections of each subsystem, in files of their own
// (ShowMac.cpp, ...): each takes its part of the snapshot, prints it and
// writes it as JSON.

#include <rapidjson/prettywriter.h>
#include <rapidjson/stringbuffer.h>

#include <sstream>

#include "sim/Show.h"

namespace Sim {

using JsonWriter = rapidjson::PrettyWriter<rapidjson::StringBuffer>;

void takeRemoteMacs(Platform& platform, Snapshot::RemoteMacs& macs);
void renderRemoteMacs(std::ostringstream& out, Snapshot::RemoteMacs const& macs);
void writeRemoteMacs(JsonWriter& w, Snapshot::RemoteMacs const& macs);

}  // namespace Sim
