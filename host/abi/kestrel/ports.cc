/* The names of a port. */
#include "host/abi/arguments.h"
#include "host/abi/guard.h"
#include "host/core/process_host.h"
#include "kestrel/switch_config.h"

using namespace kestrel::host;
using namespace kestrel::host::abi;

KESTREL_HOST_EXPORT ZEL_ReturnStatus VSDVS_DvPortIDToPortID(const char *switchName, const char *portName,
                                                            zel_SwitchPortID *valueOut) {
  return Guarded([&] {
    ClearOutputs(valueOut);
    const auto name = SwitchName(switchName);
    const auto port = PortName(portName);
    SetOutput(valueOut, ProcessHost().FindSwitch(name).config.PortNamed(port).id);
  });
}
