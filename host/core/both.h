/* Changing the configuration in use and the saved one together. */
#pragma once

#include "host/core/store.h"
#include "host/core/switch_config.h"

namespace kestrel::host {

/** Makes a change, `make(config)`, to the configuration in use and to the saved one, or to neither: `undo(config)`
    takes it back and must not throw. */
template <typename Make, typename Undo>
void MakeInBoth(SwitchConfig &in_use, Store &store, Make make, Undo undo) {
  make(in_use);
  try {
    store.Update(in_use.spec().id, make);
  } catch (...) {
    undo(in_use);
    throw;
  }
}

}  // namespace kestrel::host
