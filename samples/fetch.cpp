// Fetches a URL through VnLinkhost and prints the status, the response
// headers and the body, the way an application would use the component.
//
//   fetch URL [METHOD] [--body TEXT] [--interactive] [--count]
//
// --count reads the body to its end but prints only the number of its bytes,
// for bodies too large or too binary to print.
//
// The component works out alone how this machine reaches the internet (proxy,
// dial-up); the client only names its process and window. The exit code is
// 0 for any HTTP answer, or the failing status.
#include <windows.h>
#include <objbase.h>

#include <cstdio>
#include <cstring>
#include <string>

#include "sample_support.h"
#include "vnlinkhost.h"

namespace {

using vn_sample::Fail;
using vn_sample::Text;

// Writes the whole body text to the request's stream.
HRESULT WriteBody(IVnWebRequest* request, const char* body)
{
    BSTR name = Text("Content-Length"), value = Text(std::to_string(std::strlen(body)).c_str());
    HRESULT hr = request->AddHeader(name, value);
    SysFreeString(name);
    SysFreeString(value);
    IVnStream* stream = nullptr;
    if (SUCCEEDED(hr))
        hr = request->get_DataStream(&stream);
    if (FAILED(hr) || !stream)
        return FAILED(hr) ? hr : E_FAIL;
    const ULONG length = static_cast<ULONG>(std::strlen(body));
    SAFEARRAY* data = SafeArrayCreateVector(VT_UI1, 0, length);
    void* raw = nullptr;
    SafeArrayAccessData(data, &raw);
    std::memcpy(raw, body, length);
    SafeArrayUnaccessData(data);
    LONG written = 0;
    hr = stream->Write(data, 0, static_cast<LONG>(length), &written);
    SafeArrayDestroy(data);
    stream->Release();
    return hr;
}

void PrintHeaders(IVnWebResult* result)
{
    IEnumVARIANT* headers = nullptr;
    if (FAILED(result->get_Headers(&headers)) || !headers)
        return;
    VARIANT pair;
    VariantInit(&pair);
    ULONG fetched = 0;
    while (headers->Next(1, &pair, &fetched) == S_OK && fetched == 1) {
        if (pair.vt == VT_BSTR)
            std::printf("%ls\n", pair.bstrVal);
        VariantClear(&pair);
    }
    headers->Release();
}

// Reads the body to its end, writing it to stdout unless `countOnly`, and
// gives the number of bytes read.
//
// This is the fastest way to read: large reads (64 KiB here; Read(0) takes
// all that is queued), each of which returns as soon as any bytes are there
// and waits only while none are. Don't poll AvailableBytes in between. With
// the server's unmarshaller DLL of this program's bitness registered, the
// bytes come from memory shared with the server and a read costs no call to
// it; without the DLL each read is one call, so large reads matter more.
unsigned long long ReadBody(IVnWebResult* result, bool countOnly)
{
    unsigned long long total = 0;
    IVnStream* stream = nullptr;
    if (FAILED(result->get_DataStream(&stream)) || !stream)
        return total;
    for (;;) {
        SAFEARRAY* data = nullptr;
        HRESULT hr = stream->Read(65536, &data);
        if (FAILED(hr) || !data) {
            if (FAILED(hr) && hr != static_cast<HRESULT>(0x80040216))
                Fail("Read", hr);
            break;
        }
        LONG upper = -1;
        SafeArrayGetUBound(data, 1, &upper);
        void* raw = nullptr;
        SafeArrayAccessData(data, &raw);
        if (upper >= 0 && !countOnly)
            std::fwrite(raw, 1, static_cast<size_t>(upper) + 1, stdout);
        SafeArrayUnaccessData(data);
        SafeArrayDestroy(data);
        if (upper < 0)
            break;  // an empty array: the body has ended
        total += static_cast<unsigned long long>(upper) + 1;
    }
    stream->Release();
    return total;
}

}  // namespace

int main(int argc, char** argv)
{
    if (argc < 2) {
        std::fprintf(stderr, "usage: fetch URL [METHOD] [--body TEXT] [--interactive] [--count]\n");
        return 2;
    }
    const char* url = argv[1];
    const char* method = "GET";
    const char* body = nullptr;
    LONG flags = 0;
    bool countOnly = false;
    for (int i = 2; i < argc; ++i) {
        if (std::strcmp(argv[i], "--body") == 0 && i + 1 < argc)
            body = argv[++i];
        else if (std::strcmp(argv[i], "--interactive") == 0)
            flags = 1;
        else if (std::strcmp(argv[i], "--count") == 0)
            countOnly = true;
        else
            method = argv[i];
    }

    CoInitializeEx(nullptr, COINIT_MULTITHREADED);
    IVnLinkhost* host = nullptr;
    IVnWebSession* session = nullptr;
    IVnWebRequest* request = nullptr;
    IVnWebResult* result = nullptr;
    HRESULT hr = CoCreateInstance(CLSID_VnLinkhostObject, nullptr, CLSCTX_LOCAL_SERVER, IID_IVnLinkhost,
                                  reinterpret_cast<void**>(&host));
    if (FAILED(hr))
        return Fail("CoCreateInstance", hr);
    hr = host->CreateSession(static_cast<LONG>(GetCurrentProcessId()), 0, flags, &session);
    if (SUCCEEDED(hr)) {
        BSTR u = Text(url), m = Text(method);
        hr = session->CreateWebRequest(u, m, &request);
        SysFreeString(u);
        SysFreeString(m);
    }
    if (SUCCEEDED(hr) && body)
        hr = WriteBody(request, body);
    if (SUCCEEDED(hr))
        hr = request->Execute(&result);
    if (SUCCEEDED(hr) && result) {
        LONG code = 0;
        result->get_ResultCode(&code);
        std::printf("Status: %ld\n", static_cast<long>(code));
        PrintHeaders(result);
        std::printf("\n");
        // The head is out before a long body starts.
        std::fflush(stdout);
        const unsigned long long bytes = ReadBody(result, countOnly);
        if (countOnly)
            std::printf("%llu body bytes\n", bytes);
        std::fflush(stdout);
    } else {
        Fail("Request", hr);
    }
    if (result)
        result->Release();
    if (request)
        request->Release();
    if (session)
        session->Release();
    host->Release();
    CoUninitialize();
    return SUCCEEDED(hr) ? 0 : hr;
}
