#include "host/core/base/names.h"

#include "host/core/base/errors.h"
#include "kestrel/constants.h"
#include "kestrel/mirror_records.h"

namespace kestrel::host {

void CheckName(std::string_view name, std::size_t width) {
  if (name.empty() || name.find('\0') != std::string_view::npos) throw StatusError(ZEL_INVALID_NAME);
  if (name.size() >= width) throw StatusError(ZEL_NAME_TOO_LONG);
}

void CheckExternalId(std::string_view id) {
  if (!id.empty()) CheckName(id, sizeof(OpaqueDVPortData::externalId));
}

}  // namespace kestrel::host
