/* Faults for calls to meet. */
#include "host/core/faults.h"

#include <algorithm>
#include <string>
#include <vector>

#include "host/abi/channel.h"
#include "host/abi/record_block.h"
#include "host/core/base/record_bytes.h"
#include "host/lab/call.h"
#include "host/lab/handing_out.h"
#include "host/lab/refusal.h"
#include "kestrel/lab.h"

namespace kestrel::host::lab {
namespace {

/** The functions that can fail, in order; derived from the headers. */
constexpr std::string_view kFunctions[] = {
#include "fault_functions.inc"
};

std::string_view FunctionNamed(std::string_view name) {
  if (!std::ranges::binary_search(kFunctions, name)) {
    throw Refusal(ZEL_NOT_FOUND, "the platform has no function " + std::string(name) + " that can fail");
  }
  return name;
}

template <std::size_t width>
std::string TextIn(const char (&field)[width]) {
  const std::string_view text = TextOf(field);
  if (text.size() == width) throw Refusal(ZEL_BAD_PARAM, "a text has no end");
  return std::string(text);
}

Fault FaultOf(const KestrelLabFault &asked) {
  Fault fault{.function = std::string(FunctionNamed(TextIn(asked.function))), .effect = {}};
  if (asked.at == 0 || asked.times == 0) throw Refusal(ZEL_BAD_PARAM, "calls are numbered from 1");
  fault.calls_before = asked.at - 1;
  fault.calls_left = asked.times;
  switch (asked.effect) {
    case KESTREL_LAB_STATUS:
      if (asked.status == ZEL_OK) throw Refusal(ZEL_BAD_PARAM, "success is no fault");
      fault.effect = FaultEffect::kStatus;
      fault.status = asked.status;
      return fault;
    case KESTREL_LAB_ABORT:
      fault.effect = FaultEffect::kAbort;
      fault.exception = TextIn(asked.exception);
      fault.message = TextIn(asked.message);
      if (!abi::CanRaise(fault.exception.c_str())) {
        throw Refusal(ZEL_BAD_PARAM, "the interpreter has no exception " + fault.exception);
      }
      return fault;
    case KESTREL_LAB_DISK_FULL:
      fault.effect = FaultEffect::kDiskFull;
      return fault;
  }
  throw Refusal(ZEL_BAD_PARAM, "a fault has no such effect");
}

KestrelLabEffect EffectOf(FaultEffect effect) {
  switch (effect) {
    case FaultEffect::kStatus:
      return KESTREL_LAB_STATUS;
    case FaultEffect::kAbort:
      return KESTREL_LAB_ABORT;
    case FaultEffect::kDiskFull:
      return KESTREL_LAB_DISK_FULL;
  }
  throw FatalError("a fault has an unknown effect");
}

KestrelLabFault RecordOf(const Fault &fault) {
  KestrelLabFault record{};
  record.id = fault.id;
  record.at = fault.calls_before + 1;
  record.times = fault.calls_left;
  record.effect = EffectOf(fault.effect);
  record.status = fault.status;
  abi::SetText(record.function, fault.function);
  abi::SetText(record.exception, fault.exception);
  abi::SetText(record.message, fault.message);
  return record;
}

}  // namespace
}  // namespace kestrel::host::lab

using namespace kestrel::host;
using namespace kestrel::host::lab;

KESTREL_HOST_EXPORT ZEL_ReturnStatus kestrel_lab_arm_fault(const KestrelLabFault *fault, zel_uint64 *idOut) {
  return WithoutHost([&] {
    abi::ClearOutputs(idOut);
    abi::RequirePointer(fault);
    abi::SetOutput(idOut, zel_uint64{ArmFault(FaultOf(*fault))});
  });
}

KESTREL_HOST_EXPORT ZEL_ReturnStatus kestrel_lab_disarm_fault(zel_uint64 id) {
  return WithoutHost([&] {
    if (!DisarmFault(id)) throw StatusError(ZEL_NOT_FOUND);
  });
}

KESTREL_HOST_EXPORT ZEL_ReturnStatus kestrel_lab_disarm_faults(void) {
  return WithoutHost([] { DisarmFaults(); });
}

KESTREL_HOST_EXPORT ZEL_ReturnStatus kestrel_lab_list_faults(KestrelLabFault **faultsCell, size_t *countCell) {
  return WithoutHost([&] {
    abi::ClearOutputs(faultsCell, countCell);
    std::vector<KestrelLabFault> records;
    for (const Fault &fault : ArmedFaults()) records.push_back(RecordOf(fault));
    HandOut(records, faultsCell, countCell);
  });
}

KESTREL_HOST_EXPORT ZEL_ReturnStatus kestrel_lab_count_calls(zel_Bool on) {
  return WithoutHost([&] { CountCalls(on != 0); });
}

KESTREL_HOST_EXPORT ZEL_ReturnStatus kestrel_lab_calls_of(const char *function, zel_uint64 *countOut) {
  return WithoutHost([&] {
    abi::ClearOutputs(countOut);
    abi::RequirePointer(function);
    abi::SetOutput(countOut, zel_uint64{CallsOf(FunctionNamed(function))});
  });
}
