/* Where the enhanced datapath is at work: on which portsets, for which modules, for the ports of which worlds. */
#pragma once

#include <cstdint>
#include <map>
#include <set>
#include <span>
#include <string>
#include <string_view>

#include "host/core/port_id.h"
#include "host/export.h"

namespace kestrel::host {

/** A portset that the datapath is to be activated on. */
struct DatapathPortset {
  std::string name;
  /** As the request has them. */
  std::uint32_t switch_mode = 0;
  std::uint32_t portset_mode = 0;

  bool operator==(const DatapathPortset &) const = default;
};

/** Every operation does all or nothing; that portsets and ports exist is for the caller to know. */
class KESTREL_HOST_EXPORT EnhancedDatapath {
 public:
  struct State {
    std::uint32_t switch_mode = 0;
    std::uint32_t portset_mode = 0;
    /** By identifier. */
    std::set<std::int32_t> modules{};

    bool operator==(const State &) const = default;
  };

  /** Throws StatusError ZEL_IS_ENABLED when it is active on one of the portsets, ZEL_EXISTS for one that is named
      twice. */
  void Activate(std::span<const DatapathPortset> portsets);
  /** With its modules. Throws StatusError ZEL_IS_DISABLED when it is not active on one of the portsets, ZEL_EXISTS for
      one that is named twice. */
  void Deactivate(std::span<const DatapathPortset> portsets);

  /** Throw StatusError ZEL_NOT_READY when the datapath is not active on the portset, ZEL_EXISTS for a module that is
      named twice, ZEL_IS_ENABLED or ZEL_IS_DISABLED for one that is as it is asked to be. */
  void ActivateModules(std::string_view portset, std::span<const std::int32_t> modules);
  void DeactivateModules(std::string_view portset, std::span<const std::int32_t> modules);

  /** Throws StatusError ZEL_INVALID_WORLD for a world below 1, ZEL_EXISTS when the port is that world's, ZEL_BUSY when
      it is another's. */
  void Associate(PortId port, std::int32_t world);
  /** Throws StatusError ZEL_INVALID_WORLD for a world below 1, ZEL_NOT_FOUND when the port is not that world's. */
  void Dissociate(PortId port, std::int32_t world);

  /** Ends all of it. */
  void Clear() noexcept;
  void ForgetPort(PortId port) noexcept;
  void ForgetPortset(std::string_view portset) noexcept;

  /** Null when it is not active there. */
  const State *Find(std::string_view portset) const;
  /** 0 for none. */
  std::int32_t WorldOf(PortId port) const;

  /** The state as bytes, and back. Load throws StatusError ZEL_INVALID_METADATA for bytes that are none. */
  std::string Save() const;
  static EnhancedDatapath Load(std::string_view bytes);

  bool operator==(const EnhancedDatapath &) const = default;

 private:
  using Portsets = std::map<std::string, State, std::less<>>;

  State &Get(std::string_view portset);

  Portsets portsets_;
  std::map<PortId, std::int32_t> worlds_;
};

}  // namespace kestrel::host
