#include "integration/pipeline_fixture.h"

#include <sstream>

#include "vfc/text.h"
#include "web/stream_arrays.h"

namespace vn_test {

vfc::TComPtr<IVnLinkhost> Pipeline::s_root;

std::string Pipeline::Body(IVnWebResult* result, HRESULT* status)
{
    vfc::TComPtr<IVnStream> stream;
    if (!result || FAILED(result->get_DataStream(stream.put())) || !stream)
        return "<no stream>";
    std::string bytes;
    HRESULT hr = S_OK;
    for (int guard = 0; guard < 1000000; ++guard) {  // up to an empty block, the end
        vn_streams::TSafeArray data;
        LONG upper = -1;
        if (FAILED(hr = stream->Read(65536, data.put())) || !data || FAILED(SafeArrayGetUBound(data.get(), 1, &upper)) || upper < 0)
            break;
        bytes.append(static_cast<const char*>(data.get()->pvData), static_cast<size_t>(upper + 1));
    }
    if (status)
        *status = hr;
    return bytes;
}

void Pipeline::SetUpTestSuite()
{
    ASSERT_FALSE(ReadyLine("VN_ORIGIN").empty()) << "run under scripts/with-servers";
    ASSERT_EQ(0u, RunServer("/RegServer"));
    HRESULT hr = E_FAIL;
    s_root = CreateRoot(&hr);
    ASSERT_TRUE(s_root) << std::hex << hr;
}

void Pipeline::TearDownTestSuite()
{
    if (s_root)
        ShutDownServer(s_root);
}

std::string Pipeline::Url(const char* path, const char* listener)
{
    return "http://127.0.0.1:" + ReadyLine("VN_ORIGIN")[listener] + path;
}

std::string Pipeline::TlsUrl(const char* path, const char* listener)
{
    return "https://localhost:" + ReadyLine("VN_ORIGIN")[listener] + path;
}

void Pipeline::Configure(std::initializer_list<std::pair<const wchar_t*, std::wstring>> keys)
{
    for (const auto& key : keys) {
        vfc::TBstr name(key.first), value(key.second);
        ASSERT_EQ(S_OK, s_root->SetConfigurationValue(name.get(), value.get())) << vfc::Narrow(key.first);
    }
}

void Pipeline::ConfigureDirect()
{
    Configure({{L"proxy/useSystemProxy", L"false"}, {L"proxy/mode", L"0"}, {L"dialup/useSystemConnection", L"false"},
               {L"dialup/mode", L"0"}, {L"proxy/skipHeadAuth", L"false"}});
}

void Pipeline::ConfigureProxy(const std::string& port)
{
    Configure({{L"proxy/useSystemProxy", L"false"}, {L"proxy/mode", L"2"}, {L"proxy/address", L"127.0.0.1"},
               {L"proxy/port", vfc::Widen(port)}, {L"proxy/exclude", L""}, {L"proxy/noLocal", L"false"},
               {L"dialup/useSystemConnection", L"false"}, {L"dialup/mode", L"0"}});
}

vfc::TComPtr<IVnWebRequest> Pipeline::Request(const std::string& url, const wchar_t* method, LONG flags)
{
    vfc::TComPtr<IVnWebSession> session;
    vfc::TComPtr<IVnWebRequest> request;
    vfc::TBstr u(vfc::Widen(url)), m(method);
    EXPECT_EQ(S_OK, s_root->CreateSession(static_cast<LONG>(GetCurrentProcessId()), 0, flags, session.put()));
    EXPECT_EQ(S_OK, session ? session->CreateWebRequest(u.get(), m.get(), request.put()) : E_POINTER);
    return request;
}

HRESULT Pipeline::Execute(IVnWebRequest* request, vfc::TComPtr<IVnWebResult>& result)
{
    return request->Execute(result.put());
}

LONG Pipeline::Code(IVnWebResult* result)
{
    LONG code = -1;
    if (result)
        result->get_ResultCode(&code);
    return code;
}

std::string Pipeline::Header(IVnWebResult* result, const wchar_t* name)
{
    vfc::TBstr n(name), value;
    if (!result || result->GetHeaderValue(n.get(), value.put()) != S_OK)
        return "<missing>";
    return vfc::Narrow(value.str());
}

Pipeline::TAnswer Pipeline::Answer(IVnWebRequest* request)
{
    TAnswer answer;
    vfc::TComPtr<IVnWebResult> result;
    answer.hr = request ? Execute(request, result) : E_POINTER;
    if (answer.hr != S_OK)
        return answer;
    answer.code = Code(result.get());
    answer.body = Body(result.get(), &answer.end);
    answer.digest = Header(result.get(), L"X-Body-Sha256");
    return answer;
}

HRESULT Pipeline::AddHeader(IVnWebRequest* request, const wchar_t* name, const std::wstring& value)
{
    vfc::TBstr n(name), v(value);
    return request->AddHeader(n.get(), v.get());
}

HRESULT Pipeline::WriteBody(IVnWebRequest* request, const std::string& bytes)
{
    vfc::TComPtr<IVnStream> stream;
    HRESULT hr = request->get_DataStream(stream.put());
    if (hr != S_OK || !stream)
        return FAILED(hr) ? hr : E_FAIL;
    SAFEARRAY* data = SafeArrayCreateVector(VT_UI1, 0, static_cast<ULONG>(bytes.size()));
    void* raw = nullptr;
    SafeArrayAccessData(data, &raw);
    memcpy(raw, bytes.data(), bytes.size());
    SafeArrayUnaccessData(data);
    LONG written = 0;
    hr = stream->Write(data, 0, static_cast<LONG>(bytes.size()), &written);
    SafeArrayDestroy(data);
    return hr;
}

std::vector<std::string> MarkedRequests(const std::string& marker, const char* variable)
{
    std::vector<std::string> lines;
    std::istringstream log(ReadWholeFile(std::getenv(variable)));
    for (std::string line; std::getline(log, line);)
        if (line.find(marker) != std::string::npos)
            lines.push_back(line);
    return lines;
}

}  // namespace vn_test
