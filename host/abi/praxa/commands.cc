/* Commands on switches. */
#include "host/core/switch_command.h"

#include <cstdlib>
#include <string>

#include "host/abi/arguments.h"
#include "host/abi/guard.h"
#include "host/abi/record_block.h"
#include "kestrel/state_store.h"

namespace kestrel::host::abi {
namespace {

/** Null for a name that is none. */
const SwitchCommand *FindCommand(const char *name) {
  for (const SwitchCommand &command : SwitchCommands()) {
    if (name != nullptr && command.name == name) return &command;
  }
  return nullptr;
}

}  // namespace
}  // namespace kestrel::host::abi

using namespace kestrel::host;
using namespace kestrel::host::abi;

KESTREL_HOST_EXPORT ZEL_ReturnStatus DVSZEL_CmdExec(const char *switchId, const char *command, void *input,
                                                    int inputLength, void **outputCell, int *outputLengthCell) {
  // Handed out when the change is sure to last.
  char *output = nullptr;
  int length = 0;
  const SwitchCommand *found = FindCommand(command);
  const auto run = [&] {
    ClearOutputs(outputCell, outputLengthCell);
    const auto id = SwitchId(switchId);
    RequirePointer(command);
    const auto bytes = BytesArgument(input, inputLength);
    const std::string portset = ReadHost().FindSwitchById(id).config.spec().portset;
    if (found == nullptr) throw StatusError(ZEL_NOT_IMPLEMENTED);
    const std::string text = RunSwitchCommand(*found, ReadHost(), ChangeHost, portset, bytes);
    output = BlockOf<char>(text);
    length = static_cast<int>(text.size());
  };
  const bool changes = found != nullptr && found->change != nullptr;
  const ZEL_ReturnStatus status = changes ? ChangeCall(run) : ReadCall(run);
  if (status == ZEL_OK) {
    SetOutput(outputCell, static_cast<void *>(output));
    SetOutput(outputLengthCell, length);
  } else {
    std::free(output);
  }
  return status;
}
