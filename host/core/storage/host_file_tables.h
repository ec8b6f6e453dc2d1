/* What a host file holds: its tables, writing a host's changes into them, and reading a host out of them.
   docs/host-file.md shows the tables. */
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "host/core/host.h"
#include "host/core/storage/database.h"

namespace kestrel::host {

/** Marks a database as a host file: PRAGMA application_id, "kest" in ASCII. */
inline constexpr std::uint32_t kHostFileMark = 0x6b657374;
/** PRAGMA user_version: the layout of the tables. A file of a later one is not touched. */
inline constexpr std::int64_t kHostFileVersion = 1;

/** The tables of one open host file. Every operation that reads or writes the file throws as ThrowStorageError does and
    works within the caller's transaction. */
class HostFileTables {
 public:
  explicit HostFileTables(Database &database);
  ~HostFileTables();

  /** Makes the tables in an empty database. */
  void Create();

  /** Puts what is in the file in the place of a host, whose changes are kept for Write from here on. Throws StatusError
      ZEL_INVALID_METADATA for contents that are no host; the host is as it was then. */
  void Read(Host &host);

  /** Whether there is anything to write since Read or Write. */
  bool HasChanges(const Host &host) const;
  /** Writes what has changed since Read or Write. */
  void Write(Host &host);
  /** Writes everything anew, and keeps the host's changes for Write from here on. */
  void WriteAll(Host &host);

 private:
  /** Which of the two configurations of a switch. */
  enum class Side : std::uint8_t { kSaved, kRunning };
  /** All statements, each of which is prepared when it is first needed. */
  struct Statements;
  /** What the file has of the parts of a running switch that are written as a whole. */
  struct PartRevisions;
  /** A number that the host has as a whole. */
  struct NumberRow {
    const char *name;
    std::int64_t (*get)(const Host &host);
    void (*set)(Host &host, std::int64_t value);
  };
  /** The numbers of the switches, by their ids. */
  using SwitchNumbers = std::map<std::string, std::uint64_t, std::less<>>;

  static const std::vector<NumberRow> &NumberRows();
  static std::vector<std::int64_t> NumbersOf(const Host &host);
  static const char *NameOf(Side side) { return side == Side::kSaved ? "saved" : "running"; }
  SwitchNumbers &SwitchNumbersOf(Side side) { return side == Side::kSaved ? saved_numbers_ : running_numbers_; }

  bool HasChanges(const Switch &running) const;
  template <typename Item>
  bool HasChanges(const SwitchSet<Item> &switches) const;
  void WriteHost(const Host &host);
  template <typename Item>
  void WriteSwitches(SwitchSet<Item> &switches, Side side);
  template <typename Item>
  void WriteSwitch(Item &item, Side side);
  void RemoveSwitch(std::string_view id, Side side);
  void RemoveConfig(std::uint64_t number, Side side);
  void WriteConfig(const SwitchConfig &config, std::uint64_t number, Side side);
  void WritePart(const SwitchConfig &config, const ConfigPart &part, std::uint64_t number, Side side);
  void WriteSpec(const SwitchSpec &spec, std::uint64_t number, Side side);
  void WritePort(const SwitchConfig &config, const Port &port, std::uint64_t number, Side side);
  void WriteLag(const Lag &lag, std::uint64_t number, Side side);
  void WriteProperty(PropertyPlace place, std::string_view key, const Property &property, std::uint64_t number,
                     Side side);
  void WriteProperties(const PropertySet &properties, PropertyPlace place, std::uint64_t number, Side side);
  void RemoveRuntime(std::uint64_t number);
  void WriteRuntime(Switch &running, bool everything);
  void WriteAddresses(MacTable &macs, std::uint64_t number, bool everything);
  void WritePorts(PortRuntimeTable &ports, std::uint64_t number, bool everything);

  /** Takes nothing for being in the file. */
  void Forget();
  void ReadHost(Host &host);
  template <typename Item>
  void ReadSwitches(SwitchSet<Item> &switches, Side side);
  void ReadConfig(SwitchConfig &config, std::uint64_t number, Side side);
  void ReadRuntime(SwitchRuntime &runtime, std::uint64_t number);

  std::unique_ptr<Statements> statements_;
  Database &database_;
  /** As they are in the file, by their place in NumberRows. */
  std::vector<std::int64_t> numbers_;
  NicTable nics_;
  RuntimeOptions options_;
  EnhancedDatapath datapath_;
  std::map<std::uint64_t, PartRevisions> revisions_;
  SwitchNumbers saved_numbers_;
  SwitchNumbers running_numbers_;
};

}  // namespace kestrel::host
