#include "host/core/base/revision.h"

namespace kestrel::host {
namespace {

std::uint64_t last_number = 0;

}  // namespace

void Revision::Renew() noexcept { number_ = ++last_number; }

}  // namespace kestrel::host
