// Zat strings: the framework's text values.
//
// Zat::String carries free text (a clear request such as "Ethernet3" or "all");
// Zat::Name is a name used as a key (directory entries, policy-map and class
// names). Both are plain value types usable as hash and ordered map keys.
#pragma once

#include <functional>
#include <ostream>
#include <string>
#include <string_view>

namespace Zat {

template <class Tag>
class BasicText {
 public:
  BasicText() = default;
  BasicText(const char* s) : s_(s) {}
  BasicText(std::string s) : s_(std::move(s)) {}
  BasicText(std::string_view s) : s_(s) {}

  const std::string& stringValue() const { return s_; }
  const char* c_str() const { return s_.c_str(); }
  bool empty() const { return s_.empty(); }
  operator std::string_view() const { return s_; }

  friend bool operator==(const BasicText&, const BasicText&) = default;
  friend auto operator<=>(const BasicText& a, const BasicText& b) { return a.s_ <=> b.s_; }
  friend bool operator==(const BasicText& a, std::string_view b) { return a.s_ == b; }
  friend std::ostream& operator<<(std::ostream& os, const BasicText& t) { return os << t.s_; }

 private:
  std::string s_;
};

struct StringTag {};
struct NameTag {};
using String = BasicText<StringTag>;
using Name = BasicText<NameTag>;

}  // namespace Zat

template <class Tag>
struct std::hash<Zat::BasicText<Tag>> {
  size_t operator()(const Zat::BasicText<Tag>& t) const noexcept {
    return std::hash<std::string>()(t.stringValue());
  }
};
