// The read-only key families "ie/proxy/" and "ie/dialup/" of the
// configuration keys: views of the system's current settings, answered on
// each call whatever the configuration record says.
#pragma once

#include <windows.h>

#include <string>

namespace vn_config {

// Recognises the two families by an exact comparison of the first 9
// ("ie/proxy/") or 10 ("ie/dialup/") narrowed characters of the key. For a
// key of either family `handled` becomes true and `value` the system's
// answer (empty for a word the family doesn't know, and when the system
// can't be asked); the status is then always 0. Any other key leaves
// `handled` false and `value` untouched, with status 0.
HRESULT GetSystemValue(const std::wstring& name, std::wstring& value, bool& handled);

}  // namespace vn_config
