/* The configuration that outlasts the one in use. */
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "host/core/base/errors.h"
#include "host/core/switch_config.h"
#include "host/core/switch_set.h"

namespace kestrel::host {

/** A switch as the store keeps it. */
struct SavedSwitch {
  SwitchConfig config;
  /** That of the running switch. */
  std::uint64_t number = 0;
};

/** Keeps the saved configuration of every switch, in memory. Every operation does all or nothing. */
class Store {
 public:
  /** Saves a new switch. Throws StatusError ZEL_EXISTS when one of its names is taken. */
  void AddSwitch(const SwitchConfig &config, std::uint64_t number) { switches_.Add(SavedSwitch{config, number}); }

  /** No effect when there is no such switch. */
  void RemoveSwitch(std::string_view id) {
    if (const SavedSwitch *saved = FindById(id)) switches_.Remove(*saved);
  }

  /** Null when there is none. */
  const SavedSwitch *FindById(std::string_view id) const { return switches_.FindById(id); }

  /** Whether a saved switch has this portset name or alias. */
  bool HasName(std::string_view name) const { return switches_.Find(name) != nullptr; }

  /** Saves a change of one switch, `change(config)`, which must itself do all or nothing. */
  template <typename Change>
  void Update(const std::string &id, Change change) {
    SavedSwitch *saved = switches_.FindById(id);
    if (saved == nullptr) throw FatalError("switch " + id + " runs and was never saved");
    change(saved->config);
  }

  /** Saves a change of every switch, `change(config)`, which must not throw. */
  template <typename Change>
  void UpdateAll(Change change) {
    for (SavedSwitch &saved : switches_.Items()) change(saved.config);
  }

  /** What is saved, in the order in which the switches were made. */
  auto Switches() const { return switches_.Items(); }
  /** To change them, or to write down what has changed. */
  SwitchSet<SavedSwitch> &switches() { return switches_; }
  const SwitchSet<SavedSwitch> &switches() const { return switches_; }

 private:
  SwitchSet<SavedSwitch> switches_;
};

}  // namespace kestrel::host
