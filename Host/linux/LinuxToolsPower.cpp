// Power, lid and temperature.
#include <algorithm>
#include <cmath>

#include "Host/linux/KernelFiles.h"
#include "Host/linux/LinuxTools.h"
#include "Platform/Text.h"

namespace wakelatch::host {
namespace {

namespace fs = std::filesystem;

/// A device's attribute without the line end; empty if the device has none.
std::string attribute(const fs::path& device, const std::string& name) {
  const std::string content = kernelFile(device / name).value_or("");
  return std::string(platform::trimmed(content));
}

std::optional<long> numericAttribute(const fs::path& device, const std::string& name) {
  return numberIn<long>(attribute(device, name));
}

struct Battery {
  std::string name;
  std::string status;            ///< "Charging", "Discharging", "Not charging", "Full", "Unknown"
  std::optional<long> percent;   ///< of its own capacity
  std::optional<long> capacity;  ///< full charge; µWh or µAh, the same for all of a machine
};

struct PowerSupplies {
  std::vector<Battery> batteries;
  bool chargerKnown = false;
  bool chargerOnline = false;

  bool anyBatteryIs(std::string_view status) const {
    return std::any_of(batteries.begin(), batteries.end(),
                       [&](const Battery& battery) { return battery.status == status; });
  }
};

PowerSupplies powerSuppliesIn(const fs::path& directory) {
  PowerSupplies supplies;
  for (const std::string& name : namesIn(directory)) {
    const fs::path device = directory / name;
    if (attribute(device, "scope") == "Device") continue;  // a mouse's battery, a powered port
    const std::string type = attribute(device, "type");
    if (type == "Battery" || type == "UPS") {
      if (attribute(device, "present") == "0") continue;  // an empty bay
      std::optional<long> capacity = numericAttribute(device, "energy_full");
      if (!capacity) capacity = numericAttribute(device, "charge_full");
      supplies.batteries.push_back(
          {name, attribute(device, "status"), numericAttribute(device, "capacity"), capacity});
    } else if (const auto online = numericAttribute(device, "online")) {  // mains, USB, wireless
      supplies.chargerKnown = true;
      supplies.chargerOnline = supplies.chargerOnline || *online != 0;
    }
  }
  return supplies;
}

/// Whether the machine is on AC power; without a known charger judged by the batteries' states.
bool isOnACPower(const PowerSupplies& supplies) {
  if (supplies.batteries.empty() || supplies.chargerOnline) return true;
  if (supplies.anyBatteryIs("Charging")) return true;
  return !supplies.chargerKnown && !supplies.anyBatteryIs("Discharging");
}

/// The charge of all batteries together, without those of unknown charge.
std::optional<long> chargePercent(const std::vector<Battery>& batteries) {
  const bool weighted = std::all_of(batteries.begin(), batteries.end(), [](const Battery& battery) {
    return battery.capacity.value_or(0) > 0;
  });
  double charge = 0;
  double capacity = 0;
  for (const Battery& battery : batteries) {
    if (!battery.percent) continue;
    const double weight = weighted ? static_cast<double>(*battery.capacity) : 1;
    charge += weight * static_cast<double>(*battery.percent);
    capacity += weight;
  }
  if (capacity == 0) return std::nullopt;
  return std::lround(charge / capacity);
}

std::string chargingState(const PowerSupplies& supplies, bool onACPower) {
  if (!onACPower) return "discharging";
  if (supplies.anyBatteryIs("Charging")) return "charging";
  if (supplies.anyBatteryIs("Discharging")) return "discharging";  // the charger may be too weak
  return supplies.anyBatteryIs("Full") ? "charged" : "AC attached; not charging";
}

ThermalState stateAtTrip(std::string_view tripType) {
  if (tripType == "critical") return ThermalState::critical;
  if (tripType == "hot") return ThermalState::serious;
  return tripType == "passive" ? ThermalState::fair : ThermalState::nominal;
}

ThermalState zoneState(const fs::path& zone) {
  ThermalState state = ThermalState::nominal;
  const auto temperature = numericAttribute(zone, "temp");  // in 0.001 °C, like the trip points
  for (int trip = 0; temperature; ++trip) {
    const std::string prefix = "trip_point_" + std::to_string(trip);
    const std::string type = attribute(zone, prefix + "_type");
    if (type.empty()) break;
    const long limit = numericAttribute(zone, prefix + "_temp").value_or(0);
    // 0 or less means that the trip point is not in use.
    if (limit > 0 && *temperature >= limit) state = std::max(state, stateAtTrip(type));
  }
  return state;
}

}  // namespace

std::string batteryReport(const fs::path& powerSupply) {
  const PowerSupplies supplies = powerSuppliesIn(powerSupply);
  const bool onACPower = isOnACPower(supplies);
  std::string report =
      std::string("Now drawing from '") + (onACPower ? "AC Power" : "Battery Power") + "'\n";
  if (supplies.batteries.empty()) return report;

  std::string name;
  for (const Battery& battery : supplies.batteries)
    name += (name.empty() ? "" : "+") + battery.name;
  report += " -" + name + " (id=0)\t";
  if (const auto percent = chargePercent(supplies.batteries)) {
    report += std::to_string(*percent) + "%; ";
  }
  return report + chargingState(supplies, onACPower) + "; (no estimate) present: true\n";
}

std::string lidReport(const fs::path& lid) {
  std::string report;
  for (const std::string& name : namesIn(lid)) {
    const std::string state = attribute(lid / name, "state");  // "state:      open"
    if (state.ends_with("closed")) report = "      \"AppleClamshellState\" = Yes\n";
    if (state.ends_with("open") && report.empty()) report = "      \"AppleClamshellState\" = No\n";
  }
  return report;
}

ThermalState thermalState(const fs::path& thermal) {
  ThermalState worst = ThermalState::nominal;
  for (const std::string& name : namesIn(thermal)) {
    if (name.starts_with("thermal_zone")) worst = std::max(worst, zoneState(thermal / name));
  }
  return worst;
}

}  // namespace wakelatch::host
