// Zat exceptions: the errors the object framework raises on behalf of its users.
//
// Mutators follow one convention: asking for an existing child with different
// arguments is a re-instantiation error, a null required argument is a
// null-argument error, an index outside its declared bounds is a range error and
// an array given more elements than it holds is a size error.
#pragma once

#include <stdexcept>
#include <string>

namespace Zat {

class Exception : public std::runtime_error {
 public:
  explicit Exception(const std::string& message) : std::runtime_error(message) {}
};

class ReinstantiationException : public Exception {
 public:
  using Exception::Exception;
};

class NullPointerException : public Exception {
 public:
  using Exception::Exception;
};

class RangeException : public Exception {
 public:
  using Exception::Exception;
};

class SizeException : public Exception {
 public:
  using Exception::Exception;
};

class UnknownOperationException : public Exception {
 public:
  using Exception::Exception;
};

// Raises ReinstantiationException: "attribute <attr> reinstantiated with a different
// value: existing <existing>, requested <requested>".
[[noreturn]] void throwMutatorReinstantiating(const std::string& attr, const std::string& existing,
                                              const std::string& requested);

// Raises NullPointerException: "null pointer argument: <argument>".
[[noreturn]] void throwMutatorArgNullPointerException(const std::string& argument);

}  // namespace Zat
