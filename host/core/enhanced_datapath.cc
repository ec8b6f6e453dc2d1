#include "host/core/enhanced_datapath.h"

#include <utility>

#include "host/core/base/bytes.h"
#include "host/core/base/errors.h"
#include "kestrel/constants.h"

namespace kestrel::host {
namespace {

void CheckWorld(std::int32_t world) {
  if (world < 1) throw StatusError(ZEL_INVALID_WORLD);
}

}  // namespace

void EnhancedDatapath::Activate(std::span<const DatapathPortset> portsets) {
  Portsets changed = portsets_;
  for (const DatapathPortset &portset : portsets) {
    Require(!portsets_.contains(portset.name), ZEL_IS_ENABLED);
    const State state{.switch_mode = portset.switch_mode, .portset_mode = portset.portset_mode};
    Require(changed.emplace(portset.name, state).second, ZEL_EXISTS);
  }
  portsets_.swap(changed);
}

void EnhancedDatapath::Deactivate(std::span<const DatapathPortset> portsets) {
  Portsets changed = portsets_;
  for (const DatapathPortset &portset : portsets) {
    Require(portsets_.contains(portset.name), ZEL_IS_DISABLED);
    Require(changed.erase(portset.name) != 0, ZEL_EXISTS);
  }
  portsets_.swap(changed);
}

void EnhancedDatapath::ActivateModules(std::string_view portset, std::span<const std::int32_t> modules) {
  std::set<std::int32_t> &active = Get(portset).modules;
  std::set<std::int32_t> changed = active;
  for (const std::int32_t module : modules) {
    Require(!active.contains(module), ZEL_IS_ENABLED);
    Require(changed.insert(module).second, ZEL_EXISTS);
  }
  active.swap(changed);
}

void EnhancedDatapath::DeactivateModules(std::string_view portset, std::span<const std::int32_t> modules) {
  std::set<std::int32_t> &active = Get(portset).modules;
  std::set<std::int32_t> changed = active;
  for (const std::int32_t module : modules) {
    Require(active.contains(module), ZEL_IS_DISABLED);
    Require(changed.erase(module) != 0, ZEL_EXISTS);
  }
  active.swap(changed);
}

void EnhancedDatapath::Associate(PortId port, std::int32_t world) {
  CheckWorld(world);
  const auto [place, is_new] = worlds_.emplace(port, world);
  Require(is_new || place->second == world, ZEL_BUSY);
  Require(is_new, ZEL_EXISTS);
}

void EnhancedDatapath::Dissociate(PortId port, std::int32_t world) {
  CheckWorld(world);
  Require(WorldOf(port) == world, ZEL_NOT_FOUND);
  ForgetPort(port);
}

void EnhancedDatapath::Clear() noexcept {
  portsets_.clear();
  worlds_.clear();
}

void EnhancedDatapath::ForgetPort(PortId port) noexcept { worlds_.erase(port); }

void EnhancedDatapath::ForgetPortset(std::string_view portset) noexcept {
  const auto found = portsets_.find(portset);
  if (found != portsets_.end()) portsets_.erase(found);
}

const EnhancedDatapath::State *EnhancedDatapath::Find(std::string_view portset) const {
  const auto found = portsets_.find(portset);
  return found == portsets_.end() ? nullptr : &found->second;
}

std::int32_t EnhancedDatapath::WorldOf(PortId port) const {
  const auto found = worlds_.find(port);
  return found == worlds_.end() ? 0 : found->second;
}

EnhancedDatapath::State &EnhancedDatapath::Get(std::string_view portset) {
  const auto found = portsets_.find(portset);
  Require(found != portsets_.end(), ZEL_NOT_READY);
  return found->second;
}

std::string EnhancedDatapath::Save() const {
  ByteWriter writer;
  writer.Put(static_cast<std::uint32_t>(portsets_.size()));
  for (const auto &[name, state] : portsets_) {
    writer.PutText(name);
    writer.Put(state.switch_mode);
    writer.Put(state.portset_mode);
    writer.Put(static_cast<std::uint32_t>(state.modules.size()));
    for (const std::int32_t module : state.modules) writer.Put(static_cast<std::uint32_t>(module));
  }
  for (const auto &[port, world] : worlds_) {
    writer.Put(port);
    writer.Put(static_cast<std::uint32_t>(world));
  }
  return writer.Take();
}

EnhancedDatapath EnhancedDatapath::Load(std::string_view bytes) {
  ByteReader reader(bytes);
  EnhancedDatapath loaded;
  for (auto count = reader.Get<std::uint32_t>(); count > 0; --count) {
    std::string name(reader.GetText());
    State state;
    state.switch_mode = reader.Get<std::uint32_t>();
    state.portset_mode = reader.Get<std::uint32_t>();
    for (auto modules = reader.Get<std::uint32_t>(); modules > 0; --modules) {
      state.modules.insert(static_cast<std::int32_t>(reader.Get<std::uint32_t>()));
    }
    loaded.portsets_.emplace(std::move(name), std::move(state));
  }
  while (reader.left() != 0) {
    const auto port = reader.Get<PortId>();
    loaded.worlds_.emplace(port, static_cast<std::int32_t>(reader.Get<std::uint32_t>()));
  }
  return loaded;
}

}  // namespace kestrel::host
