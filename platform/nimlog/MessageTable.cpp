#include "nimlog/MessageTable.h"

#include <atomic>
#include <cstring>
#include <limits>

namespace Nimlog {

namespace {

constexpr std::size_t kMaxTextLength = std::numeric_limits<std::uint16_t>::max();

std::string cut(const char* text) {
  if (text == nullptr) {
    return {};
  }
  return std::string(text, strnlen(text, kMaxTextLength));
}

}  // namespace

std::uint32_t MessageTable::add(const char* module, std::uint32_t line, const char* text) {
  sites_.push_back(MessageSite{cut(module), line, cut(text)});
  return static_cast<std::uint32_t>(sites_.size() - 1);
}

void appendTextEntry(std::byte* base, format::FileHeader& header, std::uint32_t id,
                     const MessageSite& site) noexcept {
  if (header.flags & format::kFlagTextsDropped) {
    return;
  }
  std::atomic_ref<std::uint64_t> used(header.textUsed);
  const std::uint64_t offset = used.load(std::memory_order_relaxed);
  const std::uint64_t size =
      sizeof(format::TextEntryHeader) + site.module.size() + site.text.size();
  if (header.textCount != id || size > header.textCapacity - offset) {
    header.flags |= format::kFlagTextsDropped;
    return;
  }
  format::TextEntryHeader entry{id, site.line, static_cast<std::uint16_t>(site.module.size()),
                                static_cast<std::uint16_t>(site.text.size())};
  std::byte* out = base + header.textOffset + offset;
  std::memcpy(out, &entry, sizeof entry);
  std::memcpy(out + sizeof entry, site.module.data(), site.module.size());
  std::memcpy(out + sizeof entry + site.module.size(), site.text.data(), site.text.size());
  header.textCount = id + 1;
  // A decoder reading the live file trusts bytes below textUsed only.
  used.store(offset + size, std::memory_order_release);
}

}  // namespace Nimlog
