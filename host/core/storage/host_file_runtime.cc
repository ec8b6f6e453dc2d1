// The tables of what traffic made of switches: MAC addresses, ports, and the parts that are written as a whole.
#include <algorithm>
#include <type_traits>
#include <utility>

#include "host/core/base/errors.h"
#include "host/core/storage/host_file_parts.h"
#include "kestrel/constants.h"

namespace kestrel::host {

namespace {

std::string_view BytesOfAddress(const MacAddress &address) {
  return {reinterpret_cast<const char *>(address.data()), address.size()};
}

}  // namespace

void HostFileTables::RemoveRuntime(std::uint64_t number) {
  for (Statement *remove :
       {&statements_->remove_addresses, &statements_->remove_port_runtimes, &statements_->remove_parts}) {
    remove->Run(number);
  }
  revisions_.erase(number);
}

void HostFileTables::WriteAddresses(MacTable &macs, std::uint64_t number, bool everything) {
  const auto put = [&](const MacKey &key, const MacEntry &entry) {
    statements_->put_address.Run(number, key.vlan, Blob{BytesOfAddress(key.address)}, static_cast<int>(entry.kind),
                                 entry.port, entry.last_seen.count(), entry.moves);
  };
  auto changes = macs.changes().Take();
  if (everything || changes.all) {
    statements_->remove_addresses.Run(number);
    for (const auto &[key, entry] : macs.entries()) put(key, entry);
    return;
  }
  for (const MacKey &key : Distinct(std::move(changes.keys))) {
    if (const MacEntry *entry = macs.Find(key)) {
      put(key, *entry);
    } else {
      statements_->remove_address.Run(number, key.vlan, Blob{BytesOfAddress(key.address)});
    }
  }
}

void HostFileTables::WritePorts(PortRuntimeTable &ports, std::uint64_t number, bool everything) {
  const auto put = [&](PortId port, const PortRuntime &runtime) {
    const std::string state = runtime.Save();
    statements_->put_port_runtime.Run(number, port, Blob{state});
  };
  auto changes = ports.changes().Take();
  if (everything || changes.all) {
    statements_->remove_port_runtimes.Run(number);
    for (const auto &[port, runtime] : ports.Items()) put(port, runtime);
    return;
  }
  for (const PortId port : Distinct(std::move(changes.keys))) {
    if (const PortRuntime *runtime = ports.Find(port)) {
      put(port, *runtime);
    } else {
      statements_->remove_port_runtime.Run(number, port);
    }
  }
}

void HostFileTables::WriteRuntime(Switch &running, bool everything) {
  WriteAddresses(running.runtime.macs, running.number, everything);
  WritePorts(running.runtime.ports, running.number, everything);
  ForEachPart(running.runtime, revisions_[running.number],
              [&](const char *name, const auto &part, std::uint64_t &revision) {
                if (!everything && revision == RevisionOf(part)) return;
                const std::string state = part.Save();
                statements_->put_part.Run(running.number, name, Blob{state});
                revision = RevisionOf(part);
              });
}

void HostFileTables::ReadRuntime(SwitchRuntime &runtime, std::uint64_t number) {
  std::vector<MacItem> items;
  Statement &addresses = statements_->get_addresses;
  addresses.Begin(number);
  while (addresses.Next()) {
    MacItem item{.key = {.vlan = addresses.Get<VlanId>(0), .address = {}},
                 .entry = {.kind = static_cast<VSMACAddrType>(addresses.Get<int>(2)),
                           .port = addresses.Get<PortId>(3),
                           .last_seen = TimePoint(addresses.Get<std::int64_t>(4)),
                           .moves = addresses.Get<std::uint32_t>(5)}};
    const std::string_view address = addresses.Bytes(1);
    if (address.size() != item.key.address.size()) throw StatusError(ZEL_INVALID_METADATA);
    std::ranges::copy(address, item.key.address.begin());
    items.push_back(item);
  }
  runtime.macs.Restore(std::move(items));

  Statement &ports = statements_->get_port_runtimes;
  ports.Begin(number);
  while (ports.Next()) runtime.ports.At(ports.Get<PortId>(0)) = PortRuntime::Load(ports.Bytes(1));

  Statement &parts = statements_->get_parts;
  parts.Begin(number);
  PartRevisions revisions;
  while (parts.Next()) {
    ForEachPart(runtime, revisions, [&](const char *name, auto &part, std::uint64_t & /*revision*/) {
      if (parts.Bytes(0) == name) part = std::decay_t<decltype(part)>::Load(parts.Bytes(1));
    });
  }
}

}  // namespace kestrel::host
