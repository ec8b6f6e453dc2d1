#include "host/core/client.h"

#include "host/core/bytes.h"
#include "host/core/errors.h"

namespace kestrel::host {
namespace {

/** Locally administered addresses that begin alike, and end in a number. */
MacAddress NumberedAddress(std::uint8_t family, std::uint32_t number) {
  return {0x02,
          family,
          static_cast<std::uint8_t>(number >> 24),
          static_cast<std::uint8_t>(number >> 16),
          static_cast<std::uint8_t>(number >> 8),
          static_cast<std::uint8_t>(number)};
}

/** FNV-1a. */
std::uint32_t HashOf(std::string_view text) {
  std::uint32_t hash = 0x811c9dc5;
  for (const char character : text) hash = (hash ^ static_cast<unsigned char>(character)) * 0x01000193;
  return hash;
}

void Put(ByteWriter &writer, const MacAddress &address) {
  writer.PutRaw({reinterpret_cast<const char *>(address.data()), address.size()});
}

MacAddress GetAddress(ByteReader &reader) {
  MacAddress address;
  for (std::uint8_t &byte : address) byte = reader.Get<std::uint8_t>();
  return address;
}

void Require(bool condition) {
  if (!condition) throw StatusError(ZEL_BAD_PARAM);
}

}  // namespace

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
  if (type > VS_PORT_CLIENT_LAG) throw StatusError(ZEL_INVALID_METADATA);
  client.type = static_cast<VS_PortClientType>(type);
  client.name = reader.GetText();
  client.address = GetAddress(reader);
  client.adapter.address = GetAddress(reader);
  client.adapter.filter = reader.Get<std::uint32_t>();
  const auto count = reader.Get<std::uint32_t>();
  if (count > VS_ETH_MAX_EXACT_MULTICAST_ADDRS) throw StatusError(ZEL_INVALID_METADATA);
  for (std::uint32_t i = 0; i < count; ++i) client.adapter.groups.push_back(GetAddress(reader));
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

MacAddress MakeAddress(const Client &client, std::uint32_t port) {
  constexpr std::uint8_t kClients = 0x4c;
  constexpr std::uint8_t kNics = 0x4e;
  return client.type == VS_PORT_CLIENT_UPLINK ? NumberedAddress(kNics, HashOf(client.name))
                                              : NumberedAddress(kClients, port);
}

}  // namespace kestrel::host
