#include "address_text.h"

kestrel_Text zel_Name___repr__(zel_Name *name) { return {name->string, sizeof name->string}; }

kestrel_Text VSLAGStatus_get_name(VSLAGStatus *status) {
  return {reinterpret_cast<const char *>(status->name), sizeof status->name};
}

kestrel_Text VSLAGStatus_get_uplink_name(VSLAGStatus *status, int index) {
  const auto i = static_cast<zel_uint32>(index);
  if (i >= status->numUplinks) return {nullptr, 0};
  return {status->uplinkNames[i].string, sizeof status->uplinkNames[i].string};
}
