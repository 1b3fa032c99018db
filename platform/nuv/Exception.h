#pragma once

#include "platform/nuv/Export.h"
#include "platform/pelm/String.h"

#include <stdexcept>

namespace Nuv {

/// Base of the type system's exceptions: run-time conditions that the caller can act on.
class ZANDOR_EXPORT Exception : public std::runtime_error {
 public:
   using std::runtime_error::runtime_error;
};

/// A value outside the range of its type, or text that is no value of it.
class ZANDOR_EXPORT RangeException : public Exception {
 public:
   using Exception::Exception;
};

/// A field of a record that cannot be read from text.
class ZANDOR_EXPORT DeserializeException : public RangeException {
 public:
   DeserializeException(Pelm::String field, Pelm::String const& reason)
       : RangeException("field '" + field + "': " + reason), field_(std::move(field)) {}

   /// The field's name.
   Pelm::String const& field() const { return field_; }

 private:
   Pelm::String field_;
};

} // namespace Nuv
