/* The host that a process starts with when nobody gave it another. */
#pragma once

#include <memory>

#include "host/core/host.h"

namespace kestrel::host {

/** A small machine room: switch "dvs-prod" with a group of three uplinks and a fourth beside it, switch "dvs-storage"
    with two, virtual machines and services plugged in, one NIC without link, and the addresses that some minutes of
    traffic leave behind. */
std::unique_ptr<Host> MakeSampleHost();

}  // namespace kestrel::host
