#include "Units.h"

#include <map>

std::optional<double> MetresPerUnitNamed(const std::string& name) {
  static const std::map<std::string, double> units = {{"mm", 0.001},  {"cm", 0.01},   {"m", 1.0},
                                                      {"km", 1000.0}, {"in", 0.0254}, {"ft", 0.3048},
                                                      {"yd", 0.9144}};
  const auto found = units.find(name);
  return found == units.end() ? std::nullopt : std::optional<double>(found->second);
}

double WorldUnitsPerFileUnit(std::optional<double> stated, std::optional<double> recorded) {
  return WorldUnitsPerMetre * stated.value_or(recorded.value_or(1.0));
}
