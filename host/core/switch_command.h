/* Commands on a switch, for people who look after it. */
#pragma once

#include <span>
#include <string>
#include <string_view>

#include "host/core/host.h"
#include "host/export.h"

namespace kestrel::host {

struct SwitchCommand {
  std::string_view name;
  std::string_view summary;
  /** Whether the command asks for input; one that does not takes none. */
  bool has_input;
  /** Gives the output; one of the two. */
  std::string (*read)(const Host &host, const Switch &target);
  std::string (*change)(Host &host, const Switch &target, std::string_view input);
};

KESTREL_HOST_EXPORT std::span<const SwitchCommand> SwitchCommands();

/** Runs a command on the switch of that portset name or alias; gives its output. `to_change` gives the host again, to a
    command that changes it. Throws StatusError ZEL_BAD_PARAM for input to a command that takes none, ZEL_NOT_FOUND for
   an unknown switch, and whatever the command meets. */
KESTREL_HOST_EXPORT std::string RunSwitchCommand(const SwitchCommand &command, const Host &host, Host &(*to_change)(),
                                                 std::string_view owner, std::string_view input);

}  // namespace kestrel::host
