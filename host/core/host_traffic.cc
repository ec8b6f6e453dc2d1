/* Frames that come in, and captures. */
#include "host/core/base/errors.h"
#include "host/core/host.h"
#include "host/core/traffic/traffic.h"
#include "kestrel/constants.h"

namespace kestrel::host {

void Host::SendFrame(std::string_view owner, std::string_view port, FrameBytes bytes) {
  Switch &target = Get(owner);
  const Port &source = target.config.PortNamed(port);
  if (!source.client) throw StatusError(ZEL_IS_DISCONNECTED);
  if (source.client->type == VS_PORT_CLIENT_UPLINK &&
      LinkOfPluggedNic(source.client->name).state != ZEL_LINK_STATE_UP) {
    throw StatusError(ZEL_ENETDOWN);
  }
  Receive(*this, target, source, Frame(bytes));
}

void Host::StartCapture(std::string_view owner, std::string_view port, const CaptureOptions &options) {
  captures_.Start(FindSwitch(owner).config.PortNamed(port).id, options);
}

void Host::StopCapture(std::string_view owner, std::string_view port) {
  captures_.Stop(FindSwitch(owner).config.PortNamed(port).id);
}

Captured Host::TakeCapture(std::string_view owner, std::string_view port) {
  return captures_.Take(FindSwitch(owner).config.PortNamed(port).id);
}

}  // namespace kestrel::host
