#include "host/core/properties/property_types.h"

#include <algorithm>
#include <array>

#include "host/core/base/errors.h"

namespace kestrel::host {
namespace {

constexpr auto kNoSync = static_cast<std::uint32_t>(NO_SYNC_PROP_TYPE);

constexpr auto kTypeRows = std::to_array<PropertyTypeRow>({
    // type, name, saved, replicated, synchronised, public
    {VOLATILE_PROP_TYPE, "volatile", false, false, true, true},
    {POLICY_PROP_TYPE, "policy", true, true, true, true},
    {CONFIG_PROP_TYPE, "config", true, true, true, true},
    {RUNTIME_PROP_TYPE, "runtime", false, true, true, true},
    {NO_REPLICATE_PROP_TYPE, "no-replicate", true, false, true, true},
    // The host calls nobody back when a property is set, so that this changes nothing.
    {NO_SET_LOCAL_CALLBACK_PROP_TYPE, "no-set-local-callback", true, true, true, true},
    {kNoSync, "no-sync", true, true, false, false},
});

/** The types of the rows for which something holds. */
constexpr std::uint32_t TypesThat(bool PropertyTypeRow::*holds) {
  std::uint32_t types = 0;
  for (const PropertyTypeRow &row : kTypeRows) types |= row.*holds ? row.type : 0;
  return types;
}

constexpr std::uint32_t kSaved = TypesThat(&PropertyTypeRow::is_saved);
constexpr std::uint32_t kReplicated = TypesThat(&PropertyTypeRow::is_replicated);
constexpr std::uint32_t kSynchronised = TypesThat(&PropertyTypeRow::is_synchronised);
constexpr std::uint32_t kPublic = TypesThat(&PropertyTypeRow::is_public);

static_assert(std::ranges::is_sorted(kTypeRows, {}, &PropertyTypeRow::type));
static_assert(kPublic == ALL_PUBLIC_PROP_TYPE && (kPublic | kNoSync) == kAllPropertyTypes);

bool Are(std::uint32_t type, std::uint32_t allowed) { return (type & ~allowed) == 0; }

}  // namespace

std::span<const PropertyTypeRow> PropertyTypeRows() { return kTypeRows; }

bool IsPropertyType(std::uint32_t type) { return type != 0 && Are(type, kAllPropertyTypes); }

std::uint32_t PropertyTypeOfRequest(std::uint32_t type) {
  if (type == 0) return CONFIG_PROP_TYPE;
  if (!IsPropertyType(type)) throw StatusError(ZEL_BAD_PARAM);
  return type;
}

bool IsSaved(std::uint32_t type) { return Are(type, kSaved); }
bool IsReplicated(std::uint32_t type) { return Are(type, kReplicated); }
bool IsSynchronised(std::uint32_t type) { return Are(type, kSynchronised); }
bool IsListed(std::uint32_t type, std::uint32_t mask) { return (type & mask) != 0 && Are(type & ~mask, kPublic); }

}  // namespace kestrel::host
