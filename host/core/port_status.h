/* What ports, switches and VLANs tell of themselves, in the records that speak of it. */
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "host/core/host.h"
#include "host/export.h"
#include "kestrel/runtime_records.h"

namespace kestrel::host {

KESTREL_HOST_EXPORT VSStats StatsOf(const Switch &owner, PortId port);
/** Those of all its ports together. */
KESTREL_HOST_EXPORT VSStats StatsOf(const Switch &owner);
KESTREL_HOST_EXPORT zel_VDSPortStatistics StatisticsOf(const Switch &owner, PortId port);
KESTREL_HOST_EXPORT zel_VDSPortStatus StatusOf(const Host &host, const Switch &owner, const Port &port);
KESTREL_HOST_EXPORT VSPMACLearningStats LearningStatsOf(const Switch &owner, PortId port);

/** The value of a property of a port under which its state is read; nothing for any other key. */
std::optional<std::string> ReadPortStatus(const Host &host, const Switch &owner, PortId port, std::string_view key);

}  // namespace kestrel::host
