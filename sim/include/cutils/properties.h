#pragma once

// Host stand-in for the platform's system properties.

#define PROPERTY_VALUE_MAX 92

#ifdef __cplusplus
extern "C" {
#endif

// Copies the property's value (at most PROPERTY_VALUE_MAX - 1 characters and a NUL) into
// `value`, which holds PROPERTY_VALUE_MAX bytes; an unset or empty property yields
// `default_value` (or "" when that is null). Returns the length copied.
int property_get(const char* key, char* value, const char* default_value);

#ifdef __cplusplus
}
#endif
