#include "vorntypes/VornTypes.h"

namespace VornTypes {

std::ostream& operator<<(std::ostream& os, CounterType t) { return os << static_cast<uint32_t>(t); }

std::ostream& operator<<(std::ostream& os, QueueType t) {
  switch (t) {
    case QueueType::unicast:
      return os << "unicast";
    case QueueType::multicast:
      return os << "multicast";
  }
  return os << "queueType" << static_cast<uint32_t>(t);
}

}  // namespace VornTypes
