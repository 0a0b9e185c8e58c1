// The XML classes are part of the program file's binary boundary: other
// programs link against them by their decorated names, so on Windows they are
// exported from VnLinkhost.exe itself. A native build (the fuzzer, quick checks
// on the development machine) has no such boundary and exports nothing.
#pragma once

#if defined(_WIN32)
#define VN_XML_EXPORT __declspec(dllexport)
#else
#define VN_XML_EXPORT
#endif
