#include "zat/Exception.h"

namespace Zat {

void throwMutatorReinstantiating(const std::string& attr, const std::string& existing,
                                 const std::string& requested) {
  throw ReinstantiationException("attribute " + attr +
                                 " reinstantiated with a different value: existing " + existing +
                                 ", requested " + requested);
}

void throwMutatorArgNullPointerException(const std::string& argument) {
  throw NullPointerException("null pointer argument: " + argument);
}

}  // namespace Zat
