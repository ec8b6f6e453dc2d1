#include "host/lab/refusal.h"

#include <utility>

namespace kestrel::host::lab {

Refusal::Refusal(int status, std::string why) : StatusError(status), why_(std::move(why)) {}

Refusal::~Refusal() = default;

}  // namespace kestrel::host::lab
