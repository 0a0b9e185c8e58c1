// What the request tests share: the servers that scripts/with-servers started, a root object in the real server
// process, and ways to send a request and read its answer through the object interfaces.
#pragma once

#include <gtest/gtest.h>

#include <map>
#include <string>

#include "server/server_fixture.h"
#include "vfc/bstr.h"
#include "vfc/text.h"

namespace vn_test {

// The platform's receive time-out, shortened for a test through the value an
// administrator would set under Internet Settings; read by each new session.
struct TReceiveTimeout {
    explicit TReceiveTimeout(DWORD ms) { RegSetKeyValueA(HKEY_CURRENT_USER, kKey, "ReceiveTimeout", REG_DWORD, &ms, sizeof ms); }
    ~TReceiveTimeout() { RegDeleteKeyValueA(HKEY_CURRENT_USER, kKey, "ReceiveTimeout"); }
    static constexpr const char* kKey = "Software\\Microsoft\\Windows\\CurrentVersion\\Internet Settings";
};

class Pipeline : public testing::Test {
protected:
    static void SetUpTestSuite();
    static void TearDownTestSuite()
    {
        if (s_root)
            ShutDownServer(s_root);
    }

    // "http://127.0.0.1:<port><path>" for a listener of the origin server.
    static std::string Url(const char* path, const char* listener = "http")
    {
        return "http://127.0.0.1:" + ReadyLine("VN_ORIGIN")[listener] + path;
    }
    static std::string TlsUrl(const char* path, const char* listener = "https")
    {
        return "https://localhost:" + ReadyLine("VN_ORIGIN")[listener] + path;
    }

    // Sets record keys on the shared root object (empty value list = none).
    static void Configure(std::initializer_list<std::pair<const wchar_t*, std::wstring>> keys);
    // Direct connections, no system settings: what most tests want.
    static void ConfigureDirect();
    static void ConfigureProxy(const std::string& port);

    // A request of a new session of this process, in background mode unless `flags` say otherwise.
    static vfc::TComPtr<IVnWebRequest> Request(const std::string& url, const wchar_t* method, LONG flags = 0);
    // Executes; the status of Execute, with the result in `result`.
    static HRESULT Execute(IVnWebRequest* request, vfc::TComPtr<IVnWebResult>& result) { return request->Execute(result.put()); }
    static LONG Code(IVnWebResult* result)
    {
        LONG code = -1;
        return result && SUCCEEDED(result->get_ResultCode(&code)) ? code : -1;
    }
    static std::string Header(IVnWebResult* result, const wchar_t* name)
    {
        vfc::TBstr value;
        return result && result->GetHeaderValue(vfc::TBstr(name).get(), value.put()) == S_OK ? vfc::Narrow(value.str()) : "<missing>";
    }
    // The whole body, read in blocks through IVnStream::Read; the status that ended the reading goes to `status`
    // (S_OK at a clean end).
    static std::string Body(IVnWebResult* result, HRESULT* status = nullptr);
    static HRESULT AddHeader(IVnWebRequest* request, const wchar_t* name, const std::wstring& value)
    {
        return request->AddHeader(vfc::TBstr(name).get(), vfc::TBstr(value).get());
    }
    // Writes bytes to the request's stream (DataStream, then Write).
    static HRESULT WriteBody(IVnWebRequest* request, const std::string& bytes);

    // What one Execute gave: its status, the result's code, the whole body,
    // the status that ended the body and the origin's digest header.
    struct TAnswer {
        HRESULT hr = E_FAIL, end = E_FAIL;
        LONG code = -1;
        std::string body, digest;
    };
    static TAnswer Answer(IVnWebRequest* request);

    static vfc::TComPtr<IVnLinkhost> s_root;
};

}  // namespace vn_test
