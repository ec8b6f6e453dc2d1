/* The one host of the process. */
#pragma once

#include <memory>

#include "host/core/host.h"
#include "host/export.h"

namespace kestrel::host {

/** The host that the libraries of this process answer from; the sample host, unless another was installed. */
KESTREL_HOST_EXPORT Host &ProcessHost();

/** Puts `host` in the place of the process's host; null brings back a new sample host. */
KESTREL_HOST_EXPORT void InstallProcessHost(std::unique_ptr<Host> host);

}  // namespace kestrel::host
