/* libpraxa.so: the distributed-switch state store (DVS*).

   Functions that return a status give ZEL_OK or a failure of constants.def; when they fail nothing has changed. A
   `switchId` is the id of a distributed switch, a `portId` that of a distributed port. Images and property values
   that the store hands out are blocks that belong to the caller, who gives them back with DVSZEL_DataFree. Handles
   belong to the store and are good until the switch, port or property goes. */
#pragma once

#include "kestrel/mirror_records.h"

/* Two markers that the platform's headers define as nothing. Scripts call them as functions without effect. */
#ifdef SWIG
void MIRROR_ENCAP_TYPE(void);
void MIRROR_ASSERT(void);
#else
#define MIRROR_ENCAP_TYPE()
#define MIRROR_ASSERT()
#endif

#ifdef __cplusplus
extern "C" {
#endif

/** A distributed switch. */
typedef void *DVSwitchHandle;
/** A distributed port. */
typedef void *DVSPortHandle;
/** A collection of properties. */
typedef void *DVSDataHandle;
/** One property. */
typedef void *DVSDataItem;

/** Called for each element of a walk with the element and the caller's context; the walk ends where it returns 0. */
typedef char (*DVSwitchCallback)(void *, void *);
typedef char (*DVSPortCallback)(void *, void *);
typedef char (*DVSPortDataCallback)(void *, void *);

/** Allocates and releases the memory of a collection of properties. */
typedef void *(*DVSData_MemAlloc)(size_t);
typedef void (*DVSData_MemFree)(void *);

/* ---- Life of the state ---- */

/** Loads the configuration that the store keeps, in place of the one in use. */
ZEL_ReturnStatus DVSLoadConfig(void);

/** Creates the state from an image of `length` bytes, in the place of the one in use and of the one saved.
    ZEL_CHECKSUM_MISMATCH or ZEL_INVALID_METADATA for one that is damaged. */
ZEL_ReturnStatus DVSZEL_StateInit(void *image, int length);

/** Hands out an image of the live state. */
ZEL_ReturnStatus DVSZEL_StateGet(void **imageCell, int *lengthCell);

/** Hands out an image of the state that the store keeps. */
ZEL_ReturnStatus DVSZEL_PersistentStateGet(void **imageCell, int *lengthCell);

/** Takes back an image or a value; null is accepted. */
void DVSZEL_DataFree(void *buffer);

/** Drops from the state what nothing refers to any more. */
ZEL_ReturnStatus DVSZEL_StateSanitize(void);

/** Releases the state; ports and switches are gone until the configuration is loaded anew. */
ZEL_ReturnStatus DVSZEL_StateCleanup(void);

/** Replaces the configuration by that of an image; clients stay connected. ZEL_BUSY when the image has no place for
    one. */
ZEL_ReturnStatus DVSState_ConfigDeserialize(void *image, int length);

/** Empties the configuration: every property of every switch and port goes back to its default. */
ZEL_ReturnStatus DVSState_ConfigReset(void);

/** Hands out an image of a collection of properties in the form of a version of the distributed switch, such as
    DVSZEL_PortAdd takes. */
ZEL_ReturnStatus DVSData_Serialize(DVSDataHandle handle, void **imageCell, zel_uint32 *lengthCell, VDSVersion version);

/* ---- Switches ---- */

/** Adds a distributed switch with its alias, port limit and version. This host is not its member yet. */
ZEL_ReturnStatus DVSZEL_SwitchAdd(const char *switchId, const char *alias, zel_uint32 maxPorts, VDSVersion version);

/** Removes a distributed switch. */
ZEL_ReturnStatus DVSZEL_SwitchRemove(const char *switchId);

/** Makes this host a member of a distributed switch, so that clients can connect to its ports. ZEL_IS_CONNECTED when
    it is one. */
ZEL_ReturnStatus DVSZEL_SwitchAssociate(const char *switchId);

/** Ends the membership. ZEL_IS_DISCONNECTED when there is none, ZEL_BUSY while a client is connected. */
ZEL_ReturnStatus DVSZEL_SwitchDissociate(const char *switchId);

/** Sets the version of a distributed switch. */
ZEL_ReturnStatus DVSZEL_SwitchSetVersion(const char *switchId, VDSVersion version);

/** Sets the port limit of a distributed switch. */
ZEL_ReturnStatus DVSZEL_SwitchSetMaxPorts(const char *switchId, zel_uint32 maxPorts);

/** Hands out the distributed ports of one kind: those of a switch that takes traffic are DVSPORT_TYPE_ACTIVE, those of
    a shadow switch DVSPORT_TYPE_SHADOW, those of a switch that this host is no member of DVSPORT_TYPE_LOCALCACHE. */
ZEL_ReturnStatus DVSZEL_SwitchPortList(const char *switchId, DVPortList **listCell, DVSPortType type);

/** The distributed switch of an alias; null for none. */
DVSwitchHandle DVSState_SwitchFindByAlias(const char *alias);

/** Id, alias and class name of a distributed switch; null for a null handle. These texts are the library's and last
    until the configuration is loaded or the state released. */
const char *DVS_SwitchId(DVSwitchHandle handle);
const char *DVS_SwitchName(DVSwitchHandle handle);
const char *DVS_ClassName(DVSwitchHandle handle);

/** The version of a distributed switch: DVS_VERSION_*; 0 for a null handle. */
VDSVersion DVS_Version(DVSwitchHandle handle);

/** The port limit of a distributed switch; 0 for a null handle. */
int DVS_GetMaxPorts(DVSwitchHandle handle);

/* ---- Ports ---- */

/** Adds a distributed port with the state in an image of a port or of a collection of properties; null and 0 for
    none. */
ZEL_ReturnStatus DVSZEL_PortAdd(const char *switchId, const char *portId, void *image, int length);

/** Removes a distributed port. */
ZEL_ReturnStatus DVSZEL_PortRemove(const char *switchId, const char *portId);

/** ZEL_OK when the distributed port is there, ZEL_NOT_FOUND when it is not. */
ZEL_ReturnStatus DVSZEL_PortFind(const char *switchId, const char *portId);

/** Hands out the distributed port that another controller knows by this id. */
ZEL_ReturnStatus DVSZEL_PortGetByExternalId(const char *switchId, const char *externalId, OpaqueDVPortData **dataCell);

/** Hands out an image of a port's live state. */
ZEL_ReturnStatus DVSZEL_PortStateGet(const char *switchId, const char *portId, void **imageCell, int *lengthCell);

/** Hands out an image of the port state that the store keeps, in the form of a version. */
ZEL_ReturnStatus DVSZEL_PersistentPortStateGet(const char *switchId, const char *portId, VDSVersion version,
                                               void **imageCell, int *lengthCell);

/** The distributed port of an id; null for none. */
DVSPortHandle DVSState_PortFind(const char *switchId, const char *portId);

/** Id and alias of a distributed port; null for a null handle. They last as those of switches do. */
const char *DVS_PortId(DVSPortHandle handle);
const char *DVS_PortAlias(DVSPortHandle handle);

/** 1 when the distributed port exists, else 0. */
char DVPortExist(const char *switchId, const char *portId);

/** Runs a command on a switch, with `inputLength` bytes of input; hands out its output. The command "help" tells of
   all. ZEL_NOT_IMPLEMENTED for an unknown one. */
ZEL_ReturnStatus DVSZEL_CmdExec(const char *switchId, const char *command, void *input, int inputLength,
                                void **outputCell, int *outputLengthCell);

/* ---- Aliases. A name that fills its buffer has no terminator. ---- */

/** The id of the switch of an alias. */
ZEL_ReturnStatus DVSAliasToSwitchId(const char *alias, char exactText[64]);

/** The same, for switches of every type. */
ZEL_ReturnStatus DVSAliasToSwitchIdAllTypes(const char *alias, char exactText[64]);

/** The alias of the switch behind a portset. */
ZEL_ReturnStatus DVSPortsetNameToAlias(const char *portsetName, char exactText[128]);

/** The portset of the switch of an alias. */
ZEL_ReturnStatus DVSAliasToPortsetName(const char *alias, char portsetName[128]);

/* ---- Properties as collections ---- */

/** Makes an empty collection. Null functions stand for malloc and free; one of them alone is refused. */
ZEL_ReturnStatus DVSData_Alloc(DVSDataHandle *handleCell, DVSData_MemAlloc allocate, DVSData_MemFree release);

/** Releases a collection; null is accepted. */
void DVSData_Free(DVSDataHandle handle);

/** Puts a copy of a value into a collection, or replaces it. */
ZEL_ReturnStatus DVSData_Update(DVSDataHandle handle, const char *key, void *value, zel_uint32 length,
                                zel_uint32 propertyType);

/** Writes the address of a property's value to the cell; returns its length in bytes. */
zel_uint32 DVSData_Data(DVSDataItem item, void **valueCell);

/** The key of a property; null for a null item. */
const char *DVSData_Name(DVSDataItem item);

/** The type of a property: a mask of CONFIG_PROP_TYPE, RUNTIME_PROP_TYPE and the others. */
zel_uint32 DVSData_PropType(DVSDataItem item);

/** 1 when a property is of all the types in a mask, else 0. */
char DVSData_IsSamePropType(DVSDataItem item, zel_uint32 propertyType);

/** Looks a property of a switch up. */
ZEL_ReturnStatus DVSState_GlobalPropLookup(const char *switchId, const char *key, DVSDataItem *itemCell);

/** Looks a property of this host's part of a switch up. */
ZEL_ReturnStatus DVSState_HostPropLookup(const char *switchId, const char *key, DVSDataItem *itemCell);

/** Collects the properties of other vendors, of the types in a mask, at each level: those under keys like
    com.example.feature. */
ZEL_ReturnStatus DVSZEL_VendorGlobalPropList(const char *switchId, DVSDataHandle *handleCell, zel_uint32 propertyType);
ZEL_ReturnStatus DVSZEL_VendorHostPropList(const char *switchId, DVSDataHandle *handleCell, zel_uint32 propertyType);
ZEL_ReturnStatus DVSZEL_VendorPortPropList(const char *switchId, const char *portId, DVSDataHandle *handleCell,
                                           zel_uint32 propertyType);

/** Collects the properties beyond the platform's own, other vendors' included, of the types in a mask. */
ZEL_ReturnStatus DVSZEL_ExtraConfigPropList(const char *switchId, DVSDataHandle *handleCell, zel_uint32 propertyType);
ZEL_ReturnStatus DVSZEL_ExtraConfigPortPropList(const char *switchId, const char *portId, DVSDataHandle *handleCell,
                                                zel_uint32 propertyType);

/* ---- Properties one by one. The SmartNIC forms read the part that a switch offloads to a SmartNIC. ---- */

/** Hands out a property's value, sets it, clears it: of a switch. */
ZEL_ReturnStatus DVSZEL_GlobalPropGet(const char *switchId, const char *key, void **valueCell, int *lengthCell);
ZEL_ReturnStatus DVSZEL_SmartNICGlobalPropGet(const char *switchId, const char *key, void **valueCell, int *lengthCell);
ZEL_ReturnStatus DVSZEL_GlobalPropSet(const char *switchId, const char *key, void *value, int length,
                                      zel_uint32 propertyType);
ZEL_ReturnStatus DVSZEL_GlobalPropClear(const char *switchId, const char *key);

/** The same of this host's part of a switch. */
ZEL_ReturnStatus DVSZEL_HostPropGet(const char *switchId, const char *key, void **valueCell, int *lengthCell);
ZEL_ReturnStatus DVSZEL_SmartNICHostPropGet(const char *switchId, const char *key, void **valueCell, int *lengthCell);
ZEL_ReturnStatus DVSZEL_HostPropSet(const char *switchId, const char *key, void *value, int length,
                                    zel_uint32 propertyType);
ZEL_ReturnStatus DVSZEL_HostPropClear(const char *switchId, const char *key);

/** The same of a port. */
ZEL_ReturnStatus DVSZEL_PortDataGet(const char *switchId, const char *portId, const char *key, void **valueCell,
                                    int *lengthCell);
ZEL_ReturnStatus DVSZEL_SmartNICPortDataGet(const char *switchId, const char *portId, const char *key, void **valueCell,
                                            int *lengthCell);
ZEL_ReturnStatus DVSZEL_PortDataSet(const char *switchId, const char *portId, const char *key, void *value, int length,
                                    zel_uint32 propertyType);
ZEL_ReturnStatus DVSZEL_PortDataClear(const char *switchId, const char *portId, const char *key);

/** The same of an uplink, by its number. */
ZEL_ReturnStatus DVSZEL_UplinkDataGet(const char *switchId, const char *key, zel_uint32 uplink, void **valueCell,
                                      int *lengthCell);
ZEL_ReturnStatus DVSZEL_UplinkDataSet(const char *switchId, const char *key, zel_uint32 uplink, void *value, int length,
                                      zel_uint32 propertyType);

/* ---- Walks. A null callback is accepted and walks nothing. ---- */

/** Calls for every switch, for every port of a switch, for the properties of this host's part of a switch and of the
    switch, for the properties of a port. */
void DVSState_SwitchForEach(DVSwitchCallback callback, void *context);
void DVSState_PortForEach(DVSwitchHandle handle, DVSPortCallback callback, void *context);
void DVSState_HostPropForEach(DVSwitchHandle handle, DVSPortDataCallback callback, void *context);
void DVSState_GlobalPropForEach(DVSwitchHandle handle, DVSPortDataCallback callback, void *context);
void DVSState_PortDataForEach(DVSPortHandle handle, DVSPortDataCallback callback, void *context);

#ifdef __cplusplus
}
#endif
