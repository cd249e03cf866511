#include "qos/QosStatus.h"

namespace Qos {

std::ostream& operator<<(std::ostream& os, MapType t) {
  switch (t) {
    case MapType::mapControlPlane:
      return os << "mapControlPlane";
    case MapType::mapQos:
      return os << "mapQos";
    case MapType::mapPdp:
      return os << "mapPdp";
  }
  return os << "mapType" << static_cast<uint32_t>(t);
}

std::ostream& operator<<(std::ostream& os, Direction d) {
  switch (d) {
    case Direction::input:
      return os << "input";
    case Direction::output:
      return os << "output";
  }
  return os << "direction" << static_cast<uint32_t>(d);
}

std::ostream& operator<<(std::ostream& os, const PolicyMapHwStatusKey& k) {
  return os << k.pmapName << " " << k.direction;
}

void PolicyMapHwStatus::attributesDescribe(Zat::Describer& d) const {
  d.attribute("key", Zat::toText(key_));
  for (const auto& [name, programmed] : class_)
    d.attribute("class " + name.stringValue(), Zat::toText(programmed));
}

void PolicyMapTypeHwStatus::attributesDescribe(Zat::Describer& d) const {
  d.attribute("type", Zat::toText(type_));
  for (const auto& [key, p] : pmap_) d.child("pmap", Zat::toText(key), p.ptr());
}

}  // namespace Qos
