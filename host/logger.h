// ILogger: how a plug-in writes to the log, each line marked with its name.
#pragma once

#include <string>

#include "vfc/com_object.h"
#include "vfc/critical_section.h"
#include "vnlinkhost.h"

class CVnLogger : public vfc::TComObject<CVnLogger, ILogger> {
public:
    // A logger lives as long as its plug-in holds it; it keeps no process alive.
    static constexpr bool LocksModule = false;

    void SetName(const std::string& name) { m_name = name; }

    STDMETHODIMP WriteLine(BSTR text) override;

private:
    std::string m_name;
    vfc::TCriticalSection m_cs;
};
