#include "host/core/process_host.h"

#include <utility>

#include "host/core/sample_host.h"

namespace kestrel::host {
namespace {

/** Never destroyed: scripts may still call while the process ends. */
std::unique_ptr<Host> &Installed() {
  static auto *installed = new std::unique_ptr<Host>;
  return *installed;
}

}  // namespace

Host &ProcessHost() {
  if (Installed() == nullptr) Installed() = MakeSampleHost();
  return *Installed();
}

void InstallProcessHost(std::unique_ptr<Host> host) { Installed() = std::move(host); }

}  // namespace kestrel::host
