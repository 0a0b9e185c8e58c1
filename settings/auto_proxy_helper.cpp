#include "settings/auto_proxy_helper.h"

#include <winsock2.h>
#include <ws2tcpip.h>
#include <wininet.h>

#include <cstdio>
#include <fstream>
#include <iterator>
#include <vector>

#include "host/log.h"
#include "vfc/com_ptr.h"
#include "vfc/text.h"
#include "web/request.h"

namespace {

const char* const kDownload = "CVnAutoProxyHelper::URLDownloadToFileEx";

// Whether the cache file holds the script of automatic detection. A plain
// flag: two parallel first downloads both write the file.
volatile bool bAutoProxyFileCached = false;

std::string CacheFilePath()
{
    std::string folder;
    GetKonfigurationFolder(folder);
    std::string path = folder + "\\VnLinkhost.tmp";
    ::SetFileAttributesA(path.c_str(), 0);
    return path;
}

HRESULT Fail(const char* message, HRESULT hr)
{
    LogLine(vn_log::kErrorDec, kDownload, message, static_cast<int>(hr));
    return hr;
}

// The whole body of one direct GET, or a failure status.
HRESULT Download(const std::string& url, VnProcessMonitor& monitor, std::vector<char>& body)
{
    vfc::TComPtr<CVnWebRequest> request;
    HRESULT hr = vfc::CreateInto(request);
    if (FAILED(hr))
        return Fail("CComObject<CVnWebRequest>::CreateInstance(&pWebRequest) failed.", hr);
    // No proxy and no dial-up: the download can't depend on what it is to find.
    CConfigData direct;
    direct.m_UseSystemProxy = false;
    direct.m_UseSystemConnection = false;
    direct.m_DialMode = DialNever;
    direct.m_ProxyMode = ProxyNone;
    request->SetParams(vfc::Widen(url).c_str(), L"GET", direct, nullptr, monitor);

    vfc::TComPtr<IVnWebResult> result;
    hr = request->Execute(result.put());
    if (FAILED(hr))
        return Fail("spWebRequest->Execute((IDispatch**)&spWebResult) failed.", hr);
    if (!result)
        return Fail("pWebRequest->Execute(&spWebResult) returns NULL pWebResult.", E_FAIL);
    LONG code = 0;
    hr = result->get_ResultCode(&code);
    if (FAILED(hr))
        return Fail("spWebResult->get_ResultCode(&iResultCode) failed.", hr);
    if (code != 200) {
        LogLine(vn_log::kErrorDec, kDownload, "Wrong response code.", static_cast<int>(code));
        return S_FALSE;
    }
    vfc::TComPtr<IVnStream> stream;
    hr = result->get_DataStream(stream.put());
    if (FAILED(hr))
        return Fail("spWebResult->get_DataStream((IVnStream**)&pReadStream) failed.", hr);
    if (!stream)
        return Fail("spWebResult->get_DataStream((IVnStream**)&pReadStream) returns NULL pReadStream.", E_FAIL);
    // The stream is this process's own read stream: take its bytes directly.
    auto* readStream = static_cast<CVnQueueReadStream*>(static_cast<CVnQueueCustomStream*>(stream.get()));
    for (;;) {
        LONG available = 0;
        hr = stream->get_AvailableBytes(&available);
        if (FAILED(hr)) {
            Fail("pReadStream->get_AvailableBytes(&lStreamSize) failed.", hr);
            break;
        }
        if (available < 0)
            break;
        LONG count = 0;
        std::unique_ptr<BYTE[]> data = readStream->ReadFromQueue(available, &count, INFINITE);
        if (count < 0)
            break;
        if (data && count > 0)
            body.insert(body.end(), data.get(), data.get() + count);
    }
    return S_OK;
}

bool CopyTextFile(const std::string& from, const std::string& to)
{
    std::ifstream in(from);
    if (!in)
        return false;
    std::ofstream out(to, std::ios::out | std::ios::trunc);
    if (!out)
        return false;
    out << in.rdbuf();
    return true;
}

// The script engine's host functions.
DWORD WINAPI ResolveHostName(LPSTR host, LPSTR address, LPDWORD size)
{
    addrinfo hints = {};
    hints.ai_flags = AI_NUMERICHOST;
    hints.ai_family = AF_UNSPEC;
    hints.ai_socktype = SOCK_STREAM;
    hints.ai_protocol = IPPROTO_TCP;
    addrinfo* found = nullptr;
    int rc = ::getaddrinfo(host, nullptr, &hints, &found);
    if (rc == 0) {
        // Already an address.
        ::freeaddrinfo(found);
        const DWORD length = static_cast<DWORD>(strlen(host));
        if (!address || *size < length) {
            *size = length + 1;
            return ERROR_INSUFFICIENT_BUFFER;
        }
        memcpy(address, host, length + 1 <= *size ? length + 1 : length);
        return 0;
    }
    if (rc == WSAHOST_NOT_FOUND) {
        hints.ai_flags = 0;
        rc = ::getaddrinfo(host, nullptr, &hints, &found);
        if (rc == 0) {
            DWORD result = ERROR_INTERNET_NAME_NOT_RESOLVED;
            for (addrinfo* a = found; a; a = a->ai_next) {
                if (a->ai_family != AF_INET)
                    continue;
                if (::getnameinfo(a->ai_addr, static_cast<socklen_t>(a->ai_addrlen), address, *size, nullptr, 0,
                                  NI_NUMERICHOST) == 0)
                    result = 0;
                break;
            }
            ::freeaddrinfo(found);
            return result;
        }
    }
    return rc == WSA_NOT_ENOUGH_MEMORY ? WSA_NOT_ENOUGH_MEMORY : ERROR_INTERNET_NAME_NOT_RESOLVED;
}

BOOL WINAPI IsResolvable(LPSTR host)
{
    char address[254];
    DWORD size = sizeof address;
    return ResolveHostName(host, address, &size) == 0;
}

DWORD WINAPI GetIPAddress(LPSTR address, LPDWORD size)
{
    char name[254];
    if (::gethostname(name, sizeof name) != 0)
        return ERROR_INTERNET_INTERNAL_ERROR;
    return ResolveHostName(name, address, size);
}

BOOL WINAPI IsInNet(LPSTR address, LPSTR net, LPSTR mask)
{
    const unsigned long a = ::inet_addr(address), n = ::inet_addr(net), m = ::inet_addr(mask);
    return a != INADDR_NONE && n != INADDR_NONE && (a & m) == n;
}

// Four functions, then zeros for whatever further entries an engine may look at.
struct HostTable {
    decltype(&IsResolvable) isResolvable;
    decltype(&GetIPAddress) getIPAddress;
    decltype(&ResolveHostName) resolveHostName;
    decltype(&IsInNet) isInNet;
    void* rest[8];
};
const HostTable kHostTable = {IsResolvable, GetIPAddress, ResolveHostName, IsInNet, {}};
struct HostFunctions {
    const HostTable* table;
};
HostFunctions g_hostFunctions = {&kHostTable};

}  // namespace

AutoProxyHelperFunctions* ScriptHostFunctions() { return reinterpret_cast<AutoProxyHelperFunctions*>(&g_hostFunctions); }

HRESULT CVnAutoProxyHelper::URLDownloadToFileEx(const std::string& url, const std::string& destination,
                                                VnProcessMonitor& monitor, bool bForce)
{
    const std::string working = bForce ? destination : CacheFilePath();
    HRESULT hr = S_OK;
    if (!bAutoProxyFileCached || bForce) {
        std::vector<char> body;
        // A failed download still ends in the line below, unless forced.
        hr = Download(url, monitor, body);
        if (hr == S_OK && !body.empty()) {
            std::ofstream out(working, std::ios::out | std::ios::trunc);
            if (out) {
                out.write(body.data(), static_cast<std::streamsize>(body.size()));
                if (!bForce)
                    bAutoProxyFileCached = true;
            }
        }
    }
    if (!bForce && !bAutoProxyFileCached) {
        LogLine(vn_log::kError, kDownload, "File was not downloaded.");
        return S_FALSE;
    }
    if (working == destination)
        return hr;
    return CopyTextFile(working, destination) ? hr : S_FALSE;
}
