/* Items that have an identifier and a name, such as ports. */
#pragma once

#include <map>
#include <ranges>
#include <string_view>
#include <utility>

#include "host/core/errors.h"
#include "host/core/text_map.h"
#include "kestrel/constants.h"

namespace kestrel::host {

/** Items in the order of their member `id`, found by it and by their member `name` without a scan. Both are unique in
    the table and never change while the item is in it. */
template <typename Item>
class NamedTable {
 public:
  using Id = decltype(Item::id);

  /** Null when there is none. The pointer lives as long as the item is in the table. */
  const Item *Find(Id id) const {
    const auto found = items_.find(id);
    return found == items_.end() ? nullptr : &found->second;
  }
  Item *Find(Id id) { return const_cast<Item *>(std::as_const(*this).Find(id)); }
  const Item *FindNamed(std::string_view name) const {
    const auto found = ids_.find(name);
    return found == ids_.end() ? nullptr : Find(found->second);
  }
  Item *FindNamed(std::string_view name) { return const_cast<Item *>(std::as_const(*this).FindNamed(name)); }

  /** Throws StatusError ZEL_EXISTS when the identifier or the name is taken. */
  void Add(Item item) {
    if (Find(item.id) != nullptr || FindNamed(item.name) != nullptr) throw StatusError(ZEL_EXISTS);
    const auto name = ids_.emplace(item.name, item.id).first;
    try {
      const Id id = item.id;
      items_.emplace(id, std::move(item));
    } catch (...) {
      ids_.erase(name);
      throw;
    }
  }

  /** No effect when there is no such item. */
  void Remove(Id id) noexcept {
    const auto found = items_.find(id);
    if (found == items_.end()) return;
    ids_.erase(found->second.name);
    items_.erase(found);
  }

  /** Removes the items for which `drop(item)` is true; it must not throw. */
  template <typename Drop>
  void RemoveIf(Drop drop) noexcept {
    for (auto item = items_.begin(); item != items_.end();) {
      if (drop(std::as_const(item->second))) {
        ids_.erase(item->second.name);
        item = items_.erase(item);
      } else {
        ++item;
      }
    }
  }

  std::size_t size() const { return items_.size(); }
  auto Items() const { return std::views::values(items_); }
  auto Items() { return std::views::values(items_); }

  bool operator==(const NamedTable &) const = default;

 private:
  std::map<Id, Item> items_;
  TextMap<Id> ids_;
};

}  // namespace kestrel::host
