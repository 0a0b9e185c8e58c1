// Reads the FileVersion string of the process's own version block.
#pragma once

#include <windows.h>

#include <string>

class CVnVersionInfo {
public:
    // 0 with the text of the first translation's FileVersion string; 1 when the
    // block can't be read; 0x80040214 when version.dll lacks a function.
    HRESULT GetFileVersion(std::string& text);
};
