#include "host/core/teaming/team_policy.h"

#include "host/core/base/bytes.h"
#include "host/core/base/record_bytes.h"

namespace kestrel::host {
namespace {

/** The part that both records have. */
template <typename Record>
TeamPolicy CommonPart(const Record &record) {
  TeamPolicy policy;
  policy.balance = record.loadBalance;
  policy.criteria = record.linkCriteria;
  if (policy.criteria == 0) policy.criteria = TEAM_FRP_CRIT_LINK_STATE;
  policy.flags = record.flags;
  for (std::uint32_t i = 0; i < record.numActive + record.numStandby; ++i) {
    auto &names = i < record.numActive ? policy.active : policy.standby;
    names.emplace_back(TextOf(record.uplinkPortName[i]));
  }
  return policy;
}

}  // namespace

std::string TeamPolicy::Key() const {
  ByteWriter writer;
  writer.Put(balance);
  writer.Put(criteria);
  writer.Put(flags);
  writer.Put(percent_error);
  writer.Put(static_cast<std::uint8_t>(full_duplex));
  writer.Put(speed);
  for (const auto *names : {&active, &standby}) {
    writer.Put(static_cast<std::uint32_t>(names->size()));
    for (const std::string &name : *names) writer.PutText(name);
  }
  return writer.Take();
}

TeamPolicy TeamPolicyOf(const VSTeamPolicy &record) {
  TeamPolicy policy = CommonPart(record);
  policy.percent_error = record.percentError;
  policy.full_duplex = record.fullDuplex != 0;
  policy.speed = record.speed;
  return policy;
}

TeamPolicy TeamPolicyOf(const LSTeamPolicy &record) { return CommonPart(record); }

}  // namespace kestrel::host
