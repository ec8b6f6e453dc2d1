/* Images of the state, of the configuration and of ports. */
#include <string>

#include "host/abi/arguments.h"
#include "host/abi/guard.h"
#include "host/abi/record_block.h"
#include "kestrel/state_store.h"

namespace kestrel::host::abi {
namespace {

std::string_view ImageArgument(const void *image, int length) {
  const auto bytes = BytesArgument(image, length);
  if (bytes.empty()) throw StatusError(ZEL_BAD_PARAM);
  return bytes;
}

/** Hands out what `image(host)` gives. */
template <typename Image>
ZEL_ReturnStatus HandOut(void **image_cell, int *length_cell, Image image,
                         const char *function = __builtin_FUNCTION()) {
  return ReadCall(
      [&] {
        ClearOutputs(image_cell, length_cell);
        const std::string bytes = image(ReadHost());
        SetOutput(image_cell, static_cast<void *>(BlockOf<char>(bytes)));
        SetOutput(length_cell, static_cast<int>(bytes.size()));
      },
      function);
}

/** A good name for the switch of an id. */
std::string_view NameOfId(const Host &host, const char *id) {
  return host.FindSwitchById(SwitchId(id)).config.spec().portset;
}

}  // namespace
}  // namespace kestrel::host::abi

using namespace kestrel::host;
using namespace kestrel::host::abi;

KESTREL_HOST_EXPORT ZEL_ReturnStatus DVSZEL_StateInit(void *image, int length) {
  return ChangeCall([&] { ChangeHost().InitState(ImageArgument(image, length)); });
}

KESTREL_HOST_EXPORT ZEL_ReturnStatus DVSState_ConfigDeserialize(void *image, int length) {
  return ChangeCall([&] { ChangeHost().ReplaceConfig(ImageArgument(image, length)); });
}

KESTREL_HOST_EXPORT ZEL_ReturnStatus DVSZEL_StateGet(void **imageCell, int *lengthCell) {
  return HandOut(imageCell, lengthCell, [](const Host &host) { return host.ImageOfState(); });
}

KESTREL_HOST_EXPORT ZEL_ReturnStatus DVSZEL_PersistentStateGet(void **imageCell, int *lengthCell) {
  return HandOut(imageCell, lengthCell, [](const Host &host) { return host.ImageOfSavedState(); });
}

KESTREL_HOST_EXPORT ZEL_ReturnStatus DVSZEL_PortStateGet(const char *switchId, const char *portId, void **imageCell,
                                                         int *lengthCell) {
  return HandOut(imageCell, lengthCell, [&](const Host &host) {
    const auto port = PortName(portId);
    return host.ImageOfPortInUse(NameOfId(host, switchId), port);
  });
}

KESTREL_HOST_EXPORT ZEL_ReturnStatus DVSZEL_PersistentPortStateGet(const char *switchId, const char *portId,
                                                                   VDSVersion version, void **imageCell,
                                                                   int *lengthCell) {
  return HandOut(imageCell, lengthCell, [&](const Host &host) {
    const auto port = PortName(portId);
    return host.ImageOfSavedPort(NameOfId(host, switchId), port, version);
  });
}
