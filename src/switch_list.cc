#include "switch_list.h"

#include <cstdio>
#include <cstdlib>

#include "kestrel/runtime_queries.h"

VSList *VSZEL_GetSwitchesPy(VSListType listType) {
  VSList *list = nullptr;
  const ZEL_ReturnStatus status = VSZEL_GetSwitches(listType, &list);
  if (status != ZEL_OK) {
    std::printf("failed: %x\n", static_cast<unsigned>(status));
    return nullptr;
  }
  return list;
}

void free_switches(VSList *list) { std::free(list); }

kestrel_Text VSList___getitem__(VSList *list, int index) {
  const std::size_t width = list->listType == VS_LIST_PS ? ZEL_PORTSET_NAME_MAX : ZEL_VDS_NAME_MAX_LEN;
  if (index >= list->count) {
    std::puts("Invalid array index");
    return {nullptr, 0};
  }
  if (index < 0) return {nullptr, 0};
  return {list->switches + static_cast<std::size_t>(index) * width, width};
}
