#pragma once

/// The platform's system properties. The packaged header of libcutils does not compile outside of
/// bionic, so the one operation needed is declared here.

constexpr int PropertyValueSize = 92;  ///< bytes of a property's value, its terminator included

extern "C" {
/// Copies the property's value, or `fallback` when it is unset, into `value` (PropertyValueSize bytes).
/// Returns the length copied.
int property_get(const char* key, char* value, const char* fallback);
}
