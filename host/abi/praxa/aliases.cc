/* From one name of a switch to another. */
#include "host/abi/arguments.h"
#include "host/abi/guard.h"
#include "host/core/process_host.h"
#include "kestrel/state_store.h"

namespace kestrel::host::abi {
namespace {

/** The host has switches of one type only. */
ZEL_ReturnStatus IdOfAlias(const char *alias, char *id, const char *function = __builtin_FUNCTION()) {
  return ReadCall(
      [&] {
        ClearText(id, ZEL_VDS_ID_MAX_LEN);
        SetTextOutput(id, ReadHost().FindSwitchByAlias(Alias(alias)).config.spec().id, ZEL_VDS_ID_MAX_LEN);
      },
      function);
}

}  // namespace
}  // namespace kestrel::host::abi

using namespace kestrel::host;
using namespace kestrel::host::abi;

KESTREL_HOST_EXPORT ZEL_ReturnStatus DVSAliasToSwitchId(const char *alias, char exactText[64]) {
  return IdOfAlias(alias, exactText);
}

KESTREL_HOST_EXPORT ZEL_ReturnStatus DVSAliasToSwitchIdAllTypes(const char *alias, char exactText[64]) {
  return IdOfAlias(alias, exactText);
}

KESTREL_HOST_EXPORT ZEL_ReturnStatus DVSPortsetNameToAlias(const char *portsetName, char exactText[128]) {
  return ReadCall([&] {
    ClearText(exactText, PORTSET_NAME_MAX);
    const auto name = SwitchName(portsetName);
    const SwitchSpec &spec = ReadHost().FindSwitch(name).config.spec();
    if (spec.portset != name) throw StatusError(ZEL_NOT_FOUND);
    SetTextOutput(exactText, spec.alias, PORTSET_NAME_MAX);
  });
}

KESTREL_HOST_EXPORT ZEL_ReturnStatus DVSAliasToPortsetName(const char *alias, char portsetName[128]) {
  return UnarmedReadCall([&] {
    ClearText(portsetName, PORTSET_NAME_MAX);
    SetTextOutput(portsetName, ReadHost().FindSwitchByAlias(Alias(alias)).config.spec().portset, PORTSET_NAME_MAX);
  });
}
