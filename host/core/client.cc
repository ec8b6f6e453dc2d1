#include "host/core/client.h"

#include "host/core/base/errors.h"
#include "host/core/base/kept_values.h"

namespace kestrel::host {
std::string Client::Save() const {
  ByteWriter writer;
  writer.Put(static_cast<std::uint32_t>(type));
  writer.PutText(name);
  Put(writer, address);
  Put(writer, adapter.address);
  writer.Put(adapter.filter);
  writer.Put(static_cast<std::uint32_t>(adapter.groups.size()));
  for (const MacAddress &group : adapter.groups) Put(writer, group);
  return writer.Take();
}

Client Client::Load(std::string_view bytes) {
  ByteReader reader(bytes);
  Client client{};
  const auto type = reader.Get<std::uint32_t>();
  RequireSound(type <= VS_PORT_CLIENT_LAG);
  client.type = static_cast<VS_PortClientType>(type);
  client.name = reader.GetText();
  client.address = Next<MacAddress>(reader);
  client.adapter.address = Next<MacAddress>(reader);
  client.adapter.filter = reader.Get<std::uint32_t>();
  const auto count = reader.Get<std::uint32_t>();
  RequireSound(count <= VS_ETH_MAX_EXACT_MULTICAST_ADDRS);
  for (std::uint32_t i = 0; i < count; ++i) client.adapter.groups.push_back(Next<MacAddress>(reader));
  reader.RequireEnd();
  return client;
}

void CheckAdapter(const Adapter &adapter) {
  constexpr std::uint32_t kKnown = ZEL_ETH_FILTER_UNICAST | ZEL_ETH_FILTER_MULTICAST | ZEL_ETH_FILTER_ALLMULTI |
                                   ZEL_ETH_FILTER_BROADCAST | ZEL_ETH_FILTER_PROMISC;
  Require(adapter.address == MacAddress{} || IsStation(adapter.address));
  Require((adapter.filter & ~kKnown) == 0);
  if (adapter.groups.size() > VS_ETH_MAX_EXACT_MULTICAST_ADDRS) throw StatusError(ZEL_LIMIT_EXCEEDED);
  for (const MacAddress &group : adapter.groups) Require(IsGroup(group));
}

}  // namespace kestrel::host
