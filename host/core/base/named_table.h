/* Items that have an identifier and a name, such as ports. */
#pragma once

#include <map>
#include <ranges>
#include <string_view>
#include <unordered_map>
#include <utility>

#include "host/core/base/errors.h"
#include "host/core/base/text_map.h"
#include "kestrel/constants.h"

namespace kestrel::host {

/** Items in the order of their member `id`, found by it and by their member `name` without a scan. Both are unique in
    the table and never change while the item is in it. */
template <typename Item>
class NamedTable {
 public:
  using Id = decltype(Item::id);

  NamedTable() = default;
  NamedTable(const NamedTable &other) : items_(other.items_) {
    for (Item &item : Items()) Index(item);
  }
  NamedTable(NamedTable &&other) noexcept = default;
  NamedTable &operator=(const NamedTable &other) { return *this = NamedTable(other); }
  NamedTable &operator=(NamedTable &&other) noexcept = default;
  ~NamedTable() = default;

  /** Null when there is none. The pointer lives as long as the item is in the table. */
  const Item *Find(Id id) const { return FindIn(by_id_, id); }
  Item *Find(Id id) { return FindIn(by_id_, id); }
  const Item *FindNamed(std::string_view name) const { return FindIn(by_name_, name); }
  Item *FindNamed(std::string_view name) { return FindIn(by_name_, name); }

  /** Throws StatusError ZEL_EXISTS when the identifier or the name is taken. */
  void Add(Item item) {
    if (Find(item.id) != nullptr || FindNamed(item.name) != nullptr) throw StatusError(ZEL_EXISTS);
    const Id id = item.id;
    const auto place = items_.emplace(id, std::move(item)).first;
    try {
      Index(place->second);
    } catch (...) {
      Erase(place);
      throw;
    }
  }

  /** No effect when there is no such item. */
  void Remove(Id id) noexcept {
    const auto found = items_.find(id);
    if (found != items_.end()) Erase(found);
  }

  /** Removes the items for which `drop(item)` is true; it must not throw. */
  template <typename Drop>
  void RemoveIf(Drop drop) noexcept {
    for (auto item = items_.begin(); item != items_.end();) {
      if (drop(std::as_const(item->second))) {
        item = Erase(item);
      } else {
        ++item;
      }
    }
  }

  std::size_t size() const { return items_.size(); }
  auto Items() const { return std::views::values(items_); }
  auto Items() { return std::views::values(items_); }

  bool operator==(const NamedTable &other) const { return items_ == other.items_; }

 private:
  using Map = std::map<Id, Item>;

  template <typename Places, typename Key>
  static Item *FindIn(const Places &places, const Key &key) {
    const auto found = places.find(key);
    return found == places.end() ? nullptr : found->second;
  }
  void Index(Item &item) {
    by_id_.emplace(item.id, &item);
    by_name_.emplace(item.name, &item);
  }
  typename Map::iterator Erase(typename Map::iterator item) noexcept {
    by_id_.erase(item->first);
    by_name_.erase(item->second.name);
    return items_.erase(item);
  }

  Map items_;
  std::unordered_map<Id, Item *> by_id_;
  TextMap<Item *> by_name_;
};

}  // namespace kestrel::host
