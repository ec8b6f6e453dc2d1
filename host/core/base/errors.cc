#include "host/core/base/errors.h"

namespace kestrel::host {

// The destructors stand here so that each class has one type description, in the base library.
StatusError::~StatusError() = default;
FatalError::~FatalError() = default;

const char *StatusError::what() const noexcept { return "the model refused the operation"; }

}  // namespace kestrel::host
