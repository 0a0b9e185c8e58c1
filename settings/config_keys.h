// The named values of the configuration record, as clients and plug-ins read
// and change them one at a time.
#pragma once

#include <windows.h>

#include <string>

#include "settings/config_data.h"

namespace vn_config {

// 0 with the value; 1 when an integer does not fit the ten-character text;
// 0x80070057 for an unknown key.
HRESULT GetValue(const CConfigData& data, const std::wstring& name, std::wstring& value);

// 0, or 0x80070057 for an unknown key. Integers take the decimal number at the
// start of the text (0 without one); booleans are true only for "true".
HRESULT SetValue(CConfigData& data, const std::wstring& name, const std::wstring& value);

}  // namespace vn_config
