/* Any bytes as one of the values that a host file keeps as a whole, and as a packed list of runtime options: they are
   refused, or what was read is written and read as the same.

   Input: which of them (one byte), the bytes. */
#include <vector>

#include "host/core/base/errors.h"
#include "host/core/client.h"
#include "host/core/enhanced_datapath.h"
#include "host/core/mac_table.h"
#include "host/core/mirroring/mirror_runtime.h"
#include "host/core/multicast/multicast_table.h"
#include "host/core/nic.h"
#include "host/core/runtime_options.h"
#include "host/core/teaming/team_runtime.h"
#include "host/core/traffic/port_runtime.h"
#include "tests/fuzz/ensure.h"
#include "tests/fuzz/steps.h"

using namespace kestrel::host;

namespace {

template <typename Value>
void TryValue(const std::string &bytes) {
  const Value value = Value::Load(bytes);
  const std::string saved = value.Save();
  Ensure(Value::Load(saved).Save() == saved);
}

/** Applies a list, and the list of all options that comes of it. */
void TryOptions(const std::string &bytes) {
  RuntimeOptions options;
  const RuntimeOptions before;
  try {
    options.Apply(bytes);
  } catch (const StatusError &) {
    Ensure(options == before);
    throw;
  }
  std::vector<std::uint16_t> codes;
  for (std::uint16_t code = 0; code < VS_NUM_RT_OPT; ++code) codes.push_back(code);
  RuntimeOptions again;
  again.Apply(options.Pack(codes));
  Ensure(again == options);
}

constexpr void (*kTries[])(const std::string &) = {
    TryValue<MulticastTable>, TryValue<MacEntry>,    TryValue<EnhancedDatapath>,
    TryValue<TeamRuntime>,    TryValue<Nic>,         TryValue<Client>,
    TryValue<MirrorRuntime>,  TryValue<PortRuntime>, TryOptions,
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
  Steps steps(data, size);
  const std::size_t which = steps.Choice(std::size(kTries));
  try {
    kTries[which](steps.Rest());
  } catch (const StatusError &) {  // NOLINT(bugprone-empty-catch): a refusal is one of the two good ends
  }
  return 0;
}
