/* Switches, found by each of their names. */
#pragma once

#include <memory>
#include <ranges>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "host/core/base/change_list.h"
#include "host/core/base/errors.h"
#include "host/core/base/text_map.h"
#include "host/core/switch_config.h"
#include "kestrel/constants.h"

namespace kestrel::host {

/** Items with a SwitchConfig as their member `config`, in the order in which they were added, found by each of the
    names of the switch without a scan. An item stays at its address until it is removed.

    Whatever is handed out to be changed counts as changed: the set notes its id in changes(), and what became of it is
    told by the item's own lists. */
template <typename Item>
class SwitchSet {
 public:
  SwitchSet() = default;
  SwitchSet(const SwitchSet &other) { CopyFrom(other); }
  SwitchSet(SwitchSet &&) noexcept = default;
  SwitchSet &operator=(const SwitchSet &other) { return *this = SwitchSet(other); }
  SwitchSet &operator=(SwitchSet &&) noexcept = default;
  ~SwitchSet() = default;

  /** Throws StatusError ZEL_EXISTS when the identifier, the portset name or the alias is taken; the latter two share
      one space of names. */
  Item &Add(Item item) {
    const SwitchSpec &spec = item.config.spec();
    const SwitchSet &there = *this;
    if (there.FindById(spec.id) != nullptr || there.Find(spec.portset) != nullptr ||
        there.Find(spec.alias) != nullptr) {
      throw StatusError(ZEL_EXISTS);
    }
    Item &added = *list_.emplace_back(std::make_unique<Item>(std::move(item)));
    const SwitchSpec &names = added.config.spec();
    try {
      ids_.emplace(names.id, &added);
      names_.emplace(names.portset, &added);
      names_.emplace(names.alias, &added);
    } catch (...) {
      Remove(added);
      throw;
    }
    changes_.Note(names.id);
    return added;
  }

  void Remove(const Item &which) noexcept {
    const SwitchSpec &spec = which.config.spec();
    changes_.Note(spec.id);
    ids_.erase(spec.id);
    names_.erase(spec.portset);
    names_.erase(spec.alias);
    std::erase_if(list_, [&which](const Pointer &item) { return item.get() == &which; });
  }

  /** By portset name or alias; null when there is none. */
  const Item *Find(std::string_view name) const { return FindIn(names_, name); }
  Item *Find(std::string_view name) { return Noted(FindIn(names_, name)); }
  /** Null when there is none. */
  const Item *FindById(std::string_view id) const { return FindIn(ids_, id); }
  Item *FindById(std::string_view id) { return Noted(FindIn(ids_, id)); }

  std::size_t size() const { return list_.size(); }
  auto Items() const {
    return std::views::transform(list_, [](const Pointer &item) -> const Item & { return *item; });
  }
  auto Items() {
    for (const Pointer &item : list_) Noted(item.get());
    return std::views::transform(list_, [](const Pointer &item) -> Item & { return *item; });
  }

  /** By the ids of the switches. */
  ChangeList<std::string> &changes() { return changes_; }
  const ChangeList<std::string> &changes() const { return changes_; }

 private:
  using Pointer = std::unique_ptr<Item>;

  static Item *FindIn(const TextMap<Item *> &index, std::string_view key) {
    const auto found = index.find(key);
    return found == index.end() ? nullptr : found->second;
  }

  Item *Noted(Item *item) noexcept {
    if (item != nullptr) changes_.Note(item->config.spec().id);
    return item;
  }

  void CopyFrom(const SwitchSet &other) {
    for (const Item &item : other.Items()) Add(item);
  }

  std::vector<Pointer> list_;
  TextMap<Item *> names_;
  TextMap<Item *> ids_;
  ChangeList<std::string> changes_;
};

}  // namespace kestrel::host
