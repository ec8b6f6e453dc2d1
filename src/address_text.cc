#include "address_text.h"

#include <arpa/inet.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace {

constexpr std::size_t kMacLength = ZEL_ETH_ADDR_LENGTH;

kestrel_OwnText own_text() { return {.present = true, .text = {}}; }

kestrel_OwnText mac_text(const unsigned char *mac) {
  kestrel_OwnText result = own_text();
  std::snprintf(result.text, sizeof result.text, "%02x:%02x:%02x:%02x:%02x:%02x", mac[0], mac[1], mac[2], mac[3],
                mac[4], mac[5]);
  return result;
}

/** `address` holds 4 or 16 bytes in network order, as the family says. */
kestrel_OwnText ip_text(int family, const void *address) {
  kestrel_OwnText result = own_text();
  inet_ntop(family, address, result.text, sizeof result.text);
  return result;
}

kestrel_OwnText number_text(int number) {
  kestrel_OwnText result = own_text();
  std::snprintf(result.text, sizeof result.text, "%d", number);
  return result;
}

/** At most `width` bytes of a text field. */
kestrel_OwnText field_text(const char *field, std::size_t width) {
  kestrel_OwnText result = own_text();
  std::memcpy(result.text, field, width);
  return result;
}

/** Element `index` of the tail at `first`, or null outside `count`. */
const unsigned char *element(const void *first, std::size_t width, int index, std::uint32_t count) {
  const auto i = static_cast<std::uint32_t>(index);
  return i < count ? static_cast<const unsigned char *>(first) + i * width : nullptr;
}

constexpr kestrel_OwnText kNoText = {.present = false, .text = {}};

/** Base 10, leading blanks and a sign allowed, up to the first other character; 0 where there are no digits. */
long number_of(const char *text) { return std::strtol(text, nullptr, 10); }

/** At most `most` bytes of a text into a field, zeros behind them. */
template <std::size_t Width>
void set_field(char (&field)[Width], const char *text, std::size_t most) {
  const std::size_t length = strnlen(text, most);
  std::memcpy(field, text, length);
  std::memset(field + length, 0, Width - length);
}

void set_ip(DVMirrorIP &ip, const char *text) {
  if (inet_pton(AF_INET, text, &ip.ipv4) == 1) {
    ip.isIPv6 = 0;
  } else if (unsigned char address[ZEL_IPV6_ADDR_LENGTH]; inet_pton(AF_INET6, text, address) == 1) {
    std::memcpy(&ip.ipv6, address, sizeof address);
    ip.isIPv6 = 1;
  }
}

void set_mac(unsigned char *mac, const char *text) {
  unsigned char parsed[kMacLength];
  // NOLINTNEXTLINE(cert-err34-c): two digits fit a byte, and the count tells what was read.
  const int count = std::sscanf(text, "%2hhx:%2hhx:%2hhx:%2hhx:%2hhx:%2hhx", &parsed[0], &parsed[1], &parsed[2],
                                &parsed[3], &parsed[4], &parsed[5]);
  if (count > 0) std::memcpy(mac, parsed, static_cast<std::size_t>(count));
}

}  // namespace

void VSMACEntry_set_mac_address(VSMACEntry *entry, const unsigned char *mac, size_t /*size*/) {
  std::memcpy(entry->macAddress, mac, kMacLength);
}

void VSMACEntries_set_mac_address(VSMACEntries *entries, int index, const unsigned char *mac, size_t /*size*/) {
  const auto i = static_cast<std::uint32_t>(index);
  if (i < sizeof entries->macEntry / kMacLength) std::memcpy(entries->macEntry[i], mac, kMacLength);
}

void VSStaticLEEntry_set_mac_address(VSStaticLEEntry *entry, const unsigned char *mac, size_t /*size*/) {
  std::memcpy(entry->macAddress, mac, kMacLength);
}

kestrel_OwnText VSMcastFilters_get_ip_entry(VSMcastFilters *filters, int index) {
  const auto *address = element(filters + 1, sizeof(zel_IPv4Address), index, filters->numEntries);
  return address ? ip_text(AF_INET, address) : kNoText;
}

kestrel_OwnText VSMcastFilters_get_ipv6_entry(VSMcastFilters *filters, int index) {
  const auto *address = element(filters + 1, ZEL_IPV6_ADDR_LENGTH, index, filters->numEntries);
  return address ? ip_text(AF_INET6, address) : kNoText;
}

kestrel_OwnText VSMcastFilters_get_mac_entry(VSMcastFilters *filters, int index) {
  const auto *address = element(filters + 1, kMacLength, index, filters->numEntries);
  return address ? mac_text(address) : kNoText;
}

kestrel_OwnText VSMcastFilterStats_get_ip_entry(VSMcastFilterStats *stats, int index) {
  const auto *address = element(stats + 1, sizeof(zel_IPv4Address), index, stats->numEntries);
  return address ? ip_text(AF_INET, address) : kNoText;
}

kestrel_OwnText VSMcastFilterStats_get_ipv6_entry(VSMcastFilterStats *stats, int index) {
  const auto *address = element(stats + 1, ZEL_IPV6_ADDR_LENGTH, index, stats->numEntries);
  return address ? ip_text(AF_INET6, address) : kNoText;
}

kestrel_OwnText VSUserMcastLegacyKeys_get_mac_entry(VSUserMcastLegacyKeys *keys, int index) {
  const auto *address = element(keys + 1, kMacLength, index, keys->numEntries);
  return address ? mac_text(address) : kNoText;
}

kestrel_OwnText DVMirrorEntity_get_entity(DVMirrorEntity *entity) {
  switch (static_cast<int>(entity->type)) {
    case MIRROR_ENTTYPE_DVPORT:
      return field_text(entity->dvPortId, sizeof entity->dvPortId);
    case MIRROR_ENTTYPE_UPLINK:
      return field_text(entity->uplink.string, sizeof entity->uplink.string);
    case MIRROR_ENTTYPE_VLAN:
      return number_text(entity->vlan);
    case MIRROR_ENTTYPE_IP:
      return entity->ip.isIPv6 ? ip_text(AF_INET6, &entity->ip.ipv6) : ip_text(AF_INET, &entity->ip.ipv4);
    case MIRROR_ENTTYPE_PORT:
      return number_text(static_cast<int>(entity->portId));
    case MIRROR_ENTTYPE_MAC:
      return mac_text(entity->mac);
    default:
      return own_text();
  }
}

void DVMirrorEntity_set_entity(DVMirrorEntity *entity, const char *text) {
  if (!text) return;
  switch (static_cast<int>(entity->type)) {
    case MIRROR_ENTTYPE_DVPORT:
      set_field(entity->dvPortId, text, sizeof entity->dvPortId);
      break;
    case MIRROR_ENTTYPE_UPLINK:
      set_field(entity->uplink.string, text, sizeof entity->uplink.string - 1);
      break;
    case MIRROR_ENTTYPE_VLAN:
      entity->vlan = static_cast<zel_uint16>(number_of(text));
      break;
    case MIRROR_ENTTYPE_IP:
      set_ip(entity->ip, text);
      break;
    case MIRROR_ENTTYPE_PORT:
      entity->portId = static_cast<zel_uint32>(number_of(text));
      break;
    case MIRROR_ENTTYPE_MAC:
      set_mac(entity->mac, text);
      break;
    default:
      break;
  }
}

kestrel_Text zel_Name___repr__(zel_Name *name) {
  return name ? kestrel_Text{name->string, sizeof name->string} : kestrel_Text{nullptr, 0};
}

kestrel_Text VSLAGStatus_get_name(VSLAGStatus *status) {
  if (!status) return {nullptr, 0};
  return {reinterpret_cast<const char *>(status->name), sizeof status->name};
}

kestrel_Text VSLAGStatus_get_uplink_name(VSLAGStatus *status, int index) {
  const auto i = static_cast<zel_uint32>(index);
  if (i >= status->numUplinks) return {nullptr, 0};
  return {status->uplinkNames[i].string, sizeof status->uplinkNames[i].string};
}
