#include "host/core/multicast/membership.h"

#include <algorithm>
#include <iterator>
#include <utility>

#include "host/core/base/kept_values.h"

namespace kestrel::host {
namespace {

using Addresses = std::vector<IpAddress>;

bool Has(const Addresses &addresses, const IpAddress &address) {
  return std::ranges::binary_search(addresses, address);
}

/** What a record says where sources cannot be said; nothing when it says nothing then. */
std::optional<RecordType> WithoutSources(const GroupRecord &record) {
  switch (record.type) {
    case RecordType::kIsExclude:
    case RecordType::kToExclude:
      return record.type;
    case RecordType::kToInclude:
      if (record.sources.empty()) return RecordType::kToInclude;
      break;
    case RecordType::kIsInclude:
    case RecordType::kAllow:
      if (record.sources.empty()) return std::nullopt;
      break;
    case RecordType::kBlock:
      return std::nullopt;
  }
  return RecordType::kIsExclude;
}

}  // namespace

Doubt Membership::Apply(const GroupRecord &record, Generation generation, const MembershipRules &rules, TimePoint now) {
  GroupRecord read = record;
  if (generation > rules.generation) {
    const auto type = WithoutSources(record);
    if (!type) return {};
    read = {*type, record.group};
    generation = rules.generation;
  }
  if (read.type != RecordType::kToInclude) NoteGeneration(generation, rules, now);
  const Generation common = GenerationAt(now);
  if (common != Generation::kSources) {
    // Hosts that cannot say which sources they want would lose those that others block.
    if (read.type == RecordType::kBlock) return {};
    if (read.type == RecordType::kToExclude) read.sources.clear();
    if (common == Generation::kJoin && read.type == RecordType::kToInclude) return {};
  }
  const bool asks = read.type != RecordType::kBlock;
  Doubt doubt = mode_ == SourceMode::kInclude ? ApplyToInclude(read, rules, now) : ApplyToExclude(read, rules, now);
  if (sources_.size() > rules.sources) {
    if (mode_ == SourceMode::kInclude || asks) until_ = Later(now, rules.lifetime);
    mode_ = SourceMode::kExclude;
    sources_.clear();
    doubt = {};
  }
  updated_ = now;
  Lower(doubt, Later(now, rules.leaving));
  if (rules.leaving == Duration::zero()) Expire(now);
  return doubt;
}

Doubt Membership::ApplyToInclude(const GroupRecord &record, const MembershipRules &rules, TimePoint now) {
  const TimePoint renewed = Later(now, rules.lifetime);
  Doubt doubt;
  switch (record.type) {
    case RecordType::kToInclude:
      doubt.sources = WantedBut(record.sources);
      [[fallthrough]];
    case RecordType::kIsInclude:
    case RecordType::kAllow:
      for (const IpAddress &source : record.sources) PutSource(source, renewed);
      break;
    case RecordType::kBlock:
      doubt.sources = WantedAmong(record.sources);
      break;
    case RecordType::kToExclude:
      doubt.sources = WantedAmong(record.sources);
      [[fallthrough]];
    case RecordType::kIsExclude:
      Restrict(record.sources);
      for (const IpAddress &source : record.sources) {
        if (Find(source) == nullptr) PutSource(source, std::nullopt);
      }
      mode_ = SourceMode::kExclude;
      until_ = renewed;
      break;
  }
  return doubt;
}

Doubt Membership::ApplyToExclude(const GroupRecord &record, const MembershipRules &rules, TimePoint now) {
  const TimePoint renewed = Later(now, rules.lifetime);
  Doubt doubt;
  switch (record.type) {
    case RecordType::kToInclude:
      doubt = {.group = true, .sources = WantedBut(record.sources)};
      [[fallthrough]];
    case RecordType::kIsInclude:
    case RecordType::kAllow:
      for (const IpAddress &source : record.sources) PutSource(source, renewed);
      break;
    case RecordType::kBlock:
      doubt.sources = NotBlocked(record.sources);
      for (const IpAddress &source : record.sources) {
        if (Find(source) == nullptr) PutSource(source, until_);
      }
      break;
    case RecordType::kIsExclude:
    case RecordType::kToExclude: {
      const bool changes = record.type == RecordType::kToExclude;
      if (changes) doubt.sources = NotBlocked(record.sources);
      const TimePoint found_until = changes ? until_ : renewed;
      Restrict(record.sources);
      for (const IpAddress &source : record.sources) {
        if (Find(source) == nullptr) PutSource(source, found_until);
      }
      until_ = renewed;
      break;
    }
  }
  return doubt;
}

void Membership::NoteGeneration(Generation generation, const MembershipRules &rules, TimePoint now) {
  const TimePoint until = Later(now, rules.lifetime);
  if (generation == Generation::kJoin) joiners_until_ = until;
  if (generation == Generation::kLeave) leavers_until_ = until;
}

Generation Membership::GenerationAt(TimePoint now) const {
  if (joiners_until_ > now) return Generation::kJoin;
  return leavers_until_ > now ? Generation::kLeave : Generation::kSources;
}

void Membership::FollowQuery(const GroupQuery &query, TimePoint until) {
  Lower({.group = query.sources.empty(), .sources = query.sources}, until);
}

void Membership::Lower(const Doubt &doubt, TimePoint until) {
  if (doubt.group && mode_ == SourceMode::kExclude) until_ = std::min(until_, until);
  for (const IpAddress &address : doubt.sources) {
    GroupSource *source = Find(address);
    if (source != nullptr && source->until) source->until = std::min(*source->until, until);
  }
}

bool Membership::Expire(TimePoint now) noexcept {
  bool changes = false;
  if (mode_ == SourceMode::kExclude && IsOver(until_, now)) {
    mode_ = SourceMode::kInclude;
    until_ = TimePoint{0};
    std::erase_if(sources_, [](const GroupSource &source) { return !source.until; });
    changes = true;
  }
  if (mode_ == SourceMode::kInclude) {
    return std::erase_if(sources_, [now](const GroupSource &source) { return IsOver(*source.until, now); }) != 0 ||
           changes;
  }
  for (GroupSource &source : sources_) {
    if (!source.until || !IsOver(*source.until, now)) continue;
    source.until.reset();
    changes = true;
  }
  return changes;
}

void Membership::Hold(TimePoint until) noexcept {
  const auto hold = [until](TimePoint &timer) { timer = until == kNever ? kNever : std::min(timer, until); };
  if (mode_ == SourceMode::kExclude) hold(until_);
  for (GroupSource &source : sources_) {
    if (source.until) hold(*source.until);
  }
  // How hosts speak is no reason to keep frames from them, whichever way it is held.
  joiners_until_ = std::min(joiners_until_, until);
  leavers_until_ = std::min(leavers_until_, until);
}

bool Membership::Wants(const IpAddress &source) const {
  const GroupSource *found = Find(source);
  return mode_ == SourceMode::kInclude ? found != nullptr : found == nullptr || found->until.has_value();
}

Doubt Membership::Unsettled(const Doubt &doubt, TimePoint until) const {
  Doubt rest{.group = doubt.group && mode_ == SourceMode::kExclude && until_ <= until};
  for (const IpAddress &address : doubt.sources) {
    const GroupSource *source = Find(address);
    if (source != nullptr && source->until && *source->until <= until) rest.sources.push_back(address);
  }
  return rest;
}

TimePoint Membership::NextEvent() const {
  TimePoint next = mode_ == SourceMode::kExclude ? until_ : kNever;
  for (const GroupSource &source : sources_) {
    if (source.until) next = std::min(next, *source.until);
  }
  return next;
}

GroupSource *Membership::Find(const IpAddress &address) {
  return const_cast<GroupSource *>(std::as_const(*this).Find(address));
}

const GroupSource *Membership::Find(const IpAddress &address) const {
  const auto found = std::ranges::lower_bound(sources_, address, {}, &GroupSource::address);
  return found != sources_.end() && found->address == address ? &*found : nullptr;
}

void Membership::PutSource(const IpAddress &address, std::optional<TimePoint> until) {
  const auto place = std::ranges::lower_bound(sources_, address, {}, &GroupSource::address);
  if (place != sources_.end() && place->address == address) {
    place->until = until;
  } else {
    sources_.insert(place, {address, until});
  }
}

void Membership::Restrict(const Addresses &kept) {
  std::erase_if(sources_, [&kept](const GroupSource &source) { return !Has(kept, source.address); });
}

Addresses Membership::WantedAmong(const Addresses &asked) const {
  Addresses found;
  for (const GroupSource &source : sources_) {
    if (source.until && Has(asked, source.address)) found.push_back(source.address);
  }
  return found;
}

Addresses Membership::WantedBut(const Addresses &spared) const {
  Addresses found;
  for (const GroupSource &source : sources_) {
    if (source.until && !Has(spared, source.address)) found.push_back(source.address);
  }
  return found;
}

Addresses Membership::NotBlocked(const Addresses &addresses) const {
  Addresses found;
  std::ranges::copy_if(addresses, std::back_inserter(found), [this](const IpAddress &address) {
    const GroupSource *source = Find(address);
    return source == nullptr || source->until.has_value();
  });
  return found;
}

void Membership::Save(ByteWriter &writer) const {
  writer.Put(static_cast<std::uint8_t>(mode_));
  Put(writer, until_);
  Put(writer, updated_);
  Put(writer, joiners_until_);
  Put(writer, leavers_until_);
  writer.Put(static_cast<std::uint32_t>(sources_.size()));
  for (const GroupSource &source : sources_) {
    Put(writer, source.address);
    Put(writer, source.until);
  }
}

Membership Membership::Load(ByteReader &reader) {
  Membership loaded;
  const auto mode = reader.Get<std::uint8_t>();
  RequireSound(mode == static_cast<std::uint8_t>(SourceMode::kInclude) ||
               mode == static_cast<std::uint8_t>(SourceMode::kExclude));
  loaded.mode_ = static_cast<SourceMode>(mode);
  loaded.until_ = Next<TimePoint>(reader);
  loaded.updated_ = Next<TimePoint>(reader);
  loaded.joiners_until_ = Next<TimePoint>(reader);
  loaded.leavers_until_ = Next<TimePoint>(reader);
  const auto count = reader.Get<std::uint32_t>();
  for (std::uint32_t i = 0; i < count; ++i) {
    const IpAddress address = Next<IpAddress>(reader);
    const auto until = Next<std::optional<TimePoint>>(reader);
    RequireSound(until || loaded.mode_ == SourceMode::kExclude);
    RequireSound(loaded.sources_.empty() || loaded.sources_.back().address < address);
    loaded.sources_.push_back({address, until});
  }
  return loaded;
}

}  // namespace kestrel::host
