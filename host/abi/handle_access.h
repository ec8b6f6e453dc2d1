/* From handles to what they stand for. A handle that is stale, or never was one, stands for nothing. */
#pragma once

#include "host/abi/guard.h"
#include "host/core/process_host.h"

namespace kestrel::host::abi {

/** Throws StatusError ZEL_INVALID_HANDLE for no handle of that kind. */
inline const HandleMeaning &MeaningOf(const void *handle, HandleMeaning::Kind kind) {
  const HandleMeaning *meaning = FindHandle(handle);
  if (meaning == nullptr || meaning->kind != kind) throw StatusError(ZEL_INVALID_HANDLE);
  return *meaning;
}

/** Throws StatusError ZEL_INVALID_HANDLE, and ZEL_NOT_FOUND while the switches are released. */
inline const SwitchConfig &SwitchOfHandle(const void *handle) {
  return ReadHost().FindSwitchById(MeaningOf(handle, HandleMeaning::Kind::kSwitch).switch_id).config;
}

inline const Port &PortOfHandle(const void *handle) {
  const HandleMeaning &meaning = MeaningOf(handle, HandleMeaning::Kind::kPort);
  const Port *port = ReadHost().FindSwitchById(meaning.switch_id).config.ports().Find(meaning.port);
  if (port == nullptr) throw StatusError(ZEL_NOT_FOUND);
  return *port;
}

inline const Property &PropertyOfHandle(const void *handle) {
  const HandleMeaning &meaning = MeaningOf(handle, HandleMeaning::Kind::kProperty);
  const SwitchConfig &config = ReadHost().FindSwitchById(meaning.switch_id).config;
  const Property *property = config.PropertiesAt({meaning.level, meaning.port}).Find(meaning.key);
  if (property == nullptr) throw StatusError(ZEL_NOT_FOUND);
  return *property;
}

/** What `answer()` gives, or 0 or null where it is refused. */
template <typename Answer>
auto OrNothing(Answer answer, const char *function = __builtin_FUNCTION()) {
  decltype(answer()) found{};
  ReadCall([&] { found = answer(); }, function);
  return found;
}

}  // namespace kestrel::host::abi
