#include "host/core/switch_command.h"

#include <array>

#include "host/core/base/errors.h"
#include "host/core/properties/property_types.h"

namespace kestrel::host {
namespace {

std::string Help(const Host & /*host*/, const Switch & /*target*/) {
  std::string text;
  for (const SwitchCommand &command : SwitchCommands()) {
    text.append(command.name).append(12 - command.name.size(), ' ').append(command.summary) += '\n';
  }
  return text;
}

/** A text between quotation marks, with the bytes that would break the line, or the quotation, in hexadecimal. */
std::string Quoted(std::string_view text) {
  static constexpr std::string_view kDigits = "0123456789abcdef";
  std::string quoted = "\"";
  for (const char byte : text) {
    const auto code = static_cast<unsigned char>(byte);
    if (code < ' ' || byte == '"' || byte == '\\' || code == 0x7f) {
      quoted.append("\\x") += kDigits[code >> 4];
      quoted += kDigits[code & 15];
    } else {
      quoted += byte;
    }
  }
  return quoted + '"';
}

void AppendLine(std::string &text, std::string_view name, std::string_view value) {
  text.append(name).append(1, ' ').append(value) += '\n';
}

std::string Show(const Host & /*host*/, const Switch &target) {
  const SwitchConfig &config = target.config;
  const SwitchSpec &spec = config.spec();
  std::string text;
  AppendLine(text, "id", Quoted(spec.id));
  AppendLine(text, "alias", Quoted(spec.alias));
  AppendLine(text, "portset", Quoted(spec.portset));
  AppendLine(text, "class", Quoted(spec.class_name));
  AppendLine(text, "version", std::to_string(spec.version));
  AppendLine(text, "member", spec.is_member ? "yes" : "no");
  AppendLine(text, "mtu", std::to_string(MtuOf(config)));
  AppendLine(text, "ports", std::to_string(config.ports().size()) + " of " + std::to_string(spec.max_ports));
  AppendLine(text, "addresses", std::to_string(target.runtime.macs.entries().size()));
  for (const Port &port : config.ports().Items()) {
    std::string line = Quoted(port.name) + " id " + std::to_string(port.id);
    if (const Uplink *uplink = config.uplinks().Find(port.id)) line += " uplink " + Quoted(uplink->name);
    if (port.client) line += " client " + Quoted(port.client->name);
    AppendLine(text, "port", line);
  }
  for (const Lag &lag : config.lags().Items()) {
    std::string line = Quoted(lag.name) + " id " + std::to_string(lag.id);
    for (const std::string &member : lag.members) line += " member " + Quoted(member);
    AppendLine(text, "lag", line);
  }
  return text;
}

std::string NamesOfTypes(std::uint32_t type) {
  std::string names;
  for (const PropertyTypeRow &row : PropertyTypeRows()) {
    if ((type & row.type) == 0) continue;
    if (!names.empty()) names += '|';
    names += row.name;
  }
  return names;
}

void AppendProperties(std::string &text, std::string_view owner, const PropertySet &properties) {
  for (const auto &[key, property] : properties.Items()) {
    AppendLine(
        text, owner,
        Quoted(key) + ' ' + NamesOfTypes(property.type) + ' ' + std::to_string(property.value.size()) + " bytes");
  }
}

std::string Properties(const Host & /*host*/, const Switch &target) {
  const SwitchConfig &config = target.config;
  std::string text;
  AppendProperties(text, "switch", config.properties());
  AppendProperties(text, "host", config.PropertiesAt({PropertyLevel::kHost}));
  for (const Port &port : config.ports().Items()) AppendProperties(text, "port " + Quoted(port.name), port.properties);
  for (const Uplink &uplink : config.uplinks().Items()) {
    AppendProperties(text, "uplink " + Quoted(uplink.name), uplink.properties);
  }
  return text;
}

std::string Image(const Host &host, const Switch &target) { return host.ImageOfSwitch(target.config.spec().portset); }

std::string Restore(Host &host, const Switch &target, std::string_view input) {
  host.RestoreSwitch(target.config.spec().portset, input);
  return {};
}

std::string Flush(Host &host, const Switch &target, std::string_view /*input*/) {
  return std::to_string(host.FlushAddresses(target.config.spec().portset)) + '\n';
}

constexpr auto kCommands = std::to_array<SwitchCommand>({
    {"flush", "drops the learned addresses and tells how many there were", false, nullptr, Flush},
    {"help", "lists the commands", false, Help, nullptr},
    {"image", "gives a state image of the switch alone", false, Image, nullptr},
    {"properties", "lists the properties that are set, with their types and lengths", false, Properties, nullptr},
    {"restore", "puts the switch back from the input, an image as \"image\" gives it", true, nullptr, Restore},
    {"show", "tells what the switch is and what it has", false, Show, nullptr},
});

}  // namespace

std::span<const SwitchCommand> SwitchCommands() { return kCommands; }

std::string RunSwitchCommand(const SwitchCommand &command, const Host &host, Host &(*to_change)(),
                             std::string_view owner, std::string_view input) {
  const Switch &target = host.FindSwitch(owner);
  if (!command.has_input && !input.empty()) throw StatusError(ZEL_BAD_PARAM);
  return command.read != nullptr ? command.read(host, target) : command.change(to_change(), target, input);
}

}  // namespace kestrel::host
