#pragma once

/// Marks what other libraries may use: everything else stays inside its own. Also a type that is thrown, cast
/// to or told by its name across libraries has to be marked, and what such a type is made of.
#define ZANDOR_EXPORT __attribute__((visibility("default")))
