#include "brim/HeaderCheck.h"

#include <bit>
#include <cstdio>
#include <cstring>

namespace Brim::detail {

using Layout::TableHeader;

std::string hex64(uint64_t value) {
  char text[19];
  std::snprintf(text, sizeof text, "0x%016llx", static_cast<unsigned long long>(value));
  return text;
}

TableHeader readFixedHeader(const unsigned char* base) {
  TableHeader fixed;
  std::memset(&fixed, 0, sizeof fixed);
  // The fixed fields are never written after the table is published, so a plain
  // copy cannot race with the writer.
  std::memcpy(&fixed, base, Layout::kFixedHeaderSize);
  return fixed;
}

namespace {

std::string typeNameOf(const TableHeader& fixed) {
  // A damaged header need not hold a terminating NUL, and its bytes end up in a
  // one-line report: anything but printable ASCII is shown as \xNN.
  static constexpr char kHex[] = "0123456789abcdef";
  std::string out;
  for (size_t i = 0; i < strnlen(fixed.typeName, sizeof fixed.typeName); ++i) {
    const auto c = static_cast<unsigned char>(fixed.typeName[i]);
    if (c >= 0x20 && c < 0x7f && c != '\\') {
      out.push_back(static_cast<char>(c));
    } else {
      out += "\\x";
      out.push_back(kHex[c >> 4]);
      out.push_back(kHex[c & 15]);
    }
  }
  return out;
}

std::string geometryFinding(const TableHeader& fixed, uint64_t objectSize) {
  const bool sane = fixed.capacity >= 1 && fixed.capacity <= Layout::kMaxCapacity &&
                    fixed.recordSize % 8 == 0 && fixed.recordSize <= (1u << 20);
  const Layout::Geometry expected =
      sane ? Layout::geometryFor(fixed.recordSize, fixed.capacity) : Layout::Geometry{};
  if (!sane || fixed.slotSize != expected.slotSize || fixed.slotCount != expected.slotCount ||
      fixed.slotsOffset != Layout::kHeaderSize || fixed.totalSize != expected.totalSize) {
    return "impossible geometry (capacity " + std::to_string(fixed.capacity) + ", " +
           std::to_string(fixed.slotCount) + " slots of " + std::to_string(fixed.slotSize) +
           " bytes at offset " + std::to_string(fixed.slotsOffset) + ", " +
           std::to_string(fixed.totalSize) + " bytes in all)";
  }
  if (fixed.totalSize > objectSize) {
    return "object is " + std::to_string(objectSize) + " bytes, smaller than the " +
           std::to_string(fixed.totalSize) + " bytes its header describes";
  }
  return "";
}

}  // namespace

HeaderFindings inspectHeader(const TableHeader& fixed, uint64_t objectSize,
                             const RecordLayout& want, bool firstLayout) {
  HeaderFindings findings;
  if (fixed.magic != Layout::kMagic) {
    findings.foreign = "bad magic number " + hex64(fixed.magic) + " (not a Brim table)";
    return findings;
  }
  const uint32_t major = firstLayout ? Layout::v1::kMajorVersion : Layout::kMajorVersion;
  if (fixed.majorVersion != major) {
    findings.foreign = "layout version " + std::to_string(fixed.majorVersion) + "." +
                       std::to_string(fixed.minorVersion) + ", this build reads major version " +
                       std::to_string(Layout::kMajorVersion);
    return findings;
  }
  findings.checksumOk = (firstLayout ? Layout::v1::headerChecksum(fixed)
                                     : Layout::headerChecksum(fixed)) == fixed.fixedChecksum;
  const std::string typeName = typeNameOf(fixed);
  if (typeName != want.typeName) {
    findings.layout.push_back("record type is '" + typeName + "', expected '" + want.typeName +
                              "'");
  }
  if (fixed.recordSize != want.recordSize) {
    findings.layout.push_back("record size is " + std::to_string(fixed.recordSize) +
                              " bytes, expected " + std::to_string(want.recordSize));
  }
  if (fixed.layoutHash != want.layoutHash) {
    findings.layout.push_back("record field layout hash is " + hex64(fixed.layoutHash) +
                              ", expected " + hex64(want.layoutHash));
  }
  // Geometry follows from the record size: with another record it says nothing new.
  if (findings.layout.empty()) {
    std::string geometry = geometryFinding(fixed, objectSize);
    if (!geometry.empty()) findings.damage.push_back(std::move(geometry));
  }
  return findings;
}

std::string inspectCounts(const TableHeader& fixed, uint64_t liveCount, uint64_t tombCount,
                          uint64_t maxProbe) {
  if (liveCount <= fixed.capacity && tombCount <= fixed.slotCount &&
      liveCount + tombCount <= fixed.slotCount && maxProbe < fixed.slotCount) {
    return "";
  }
  return "impossible counts (" + std::to_string(liveCount) + " live, " + std::to_string(tombCount) +
         " tombstones, longest probe " + std::to_string(maxProbe) + ", capacity " +
         std::to_string(fixed.capacity) + ", " + std::to_string(fixed.slotCount) + " slots)";
}

std::string joinFindings(const std::vector<std::string>& findings) {
  std::string joined;
  for (const auto& finding : findings) {
    if (!joined.empty()) joined += "; ";
    joined += finding;
  }
  return joined;
}

}  // namespace Brim::detail
