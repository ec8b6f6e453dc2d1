/* The NICs of the host and what they are connected to. */
#include <algorithm>
#include <iterator>
#include <string>
#include <vector>

#include "host/abi/record_block.h"
#include "host/core/base/record_bytes.h"
#include "host/lab/call.h"
#include "host/lab/handing_out.h"
#include "host/lab/refusal.h"
#include "kestrel/lab.h"

namespace kestrel::host::lab {
namespace {

zel_Bool BoolOf(bool value) { return value ? 1 : 0; }

std::string NameIn(const KestrelLabNic &record) {
  const std::string_view name = TextOf(record.name);
  if (name.size() == sizeof record.name) throw StatusError(ZEL_NAME_TOO_LONG);
  return std::string(name);
}

LacpMode ModeOf(KestrelLabLacpMode mode) {
  switch (mode) {
    case KESTREL_LAB_LACP_NONE:
      return LacpMode::kNone;
    case KESTREL_LAB_LACP_PASSIVE:
      return LacpMode::kPassive;
    case KESTREL_LAB_LACP_ACTIVE:
      return LacpMode::kActive;
  }
  throw Refusal(ZEL_BAD_PARAM, "LACP has no such mode");
}

KestrelLabLacpMode NumberOf(LacpMode mode) {
  switch (mode) {
    case LacpMode::kNone:
      return KESTREL_LAB_LACP_NONE;
    case LacpMode::kPassive:
      return KESTREL_LAB_LACP_PASSIVE;
    case LacpMode::kActive:
      return KESTREL_LAB_LACP_ACTIVE;
  }
  throw FatalError("a far end has an unknown mode");
}

/** What is written in a record, over a NIC as it is. */
Nic NicOf(const KestrelLabNic &record, Nic nic) {
  nic.link = {.state = record.state, .speed = record.speed, .duplex = record.duplex};
  nic.is_enabled = record.isEnabled != 0;
  MacAddress address;
  std::ranges::copy(record.mac, address.begin());
  if (address != MacAddress{}) nic.address = address;
  nic.has_driver = record.hasDriver != 0;
  nic.error_percent = record.errorPercent;
  nic.is_blocked = record.isBlocked != 0;
  nic.numa_node = record.numaNode;
  nic.hears_beacons = record.hearsBeacons != 0;
  nic.partner.mode = ModeOf(record.partnerMode);
  std::ranges::copy(record.partnerSystem, nic.partner.system.begin());
  nic.partner.system_priority = record.partnerSystemPriority;
  nic.partner.key = record.partnerKey;
  nic.partner.collects = record.partnerCollects != 0;
  nic.partner.distributes = record.partnerDistributes != 0;
  nic.partner.short_timeout = record.partnerShortTimeout != 0;
  return nic;
}

KestrelLabNic RecordOf(const std::string &name, const Nic &nic) {
  KestrelLabNic record{};
  abi::SetText(record.name, name);
  record.state = nic.link.state;
  record.speed = nic.link.speed;
  record.duplex = nic.link.duplex;
  record.numaNode = nic.numa_node;
  std::ranges::copy(nic.address, record.mac);
  record.isEnabled = BoolOf(nic.is_enabled);
  record.hasDriver = BoolOf(nic.has_driver);
  record.isBlocked = BoolOf(nic.is_blocked);
  record.hearsBeacons = BoolOf(nic.hears_beacons);
  record.errorPercent = nic.error_percent;
  std::ranges::copy(nic.partner.system, record.partnerSystem);
  record.partnerSystemPriority = nic.partner.system_priority;
  record.partnerKey = nic.partner.key;
  record.partnerMode = NumberOf(nic.partner.mode);
  record.partnerCollects = BoolOf(nic.partner.collects);
  record.partnerDistributes = BoolOf(nic.partner.distributes);
  record.partnerShortTimeout = BoolOf(nic.partner.short_timeout);
  return record;
}

}  // namespace
}  // namespace kestrel::host::lab

using namespace kestrel::host;
using namespace kestrel::host::lab;

KESTREL_HOST_EXPORT ZEL_ReturnStatus kestrel_lab_plug_nic(const KestrelLabNic *nic) {
  return ChangeInLab([&] {
    abi::RequirePointer(nic);
    const std::string name = NameIn(*nic);
    // The table makes an address for a NIC that comes without one.
    NicTable trial = ReadHost().nics();
    trial.Add(name, kNoLink);
    ChangeHost().AddNic(name, NicOf(*nic, trial.Get(name)));
  });
}

KESTREL_HOST_EXPORT ZEL_ReturnStatus kestrel_lab_pull_nic(const char *nicName) {
  return ChangeInLab([&] { ChangeHost().RemoveNic(abi::NicName(nicName)); });
}

KESTREL_HOST_EXPORT ZEL_ReturnStatus kestrel_lab_set_nic(const KestrelLabNic *nic) {
  return ChangeInLab([&] {
    abi::RequirePointer(nic);
    const std::string name = NameIn(*nic);
    Host &host = ChangeHost();
    host.SetNic(name, NicOf(*nic, host.nics().Get(name)));
  });
}

KESTREL_HOST_EXPORT ZEL_ReturnStatus kestrel_lab_list_nics(KestrelLabNic **nicsCell, size_t *countCell) {
  return ReadInLab([&] {
    abi::ClearOutputs(nicsCell, countCell);
    std::vector<KestrelLabNic> records;
    for (const auto &[name, nic] : ReadHost().nics().Items()) records.push_back(RecordOf(name, nic));
    HandOut(records, nicsCell, countCell);
  });
}
