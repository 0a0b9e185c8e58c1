#include "integration/pipeline_fixture.h"

#include <cstring>

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

void Pipeline::Configure(std::initializer_list<std::pair<const wchar_t*, std::wstring>> keys)
{
    for (const auto& key : keys)
        ASSERT_EQ(S_OK, s_root->SetConfigurationValue(vfc::TBstr(key.first).get(), vfc::TBstr(key.second).get())) << vfc::Narrow(key.first);
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
    EXPECT_EQ(S_OK, s_root->CreateSession(static_cast<LONG>(GetCurrentProcessId()), 0, flags, session.put()));
    EXPECT_EQ(S_OK, session ? session->CreateWebRequest(vfc::TBstr(vfc::Widen(url)).get(), vfc::TBstr(method).get(), request.put()) : E_POINTER);
    return request;
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

HRESULT Pipeline::WriteBody(IVnWebRequest* request, const std::string& bytes)
{
    vfc::TComPtr<IVnStream> stream;
    HRESULT hr = request->get_DataStream(stream.put());
    if (hr != S_OK || !stream)
        return FAILED(hr) ? hr : E_FAIL;
    vn_streams::TSafeArray data(SafeArrayCreateVector(VT_UI1, 0, static_cast<ULONG>(bytes.size())));
    std::memcpy(data.get()->pvData, bytes.data(), bytes.size());
    LONG written = 0;
    return stream->Write(data.get(), 0, static_cast<LONG>(bytes.size()), &written);
}

}  // namespace vn_test
