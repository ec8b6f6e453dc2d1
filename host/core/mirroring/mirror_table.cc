#include "host/core/mirroring/mirror_table.h"

#include <algorithm>
#include <limits>
#include <optional>
#include <utility>

#include "host/core/base/errors.h"
#include "host/core/base/names.h"
#include "host/core/base/record_bytes.h"

namespace kestrel::host {
namespace {

/** As far as the fields of an ERSPAN header reach. */
constexpr unsigned kMaxErspanId = 0x3ff;
constexpr unsigned kMaxErspanClass = 7;
constexpr unsigned kMaxErspanUnit = 3;

/** Checks a name in a field of a record. It must end within the field; an empty one may be allowed. */
template <std::size_t width>
void CheckField(const char (&field)[width], bool may_be_empty) {
  const std::string_view name = TextOf(field);
  if (!name.empty() || !may_be_empty) CheckName(name, width);
}

/** The four lists of a packed table. */
class Slots {
 public:
  explicit Slots(std::string_view packed) : packed_(packed), head_(RecordAt<DVMirrorSessionTable>(packed, 0)) {
    if (head_.magicNum != static_cast<zel_uint32>(VS_DVMIRROR_MAGIC_NUM)) throw StatusError(ZEL_INVALID_METADATA);
    if (head_.version < VS_DVMIRROR_VERSION_V1 || head_.version >= VS_DVMIRROR_VERSION_UNSUPPORTED) {
      throw StatusError(ZEL_VERSION_MISMATCH_MAJOR);
    }
    Require(packed.size() == SizeOfMirrorTable(head_));
  }

  const DVMirrorSessionTable &head() const { return head_; }
  DVMirrorSession Session(std::size_t i) { return Item<DVMirrorSession>(sizeof head_, i); }
  DVMirrorEntity Entity(std::size_t i) { return Item<DVMirrorEntity>(Entities(), i); }
  DVMirrorFilterRule Rule(std::size_t i) { return Item<DVMirrorFilterRule>(Rules(), i); }
  DVMirrorIpPrefix Prefix(std::size_t i) {
    return Item<DVMirrorIpPrefix>(Rules() + head_.numFilterRules * sizeof(DVMirrorFilterRule), i);
  }

 private:
  std::size_t Entities() const { return sizeof head_ + head_.numSessions * sizeof(DVMirrorSession); }
  std::size_t Rules() const { return Entities() + head_.numEntities * sizeof(DVMirrorEntity); }

  /** Slots that are shared are read as often as they are referred to, which a few bytes could do without end. */
  template <typename Record>
  Record Item(std::size_t start, std::size_t i) {
    read_ += sizeof(Record);
    if (read_ > kMaxPropertyValue) throw StatusError(ZEL_LIMIT_EXCEEDED);
    return RecordAt<Record>(packed_, start + i * sizeof(Record));
  }

  std::string_view packed_;
  DVMirrorSessionTable head_;
  /** In bytes: the size of the table were nothing shared. */
  std::size_t read_ = sizeof(DVMirrorSessionTable);
};

void CheckEntity(const DVMirrorEntity &entity) {
  Require(entity.type >= MIRROR_ENTTYPE_DVPORT && entity.type <= MIRROR_ENTTYPE_MAC);
  if (entity.type == MIRROR_ENTTYPE_DVPORT) CheckField(entity.dvPortId, false);
  if (entity.type == MIRROR_ENTTYPE_UPLINK) CheckField(entity.uplink.string, false);
  if (entity.type == MIRROR_ENTTYPE_VLAN && entity.vlan > kMaxVlanId) throw StatusError(ZEL_BAD_VLANID);
}

MirrorRule RuleOf(Slots &slots, std::size_t i) {
  MirrorRule rule{.head = slots.Rule(i), .prefixes = {}};
  const DVMirrorFilterRule &head = rule.head;
  const std::size_t count = std::size_t{head.numSrcIPs} + head.numDstIPs;
  Require(head.startIPIdx + count <= slots.head().numFilterIPs);
  Require(head.action == ACTION_DONT_MIRROR || head.action == ACTION_MIRROR);
  Require(head.has_srcports == 0 || head.srcPorts.begin <= head.srcPorts.end);
  Require(head.has_dstports == 0 || head.dstPorts.begin <= head.dstPorts.end);
  for (std::size_t slot = head.startIPIdx; slot < head.startIPIdx + count; ++slot) {
    const DVMirrorIpPrefix prefix = slots.Prefix(slot);
    Require(prefix.prefix_length <= (prefix.isIPv6 != 0 ? 128 : 32));
    rule.prefixes.push_back(prefix);
  }
  return rule;
}

std::uint64_t EntityCount(const DVMirrorSession &session) {
  return std::uint64_t{session.numDstEntities} + session.numSrcInEntities + session.numSrcOutEntities;
}

MirrorSession SessionOf(Slots &slots, std::size_t i) {
  MirrorSession session{.head = slots.Session(i), .entities = {}, .rules = {}};
  const DVMirrorSession &head = session.head;
  CheckField(head.sid, false);
  CheckField(head.dname, true);
  Require(head.type >= VS_DVMIRROR_SESSIONTYPE_MIXDST && head.type <= VS_DVMIRROR_SESSIONTYPE_LOGICAL_DVPORT);
  Require(head.uplinkFilter >= MIRROR_UPLINK_FILTER_NONE && head.uplinkFilter < MIRROR_UPLINK_FILTER_TYPE_MAX);
  Require(head.encapType >= DVMIRROR_ENCAP_GRE && head.encapType < DVMIRROR_ENCAP_TYPE_MAX);
  Require(head.erspanID <= kMaxErspanId && head.erspanCOS <= kMaxErspanClass && head.erspanGra <= kMaxErspanUnit);
  if (head.encapVlan > kMaxVlanId) throw StatusError(ZEL_BAD_VLANID);
  const std::uint64_t entities_end = head.startIdx + EntityCount(head);
  Require(entities_end <= slots.head().numEntities);
  const std::size_t rules_end = std::size_t{head.startRuleIdx} + head.numFilterRules;
  Require(rules_end <= slots.head().numFilterRules);
  for (std::size_t slot = head.startIdx; slot < entities_end; ++slot) {
    session.entities.push_back(slots.Entity(slot));
    CheckEntity(session.entities.back());
  }
  for (std::size_t slot = head.startRuleIdx; slot < rules_end; ++slot) session.rules.push_back(RuleOf(slots, slot));
  return session;
}

/** The narrower type, or StatusError ZEL_LIMIT_EXCEEDED. */
template <typename Count>
Count CountOf(std::size_t count) {
  if (count > std::numeric_limits<Count>::max()) throw StatusError(ZEL_LIMIT_EXCEEDED);
  return static_cast<Count>(count);
}

/** The session of that identifier, without taking the tables apart. */
std::optional<DVMirrorSession> FindSession(const SwitchConfig &config, std::string_view id) {
  std::optional<DVMirrorSession> found;
  ForEachMirrorTable(config, [&](std::string_view packed, const Port * /*port*/) {
    const auto count = RecordAt<DVMirrorSessionTable>(packed, 0).numSessions;
    for (std::size_t i = 0; i < count; ++i) {
      const auto session =
          RecordAt<DVMirrorSession>(packed, sizeof(DVMirrorSessionTable) + i * sizeof(DVMirrorSession));
      if (TextOf(session.sid) == id) found = session;
    }
  });
  return found;
}

}  // namespace

std::string_view MirrorSession::id() const { return TextOf(head.sid); }

const MirrorSession *MirrorTable::Find(std::string_view id) const {
  const auto found = std::ranges::find(sessions, id, &MirrorSession::id);
  return found == sessions.end() ? nullptr : &*found;
}

std::uint64_t SizeOfMirrorTable(const DVMirrorSessionTable &head) {
  return sizeof head + std::uint64_t{head.numSessions} * sizeof(DVMirrorSession) +
         std::uint64_t{head.numEntities} * sizeof(DVMirrorEntity) +
         std::uint64_t{head.numFilterRules} * sizeof(DVMirrorFilterRule) +
         std::uint64_t{head.numFilterIPs} * sizeof(DVMirrorIpPrefix);
}

MirrorTable MirrorTableOf(std::string_view packed) {
  Slots slots(packed);
  MirrorTable table{.version = slots.head().version, .sessions = {}};
  for (std::size_t i = 0; i < slots.head().numSessions; ++i) {
    MirrorSession session = SessionOf(slots, i);
    if (table.Find(session.id()) != nullptr) throw StatusError(ZEL_EXISTS);
    table.sessions.push_back(std::move(session));
  }
  return table;
}

std::string Pack(const MirrorTable &table) {
  std::string sessions, entities, rules, prefixes;
  std::size_t entity_count = 0, rule_count = 0, prefix_count = 0;
  for (const MirrorSession &session : table.sessions) {
    DVMirrorSession head = session.head;
    head.startIdx = CountOf<zel_uint32>(entity_count);
    head.startRuleIdx = CountOf<zel_uint16>(rule_count);
    sessions += BytesOf(head);
    for (const DVMirrorEntity &entity : session.entities) entities += BytesOf(entity);
    for (const MirrorRule &rule : session.rules) {
      DVMirrorFilterRule rule_head = rule.head;
      rule_head.startIPIdx = CountOf<zel_uint16>(prefix_count);
      rules += BytesOf(rule_head);
      for (const DVMirrorIpPrefix &prefix : rule.prefixes) prefixes += BytesOf(prefix);
      prefix_count += rule.prefixes.size();
    }
    entity_count += session.entities.size();
    rule_count += session.rules.size();
  }
  DVMirrorSessionTable head{};
  head.magicNum = static_cast<zel_uint32>(VS_DVMIRROR_MAGIC_NUM);
  head.version = table.version;
  head.numSessions = CountOf<zel_uint32>(table.sessions.size());
  head.numEntities = CountOf<zel_uint32>(entity_count);
  head.numFilterRules = CountOf<zel_uint16>(rule_count);
  head.numFilterIPs = CountOf<zel_uint16>(prefix_count);
  return BytesOf(head) + sessions + entities + rules + prefixes;
}

void CheckMirrorTable(std::string_view value, const PropertyContext &where) {
  const MirrorTable table = MirrorTableOf(value);
  if (where.may_dangle) return;
  ForEachMirrorTable(where.config, [&](std::string_view packed, const Port *port) {
    if (port == where.port) return;
    for (const MirrorSession &other : MirrorTableOf(packed).sessions) {
      if (table.Find(other.id()) != nullptr) throw StatusError(ZEL_EXISTS);
    }
  });
}

std::string NoMirrorSessions(const PropertyContext & /*where*/) { return Pack({}); }

std::vector<std::string> MirrorSessionsOf(const SwitchConfig &config) {
  std::vector<std::string> ids;
  ForEachMirrorTable(config, [&ids](std::string_view packed, const Port * /*port*/) {
    for (const MirrorSession &session : MirrorTableOf(packed).sessions) ids.emplace_back(session.id());
  });
  return ids;
}

DVMirrorSession MirrorSessionNamed(const SwitchConfig &config, std::string_view id) {
  const auto found = FindSession(config, id);
  if (!found) throw StatusError(ZEL_NOT_FOUND);
  return *found;
}

bool HasMirrorSession(const SwitchConfig &config, std::string_view id) noexcept {
  return FindSession(config, id).has_value();
}

}  // namespace kestrel::host
