#pragma once

#include <string>
#include <string_view>

namespace Pelm {

/// The type system's string: bytes, by value.
using String = std::string;
using StringView = std::string_view;

} // namespace Pelm
