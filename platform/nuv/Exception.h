#pragma once

#include <stdexcept>

namespace Nuv {

/// Base of the type system's exceptions: run-time conditions that the caller can act on.
class Exception : public std::runtime_error {
   using std::runtime_error::runtime_error;
};

/// A value outside the range of its type.
class RangeException : public Exception {
   using Exception::Exception;
};

} // namespace Nuv
