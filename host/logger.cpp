#include "host/logger.h"

#include "host/log.h"
#include "vfc/text.h"

STDMETHODIMP CVnLogger::WriteLine(BSTR text)
{
    vfc::TLock own(m_cs);
    // The name and the text go to the log as one message. The log's writer
    // reads conversions in a message safely; handed over as a format of its
    // own, a '%' in the text was read with no argument behind it and could
    // bring the whole server down.
    const std::string line = "[" + m_name + "]  " + vfc::Narrow(text ? text : L"", ::SysStringLen(text));
    LogLine("%s", line.c_str());
    return S_OK;
}
