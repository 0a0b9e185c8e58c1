// What the request tests share: the servers that scripts/with-servers started, a root object in the real server
// process, and ways to send a request and read its answer through the object interfaces.
#pragma once

#include <gtest/gtest.h>

#include <cstring>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include "server/server_fixture.h"
#include "vfc/bstr.h"
#include "vfc/text.h"
#include "web/stream_arrays.h"

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
    static void SetUpTestSuite()
    {
        ASSERT_FALSE(ReadyLine("VN_ORIGIN").empty()) << "run under scripts/with-servers";
        ASSERT_EQ(0u, RunServer("/RegServer"));
        HRESULT hr = E_FAIL;
        s_root = CreateRoot(&hr);
        ASSERT_TRUE(s_root) << std::hex << hr;
    }
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

    // Sets record keys on the shared root object.
    static void Configure(std::initializer_list<std::pair<const wchar_t*, std::wstring>> keys)
    {
        for (const auto& [name, value] : keys)
            ASSERT_EQ(S_OK, s_root->SetConfigurationValue(vfc::TBstr(name).get(), vfc::TBstr(value).get())) << vfc::Narrow(name);
    }
    // Direct connections, no system settings: what most tests want.
    static void ConfigureDirect()
    {
        Configure({{L"proxy/useSystemProxy", L"false"}, {L"proxy/mode", L"0"}, {L"dialup/useSystemConnection", L"false"},
                   {L"dialup/mode", L"0"}, {L"proxy/skipHeadAuth", L"false"}});
    }
    static void ConfigureProxy(const std::string& port)
    {
        Configure({{L"proxy/useSystemProxy", L"false"}, {L"proxy/mode", L"2"}, {L"proxy/address", L"127.0.0.1"},
                   {L"proxy/port", vfc::Widen(port)}, {L"proxy/exclude", L""}, {L"proxy/noLocal", L"false"},
                   {L"dialup/useSystemConnection", L"false"}, {L"dialup/mode", L"0"}});
    }

    // A request of a new session of this process, in background mode unless `flags` say otherwise.
    static vfc::TComPtr<IVnWebRequest> Request(const std::string& url, const wchar_t* method, LONG flags = 0)
    {
        vfc::TComPtr<IVnWebSession> session;
        vfc::TComPtr<IVnWebRequest> request;
        EXPECT_EQ(S_OK, s_root->CreateSession(static_cast<LONG>(GetCurrentProcessId()), 0, flags, session.put()));
        EXPECT_EQ(S_OK, session ? session->CreateWebRequest(vfc::TBstr(vfc::Widen(url)).get(), vfc::TBstr(method).get(), request.put())
                                : E_POINTER);
        return request;
    }
    // Executes; the status of Execute, with the result in `result`.
    static HRESULT Execute(IVnWebRequest* request, vfc::TComPtr<IVnWebResult>& result) { return request->Execute(result.put()); }
    static LONG Code(IVnWebResult* result) { LONG code = -1; return result && SUCCEEDED(result->get_ResultCode(&code)) ? code : -1; }
    static std::string Header(IVnWebResult* result, const wchar_t* name)
    {
        vfc::TBstr value;
        return result && result->GetHeaderValue(vfc::TBstr(name).get(), value.put()) == S_OK ? vfc::Narrow(value.str()) : "<missing>";
    }
    // The whole body, read through IVnStream::Read(readSize); the status that ended the reading goes to `status`
    // (S_OK at a clean end).
    static std::string Body(IVnWebResult* result, HRESULT* status = nullptr, LONG readSize = 65536)
    {
        vfc::TComPtr<IVnStream> stream;
        if (!result || FAILED(result->get_DataStream(stream.put())) || !stream)
            return "<no stream>";
        std::string bytes;
        HRESULT hr = S_OK;
        for (int guard = 0; guard < 1000000; ++guard) {  // up to an empty block, the end
            vn_streams::TSafeArray data;
            LONG upper = -1;
            if (FAILED(hr = stream->Read(readSize, data.put())) || !data || FAILED(SafeArrayGetUBound(data.get(), 1, &upper)) || upper < 0)
                break;
            bytes.append(static_cast<const char*>(data.get()->pvData), static_cast<size_t>(upper + 1));
        }
        if (status)
            *status = hr;
        return bytes;
    }
    static HRESULT AddHeader(IVnWebRequest* request, const wchar_t* name, const std::wstring& value)
    {
        return request->AddHeader(vfc::TBstr(name).get(), vfc::TBstr(value).get());
    }
    // Writes bytes to the request's stream (DataStream, then Write).
    static HRESULT WriteBody(IVnWebRequest* request, const std::string& bytes)
    {
        vfc::TComPtr<IVnStream> stream;
        const HRESULT hr = request->get_DataStream(stream.put());
        if (hr != S_OK || !stream)
            return FAILED(hr) ? hr : E_FAIL;
        vn_streams::TSafeArray data(SafeArrayCreateVector(VT_UI1, 0, static_cast<ULONG>(bytes.size())));
        std::memcpy(data.get()->pvData, bytes.data(), bytes.size());
        LONG written = 0;
        return stream->Write(data.get(), 0, static_cast<LONG>(bytes.size()), &written);
    }

    // What one Execute gave: its status, the result's code, the whole body, the status that ended the body and the
    // origin's digest header.
    struct TAnswer {
        HRESULT hr = E_FAIL, end = E_FAIL;
        LONG code = -1;
        std::string body, digest;
    };
    static TAnswer Answer(IVnWebRequest* request)
    {
        TAnswer answer;
        vfc::TComPtr<IVnWebResult> result;
        if ((answer.hr = request ? Execute(request, result) : E_POINTER) == S_OK) {
            answer.code = Code(result.get()), answer.digest = Header(result.get(), L"X-Body-Sha256");
            answer.body = Body(result.get(), &answer.end);
        }
        return answer;
    }

    // GETs the URL, lets go of the request and reads the whole body: empty
    // when it is complete and matches the origin's digest, else what failed.
    static std::string FetchChecked(const std::string& url)
    {
        vfc::TComPtr<IVnWebResult> result;
        HRESULT hr = E_FAIL;
        if (auto request = Request(url, L"GET"))
            hr = Execute(request.get(), result);
        HRESULT end = E_FAIL;
        const std::string body = hr == S_OK ? Body(result.get(), &end) : "";
        if (hr == S_OK && Code(result.get()) == 200 && Sha256(body) == Header(result.get(), L"X-Body-Sha256"))
            return "";
        char status[96];
        snprintf(status, sizeof status, ": 0x%08lX, code %ld, the body ended with 0x%08lX after ", static_cast<unsigned long>(hr),
                 Code(result.get()), static_cast<unsigned long>(end));
        return url + status + std::to_string(body.size()) + " bytes";
    }

    static inline vfc::TComPtr<IVnLinkhost> s_root;
};

// The platform's keep-alive pool would hand a direct connection to a
// proxied request of the same server process: these run in a fresh one.
class ProxiedRequests : public Pipeline {
protected:
    static void SetUpTestSuite()
    {
        Pipeline::TearDownTestSuite();
        Pipeline::SetUpTestSuite();
    }
};

// The log lines, the origin server's or a squid's as `variable` names the log, that hold the marker.
inline std::vector<std::string> MarkedRequests(const std::string& marker, const char* variable = "VN_ORIGIN_LOG")
{
    std::vector<std::string> lines;
    std::istringstream log(ReadWholeFile(std::getenv(variable)));
    for (std::string line; std::getline(log, line);)
        if (line.find(marker) != std::string::npos)
            lines.push_back(line);
    return lines;
}

}  // namespace vn_test
