/* Arrays that the caller of a function is going to own. */
#pragma once

#include <cstddef>
#include <vector>

#include "host/abi/arguments.h"
#include "host/abi/record_block.h"

namespace kestrel::host::lab {

/** Hands the items out as one block from malloc. Throws std::bad_alloc. */
template <typename Item>
void HandOut(const std::vector<Item> &items, Item **cell, std::size_t *count_cell) {
  const std::string_view bytes(reinterpret_cast<const char *>(items.data()), items.size() * sizeof(Item));
  abi::SetOutput(cell, abi::BlockOf<Item>(bytes));
  abi::SetOutput(count_cell, items.size());
}

}  // namespace kestrel::host::lab
