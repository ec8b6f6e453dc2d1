/* Hardware and network addresses in records as text, and names. */
#pragma once

#include "kestrel/mirror_records.h"
#include "kestrel/policy_records.h"
#include "kestrel/runtime_records.h"
#include "results.h"

#ifdef __cplusplus
extern "C" {
#endif

/* ---- MAC addresses from bytes. Six bytes are read, whatever `size` says. ---- */

/** Sets the entry's MAC address. */
void VSMACEntry_set_mac_address(VSMACEntry *entry, const unsigned char *mac, size_t size);
/** Entry number `index` of 25; outside, nothing is written. */
void VSMACEntries_set_mac_address(VSMACEntries *entries, int index, const unsigned char *mac, size_t size);
/** Sets the entry's MAC address. */
void VSStaticLEEntry_set_mac_address(VSStaticLEEntry *entry, const unsigned char *mac, size_t size);

/* ---- Entries of multicast filters as text ---- */

/** Entry number `index` as IPv4, IPv6 or MAC text; no text for an index outside the record's `numEntries`. */
kestrel_OwnText VSMcastFilters_get_ip_entry(VSMcastFilters *filters, int index);
kestrel_OwnText VSMcastFilters_get_ipv6_entry(VSMcastFilters *filters, int index);
kestrel_OwnText VSMcastFilters_get_mac_entry(VSMcastFilters *filters, int index);
kestrel_OwnText VSMcastFilterStats_get_ip_entry(VSMcastFilterStats *stats, int index);
kestrel_OwnText VSMcastFilterStats_get_ipv6_entry(VSMcastFilterStats *stats, int index);
kestrel_OwnText VSUserMcastLegacyKeys_get_mac_entry(VSUserMcastLegacyKeys *keys, int index);

/* ---- Mirror entities ---- */

/** The entity as its type shows it: id, name, number, IP or MAC address; empty for an unknown type. Port numbers
    print as signed 32-bit numbers. */
kestrel_OwnText DVMirrorEntity_get_entity(DVMirrorEntity *entity);
/** Reads the entity from text as its type asks. What does not parse is ignored; of a MAC address the bytes before
    the first mismatch are stored. */
void DVMirrorEntity_set_entity(DVMirrorEntity *entity, const char *text);

/* ---- Names ---- */

/** The name's text; no text for null. */
kestrel_Text zel_Name___repr__(zel_Name *name);
/** The LAG's name; no text for null. */
kestrel_Text VSLAGStatus_get_name(VSLAGStatus *status);
/** The name of uplink number `index`; no text, and no message, for an index outside the list. */
kestrel_Text VSLAGStatus_get_uplink_name(VSLAGStatus *status, int index);

#ifdef __cplusplus
}
#endif
