/* The one host of the process. */
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "host/core/handles.h"
#include "host/core/host.h"
#include "host/export.h"

namespace kestrel::host {

class HostFile;

/** What a call is going to do with the host. */
enum class Access : std::uint8_t { kRead, kChange };

/** A call into the host, from its first look to its end. Calls may nest: a callback of a call makes calls itself. What
    ReadHost and ChangeHost gave before such a call may be gone after it. */
class KESTREL_HOST_EXPORT HostCall {
 public:
  /** From here on the host is what it is for this call. Throws StatusError when the host cannot be had. */
  explicit HostCall(Access access);
  /** Takes back what was changed and not committed. */
  ~HostCall();
  HostCall(const HostCall &) = delete;
  HostCall &operator=(const HostCall &) = delete;

  /** Makes the changes last. Throws StatusError when they cannot, and they never were. */
  void Commit();

 private:
  Access outer_;
  bool is_open_ = false;
  /** Of a host in memory, where the call is going to meet a full disk. */
  std::unique_ptr<const Host> before_;
};

/** Makes one transaction of all calls until CommitHostTransaction or RollBackHostTransaction: they last together or not
    at all, while each of them still succeeds or changes nothing. For a host in memory too. Throw StatusError
    ZEL_INVALID_TXN when one is open already, or none is, as within a call that changes the host; and as HostFile's
    operations do. A commit that throws has rolled back. */
KESTREL_HOST_EXPORT void BeginHostTransaction();
KESTREL_HOST_EXPORT void CommitHostTransaction();
KESTREL_HOST_EXPORT void RollBackHostTransaction();

/** The host of this process, within a call: the one in the file that the environment variable KESTREL_HOST names;
    without it the sample host in memory, unless another was installed. A file that is made begins with the sample host
    too. */
KESTREL_HOST_EXPORT const Host &ReadHost();
/** Throws FatalError outside of a call that changes the host. */
KESTREL_HOST_EXPORT Host &ChangeHost();

/** The handle of something that is part of a running switch, the same one at every call; `switch_number` is filled in.
    Throws StatusError ZEL_NOT_FOUND for a switch that does not run. */
KESTREL_HOST_EXPORT void *HandleOf(HandleMeaning meaning);
/** Null for what is no handle, or the handle of a switch that has been removed, be there another of the same id. */
KESTREL_HOST_EXPORT const HandleMeaning *FindHandle(const void *handle);
/** As HandleTable::KeepValue does. */
KESTREL_HOST_EXPORT const std::string &KeepValue(const void *handle, std::string_view value);

/** Puts `host` in the place of the process's host, in memory; null brings back a new sample host. Ends all handles. */
KESTREL_HOST_EXPORT void InstallProcessHost(std::unique_ptr<Host> host);
/** Puts the host in a file in the place of the process's host; the file is opened with the next call. Ends all
    handles. */
KESTREL_HOST_EXPORT void InstallHostFile(const std::string &path);
/** Null while the host of the process is in memory. */
KESTREL_HOST_EXPORT HostFile *ProcessHostFile();

}  // namespace kestrel::host
