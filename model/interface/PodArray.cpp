#include "interface/PodArray.h"

#include <cstdint>

#include "zat/Exception.h"

namespace Interface::QueueCounter {

std::string podArraySizeMessage(size_t capacity, size_t count, const void* address, size_t bytes) {
  static constexpr char kHex[] = "0123456789abcdef";
  std::string hexAddress;
  for (auto a = reinterpret_cast<uintptr_t>(address); a != 0 || hexAddress.empty(); a >>= 4) {
    hexAddress.insert(hexAddress.begin(), kHex[a & 0xf]);
  }
  std::string message = "PodArray::set expected size <= " + std::to_string(capacity) +
                        ", instead got " + std::to_string(count) + ". Buffer is at address: 0x" +
                        hexAddress + " with contents: ";
  const auto* p = static_cast<const unsigned char*>(address);
  for (size_t i = 0; i < bytes; ++i) {
    if (i) message += ' ';
    message += kHex[p[i] >> 4];
    message += kHex[p[i] & 0xf];
  }
  return message;
}

void throwPodArraySize(size_t capacity, size_t count, const void* address, size_t bytes) {
  throw Zat::SizeException(podArraySizeMessage(capacity, count, address, bytes));
}

}  // namespace Interface::QueueCounter
