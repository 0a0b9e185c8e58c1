#include "host/logger.h"

#include "host/log.h"
#include "vfc/text.h"

STDMETHODIMP CVnLogger::WriteLine(BSTR text)
{
    vfc::TLock own(m_cs);
    std::string narrow = vfc::Narrow(text ? text : L"", ::SysStringLen(text));
    // The text becomes part of a format, so a '%' in it is read as a conversion.
    std::string format = "[%s]  " + narrow;
    std::string line = vfc::Format(format.c_str(), m_name.c_str());
    LogLine(line.c_str());
    return S_OK;
}
