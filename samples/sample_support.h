// What the samples share: text for the object interfaces, the report of a
// failed call, a configuration key set from the command line, and holding
// an object until told to stop.
#pragma once

#include <windows.h>
#include <objbase.h>

#include <cstdio>
#include <cstring>
#include <string>

#include "vnlinkhost.h"

namespace vn_sample {

// A text of the system code page as a new BSTR; the caller frees it.
inline BSTR Text(const char* text)
{
    int n = MultiByteToWideChar(CP_ACP, 0, text, -1, nullptr, 0);
    BSTR out = SysAllocStringLen(nullptr, n > 0 ? n - 1 : 0);
    if (n > 0)
        MultiByteToWideChar(CP_ACP, 0, text, -1, out, n);
    return out;
}

inline HRESULT Fail(const char* what, HRESULT hr)
{
    std::fprintf(stderr, "%s failed: 0x%08lX\n", what, static_cast<unsigned long>(hr));
    return hr;
}

// "KEY=VALUE" to SetConfigurationValue.
inline HRESULT SetKey(IVnLinkhost* host, const char* assignment)
{
    const char* eq = std::strchr(assignment, '=');
    if (!eq)
        return E_INVALIDARG;
    BSTR name = Text(std::string(assignment, eq).c_str()), value = Text(eq + 1);
    HRESULT hr = host->SetConfigurationValue(name, value);
    SysFreeString(name);
    SysFreeString(value);
    return hr;
}

// Returns at a line "stop" or at the end of the input.
inline void WaitForStop()
{
    char line[256];
    while (std::fgets(line, sizeof line, stdin))
        if (std::strncmp(line, "stop", 4) == 0)
            return;
}

}  // namespace vn_sample
