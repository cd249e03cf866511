#include "brim/Exceptions.h"

namespace Brim {

// The out-of-line destructors anchor each class's type information in this library,
// so that a catch in another shared object matches the throw in this one.
LayoutMismatchException::LayoutMismatchException(const std::string& message)
    : std::runtime_error(message) {}
LayoutMismatchException::~LayoutMismatchException() = default;

WriterBusyException::WriterBusyException(const std::string& message)
    : std::runtime_error(message) {}
WriterBusyException::~WriterBusyException() = default;

TableFullException::TableFullException(const std::string& message) : std::runtime_error(message) {}
TableFullException::~TableFullException() = default;

TableMissingException::TableMissingException(const std::string& message)
    : std::runtime_error(message) {}
TableMissingException::~TableMissingException() = default;

SlotBusyException::SlotBusyException(const std::string& message)
    : Pontil::CorruptionDetectedException(message) {}
SlotBusyException::~SlotBusyException() = default;

}  // namespace Brim
