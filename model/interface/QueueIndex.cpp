#include "interface/QueueIndex.h"

#include "zat/Exception.h"

namespace Interface::QueueCounter {

void QueueIndex::throwOutOfRange() {
  throw Zat::RangeException("QueueIndex::value < QueueIndex::min or > QueueIndex::max not allowed");
}

}  // namespace Interface::QueueCounter
