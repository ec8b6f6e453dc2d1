/* The laboratory: the embedded host's surroundings, to be arranged by hand. NICs and clients, frames, time, the life of
   the host as a whole, and faults. libmorrow.so of the embedded host has these functions; a real host has none of them.

   Functions return ZEL_OK or a failure of constants.def; when they fail nothing has changed, and kestrel_lab_message
   may say more. Names and texts are zero-terminated; ZEL_BAD_PARAM for a null pointer where nothing else is said,
   ZEL_NAME_TOO_LONG for a name that is too long for its kind, ZEL_NOT_FOUND for a switch, port, NIC or other thing that
   is not there. A `switchName` is a portset name or an alias, a `portName` a distributed-port id. An array that is
   handed out through a cell belongs to the caller, who gives it back with kestrel_lab_free; on failure the cell is set
   to null. Calls must not overlap each other nor calls of the platform's functions. */
#pragma once

#include <stddef.h>

#include "kestrel/types.h"

#ifdef __cplusplus
extern "C" {
#endif

/** Which of these functions there are. It goes up when one changes or goes, and stays when some are added. */
#define KESTREL_LAB_VERSION 1

/** The KESTREL_LAB_VERSION of the library. */
zel_uint32 kestrel_lab_version(void);

/** What the last call that failed had to say beyond its status, in UTF-8; empty when that was nothing. The text is the
    library's and lasts until the next call. */
const char *kestrel_lab_message(void);

/** Takes back what was handed out; null is accepted. */
void kestrel_lab_free(void *memory);

/* ---- Time ---- */

/** The time of the host in nanoseconds: since it was made, and only as far as it was advanced. */
ZEL_ReturnStatus kestrel_lab_now(zel_uint64 *timeOut);

/** Lets time pass: timers run and what is too old is dropped. ZEL_LIMIT_EXCEEDED beyond 2^63 nanoseconds. */
ZEL_ReturnStatus kestrel_lab_advance(zel_uint64 nanoseconds);

/* ---- NICs ---- */

/** How the far end of a link takes part in LACP. */
typedef enum KestrelLabLacpMode {
  /** It is silent. */
  KESTREL_LAB_LACP_NONE = 0,
  /** It answers. */
  KESTREL_LAB_LACP_PASSIVE = 1,
  /** It begins by itself. */
  KESTREL_LAB_LACP_ACTIVE = 2
} KestrelLabLacpMode;

/** A NIC and what it is connected to. */
typedef struct KestrelLabNic {
  char name[32];
  /** Of the link, as far as the cable goes. */
  zel_LinkState state;
  /** In Mbit/s: ZEL_LINK_SPEED_*. */
  zel_uint32 speed;
  zel_LinkDuplex duplex;
  /** The NUMA node that it is near to. */
  zel_uint32 numaNode;
  /** Zeros for an address that is made from the name. */
  zel_uint8 mac[6];
  /** 0 while the link is taken down by VSZEL_SetUplinkAdminLinkState. */
  zel_Bool isEnabled;
  zel_Bool hasDriver;
  /** Whether the far end blocks its port: the link is there and carries nothing. */
  zel_Bool isBlocked;
  /** Whether beacons of the other NICs reach this one. */
  zel_Bool hearsBeacons;
  /** The share of its frames that are damaged, 0 to 100. */
  zel_uint8 errorPercent;
  /** The far end of the link, as LACP meets it. */
  zel_uint8 partnerSystem[6];
  zel_uint16 partnerSystemPriority;
  zel_uint16 partnerKey;
  KestrelLabLacpMode partnerMode;
  zel_Bool partnerCollects;
  zel_Bool partnerDistributes;
  /** Whether it wants to hear from the host every second and not every 30. */
  zel_Bool partnerShortTimeout;
} KestrelLabNic;

/** Plugs a NIC into the host. ZEL_EXISTS for a name or an address that is taken, ZEL_BAD_PARAM for a value out of its
    range. */
ZEL_ReturnStatus kestrel_lab_plug_nic(const KestrelLabNic *nic);

/** Takes a NIC away, out of the uplink that it may be in. */
ZEL_ReturnStatus kestrel_lab_pull_nic(const char *nicName);

/** Makes the NIC of that name, and what it is connected to, what is written. Fails as plugging it does. */
ZEL_ReturnStatus kestrel_lab_set_nic(const KestrelLabNic *nic);

/** Hands out the NICs in the order of their names. */
ZEL_ReturnStatus kestrel_lab_list_nics(KestrelLabNic **nicsCell, size_t *countCell);

/** Connects a NIC to an uplink, which is named as the switch names it. ZEL_IS_CONNECTED when one of them is taken. */
ZEL_ReturnStatus kestrel_lab_connect_nic(const char *switchName, const char *uplinkName, const char *nicName);

/** Makes a link aggregation group of `count` uplinks. ZEL_EXISTS for a number or name that is taken, ZEL_BUSY for an
    uplink that is in another group. */
ZEL_ReturnStatus kestrel_lab_add_lag(const char *switchName, zel_uint32 lagId, const char *lagName,
                                     const char *const *uplinkNames, size_t count);

/** Ends a link aggregation group. Policies that name it keep its name. */
ZEL_ReturnStatus kestrel_lab_remove_lag(const char *switchName, const char *lagName);

/* ---- Clients ---- */

/** Who is plugged into a port. */
typedef struct KestrelLabClient {
  /** The distributed-port id. */
  char port[48];
  zel_SwitchPortID portId;
  VS_PortClientType type;
  /** Of a NIC its own. */
  char name[1040];
  /** The address of its hardware, and the one that it uses. */
  zel_uint8 mac[6];
  zel_uint8 usedMac[6];
  /** The NUMA node that it runs on, 0xffffffff while nobody has said. */
  zel_uint32 numaNode;
} KestrelLabClient;

/** Plugs a client into a port: VS_PORT_CLIENT_VNIC for a virtual machine, _TCPIP for a service of the host. `mac` is
    six bytes, or null for an address that is made for it. ZEL_IS_CONNECTED when the port is taken, ZEL_BAD_PARAM for
    another type, a port that is an uplink's and an address that no station has. */
ZEL_ReturnStatus kestrel_lab_connect(const char *switchName, const char *portName, VS_PortClientType type,
                                     const char *clientName, const zel_uint8 *mac);

/** Takes whoever is there out of a port: a client, or the NIC of an uplink. ZEL_IS_DISCONNECTED when nobody is. */
ZEL_ReturnStatus kestrel_lab_disconnect(const char *switchName, const char *portName);

/** What the client of a port asks of its adapter: to use the address `mac`, or its own for null; to receive what is
    asked by the ZEL_ETH_FILTER_* in `filter`, and the `count` multicast addresses of six bytes each in `groups`.
    Security policies decide what it gets. */
ZEL_ReturnStatus kestrel_lab_set_adapter(const char *switchName, const char *portName, const zel_uint8 *mac,
                                         zel_uint32 filter, const zel_uint8 *groups, size_t count);

/** Says which NUMA node the client of a port runs on. */
ZEL_ReturnStatus kestrel_lab_set_client_node(const char *switchName, const char *portName, zel_uint32 numaNode);

/** Hands out the clients of a switch, NICs among them, in the order of their port identifiers. */
ZEL_ReturnStatus kestrel_lab_list_clients(const char *switchName, KestrelLabClient **clientsCell, size_t *countCell);

/* ---- Traffic ---- */

/** Lets a frame of `length` bytes, without its check sequence, come in through a port: from its client, or from the
    network for an uplink. ZEL_IS_DISCONNECTED when nobody is at the port, ZEL_ENETDOWN when the NIC there has no link,
    ZEL_BAD_PARAM for bytes that are no frame. What the switch makes of the frame, dropping it included, is no
    failure. */
ZEL_ReturnStatus kestrel_lab_send(const char *switchName, const char *portName, const zel_uint8 *bytes, size_t length);

/** Lets the frames of a pcap file come in through a port, all of them or none, and writes to the cell how many they
    were. `timed` lets as much time pass between them as the file tells; one that is earlier than the one before it
    comes at once. ZEL_NOT_FOUND, ZEL_NO_PERMISSION or another status for a file that cannot be read,
    ZEL_INVALID_METADATA, ZEL_VERSION_MISMATCH_MAJOR and ZEL_NOT_SUPPORTED for one that is no pcap file of whole
    Ethernet frames, and as kestrel_lab_send does. */
ZEL_ReturnStatus kestrel_lab_play(const char *switchName, const char *portName, const char *path, zel_Bool timed,
                                  zel_uint64 *countOut);

/** A frame that passed a port. */
typedef struct KestrelLabFrame {
  /** When, in nanoseconds of the host's time. */
  zel_uint64 time;
  /** Where its bytes begin behind the array of frames, and how many they are. */
  zel_uint64 offset;
  zel_uint64 length;
  /** From the port into the switch. */
  zel_Bool isIncoming;
} KestrelLabFrame;

/** Keeps the frames that leave a switch through a port from now on, those that come in through it too when `incoming`
    is set: for this process, and in its memory. ZEL_IS_ENABLED when the port is being captured. */
ZEL_ReturnStatus kestrel_lab_start_capture(const char *switchName, const char *portName, zel_Bool incoming);

/** Ends a capture and drops what it holds. ZEL_IS_DISABLED when there is none, as for the function below. */
ZEL_ReturnStatus kestrel_lab_stop_capture(const char *switchName, const char *portName);

/** Hands out the frames since the last time, and takes them out of the capture: one block with `*countCell` records
    and, behind them, `*sizeCell` bytes of frames. `*droppedCell` is how many more there were: a capture keeps the last
    65536 frames, and 64 MiB at most. */
ZEL_ReturnStatus kestrel_lab_take_frames(const char *switchName, const char *portName, KestrelLabFrame **framesCell,
                                         size_t *countCell, size_t *sizeCell, zel_uint64 *droppedCell);

/** Writes frames, as they were handed out, to a pcap file with times in nanoseconds, in place of a file that is there.
    ZEL_LIMIT_EXCEEDED for a time of 2^32 seconds or more, ZEL_WRITE_ERROR or another status where the file cannot be
    written. */
ZEL_ReturnStatus kestrel_lab_write_pcap(const char *path, const KestrelLabFrame *frames, size_t count, size_t size);

/* ---- The host as a whole ---- */

/** What a host begins as. */
typedef enum KestrelLabBeginning {
  /** Nothing at all. */
  KESTREL_LAB_EMPTY = 0,
  /** The small machine room that a process starts with. */
  KESTREL_LAB_SAMPLE = 1
} KestrelLabBeginning;

/** Puts a new host in the place of the one there is. */
ZEL_ReturnStatus kestrel_lab_reset(KestrelLabBeginning beginning);

/** Starts the host anew, as after a loss of power: switches run on their saved configuration, and what traffic made of
    them is gone. NICs, clients and the time remain. */
ZEL_ReturnStatus kestrel_lab_restart(void);

/** Keeps what the host is now, in the memory of this process, and writes the number of the snapshot to the cell. */
ZEL_ReturnStatus kestrel_lab_snapshot(zel_uint64 *snapshotOut);

/** Makes the host what it was; the snapshot remains. ZEL_NOT_FOUND for a number that is none. */
ZEL_ReturnStatus kestrel_lab_restore(zel_uint64 snapshot);

/** Forgets a snapshot. */
ZEL_ReturnStatus kestrel_lab_drop_snapshot(zel_uint64 snapshot);

/** Begins a transaction: what is changed from here on, by the platform's functions too, lasts once it is committed, and
    is written down in one go. ZEL_INVALID_TXN when one has begun, ZEL_BUSY when other processes keep the host too long.
 */
ZEL_ReturnStatus kestrel_lab_begin(void);

/** Makes what was changed since last. ZEL_INVALID_TXN when no transaction has begun; when it fails nothing has changed
    since then, and the transaction is over. */
ZEL_ReturnStatus kestrel_lab_commit(void);

/** Takes back what was changed since. ZEL_INVALID_TXN when no transaction has begun. */
ZEL_ReturnStatus kestrel_lab_rollback(void);

/** The path of the host file, zero-terminated, of which `width` bytes have room at `textOut`; empty for a host in
    memory. ZEL_BUF_TOO_SMALL where it does not fit. */
ZEL_ReturnStatus kestrel_lab_host_path(char *textOut, size_t width);

/* ---- Faults. They belong to the process and not to the host: another process, and the host after a restart in
   another, meets none. ---- */

/** What becomes of a call that meets a fault. */
typedef enum KestrelLabEffect {
  /** It returns a status and does nothing; a function that returns none gives 0 or null. */
  KESTREL_LAB_STATUS = 0,
  /** It ends with an exception through the exception channel. */
  KESTREL_LAB_ABORT = 1,
  /** It does its work and finds the disk full when that is to be written down. */
  KESTREL_LAB_DISK_FULL = 2
} KestrelLabEffect;

/** A fault. Of those that one call would meet the one armed first is met; the others count the call too. */
typedef struct KestrelLabFault {
  /** Its number; is given when it is armed. */
  zel_uint64 id;
  /** Which calls meet it: those from the `at`-th on, 1 for the next, `times` of them in a row. Of a fault that is
      listed: what is left of these. */
  zel_uint64 at;
  zel_uint64 times;
  KestrelLabEffect effect;
  /** For KESTREL_LAB_STATUS: any but ZEL_OK. */
  ZEL_ReturnStatus status;
  /** The platform's function. */
  char function[64];
  /** For KESTREL_LAB_ABORT: the name of a built-in exception class of the interpreter, such as OSError. */
  char exception[64];
  /** Its message, in UTF-8. */
  char message[512];
} KestrelLabFault;

/** Arms a fault and writes its number to the cell. ZEL_NOT_FOUND for a function that the platform does not declare or
    that cannot fail, ZEL_BAD_PARAM for an `at` or `times` of 0, an unknown effect, ZEL_OK as status, a text without an
    end and an exception that the interpreter does not have. */
ZEL_ReturnStatus kestrel_lab_arm_fault(const KestrelLabFault *fault, zel_uint64 *idOut);

/** Takes a fault back; ZEL_NOT_FOUND when it was met as often as it could be. */
ZEL_ReturnStatus kestrel_lab_disarm_fault(zel_uint64 id);

/** Takes all faults back. */
ZEL_ReturnStatus kestrel_lab_disarm_faults(void);

/** Hands out the faults that are armed, in the order in which they were armed. */
ZEL_ReturnStatus kestrel_lab_list_faults(KestrelLabFault **faultsCell, size_t *countCell);

/** Begins to count the calls of each function at 0, or counts no longer. */
ZEL_ReturnStatus kestrel_lab_count_calls(zel_Bool on);

/** How often a function of the platform was called while calls were counted. ZEL_NOT_FOUND as for faults. */
ZEL_ReturnStatus kestrel_lab_calls_of(const char *function, zel_uint64 *countOut);

#ifdef __cplusplus
}
#endif
