/* Which items of a table have changed, so that only those need to be written down. */
#pragma once

#include <new>
#include <utility>
#include <vector>

namespace kestrel::host {

/** The keys of the items that have been changed, added or removed, for whoever writes the table down to look up. Keeps
    nothing until it is enabled, since most hosts live in memory alone. A key may be in it more than once. */
template <typename Key>
class ChangeList {
 public:
  struct Changes {
    /** Everything may have changed, whatever `keys` says. */
    bool all = false;
    std::vector<Key> keys;

    bool empty() const { return !all && keys.empty(); }
  };

  ChangeList() = default;
  /** A copy belongs to another table, of which nobody keeps account yet. */
  ChangeList(const ChangeList & /*other*/) noexcept {}
  /** A table that becomes as another one may have changed in everything. */
  ChangeList &operator=(const ChangeList & /*other*/) noexcept {
    NoteAll();
    return *this;
  }
  ~ChangeList() = default;

  /** From here on changes are kept. */
  void Enable() { is_enabled_ = true; }
  bool is_enabled() const { return is_enabled_; }

  void Note(const Key &key) noexcept {
    if (!is_enabled_ || changes_.all) return;
    try {
      if (changes_.keys.empty() || changes_.keys.back() != key) changes_.keys.push_back(key);
    } catch (const std::bad_alloc &) {
      NoteAll();
    }
  }
  /** For changes of many items at once. */
  void NoteAll() noexcept {
    if (!is_enabled_) return;
    changes_.all = true;
    changes_.keys.clear();
  }

  /** What has changed since the last Take. */
  const Changes &Pending() const { return changes_; }
  Changes Take() noexcept { return std::exchange(changes_, {}); }

  /** What two tables hold is compared, not how it came to be. */
  bool operator==(const ChangeList & /*other*/) const { return true; }

 private:
  bool is_enabled_ = false;
  Changes changes_;
};

}  // namespace kestrel::host
