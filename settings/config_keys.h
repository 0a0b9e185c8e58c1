// The named values of the configuration record, as clients and plug-ins read
// and change them one at a time.
#pragma once

#include <windows.h>

#include <string>

#include "settings/config_data.h"

namespace vn_config {

// Keys are compared exactly: first the record keys, then "_xmlconfig" (the
// whole record as the configuration file's text, with bare line feeds), then
// the read-only families "ie/proxy/" and "ie/dialup/" (a word that a family
// doesn't know gives an empty text and 0), and anything else is unknown.
// 0 with the value; 1 when an integer does not fit the ten-character text;
// the status of the conversion for "_xmlconfig"; 0x80070057 for an unknown
// key.
HRESULT GetValue(const CConfigData& data, const std::wstring& name, std::wstring& value);

// 0, or 0x80070057 for an unknown key; the "ie/" keys are read-only and
// unknown here. Integers take the decimal number at the start of the text (0
// without one); booleans are true only for "true". "_xmlconfig" overlays the
// record with the elements the text holds and gives the reader's status: 1
// for a text without a root element, 0x80040210 for one that can't be parsed.
HRESULT SetValue(CConfigData& data, const std::wstring& name, const std::wstring& value);

}  // namespace vn_config
