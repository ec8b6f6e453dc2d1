/* The link aggregation groups of a switch. */
#include <vector>

#include "host/abi/arguments.h"
#include "host/abi/guard.h"
#include "host/abi/record_block.h"
#include "host/core/process_host.h"
#include "host/core/teaming/lag_status.h"
#include "kestrel/runtime_queries.h"

namespace kestrel::host::abi {
namespace {

void AppendLag(RecordBlock &block, const Lag &lag, const LagStatus &status) {
  VSLAGStatus record{};
  record.state = status.state;
  record.id = lag.id;
  SetText(record.name, lag.name);
  record.uplinkLinkupBitmap = status.up_members;
  record.numUplinks = static_cast<zel_uint32>(status.nics.size());
  block.Append(record);
  for (const std::string_view nic : status.nics) block.AppendText(nic, sizeof(zel_Name));
}

VSLAGTable *TableOf(const Host &host, const Switch &which) {
  const auto lags = which.config.lags().Items();
  std::vector<LagStatus> statuses;
  std::size_t size = sizeof(VSLAGTable);
  for (const Lag &lag : lags) {
    statuses.push_back(StatusOfLag(host, which, lag));
    size += sizeof(VSLAGStatus) + statuses.back().nics.size() * sizeof(zel_Name);
  }

  RecordBlock block(size);
  block.Append(VSLAGTable{.numLAGs = static_cast<zel_uint32>(statuses.size())});
  auto status = statuses.begin();
  for (const Lag &lag : lags) AppendLag(block, lag, *status++);
  return block.Release<VSLAGTable>();
}

}  // namespace
}  // namespace kestrel::host::abi

using namespace kestrel::host;
using namespace kestrel::host::abi;

KESTREL_HOST_EXPORT ZEL_ReturnStatus VSZEL_GetLAGTable(const char *switchName, VSLAGTable **tableOut) {
  return ReadCall([&] {
    ClearOutputs(tableOut);
    const Host &host = ReadHost();
    SetOutput(tableOut, TableOf(host, host.FindSwitch(SwitchName(switchName))));
  });
}
