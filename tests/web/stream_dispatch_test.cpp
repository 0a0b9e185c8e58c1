// The streams through IDispatch, as a script client sees them: names and
// calls are resolved by the type library embedded in the program.
#include <gtest/gtest.h>

#include <windows.h>
#include <oleauto.h>

#include <initializer_list>
#include <iterator>
#include <memory>
#include <string>
#include <vector>

#include "host/status.h"
#include "tests/web/stream_test_util.h"
#include "vfc/bstr.h"
#include "vfc/com_ptr.h"
#include "web/stream_arrays.h"
#include "web/streams.h"

namespace {

using vn_streams::TSafeArray;
using vn_web_test::ArrayText;
using vn_web_test::Bytes;
using vn_web_test::MakeArray;

class StreamDispatch : public testing::Test {
protected:
    void SetUp() override { ASSERT_TRUE(SUCCEEDED(::CoInitializeEx(nullptr, COINIT_MULTITHREADED))); }
    void TearDown() override { ::CoUninitialize(); }

    static DISPID IdOf(IDispatch* dispatch, const wchar_t* name)
    {
        LPOLESTR names[] = {const_cast<LPOLESTR>(name)};
        DISPID id = DISPID_UNKNOWN;
        EXPECT_EQ(S_OK, dispatch->GetIDsOfNames(IID_NULL, names, 1, LOCALE_USER_DEFAULT, &id)) << name;
        return id;
    }

    // Calls `name` with the arguments in the order of the declaration.
    static HRESULT Call(IDispatch* dispatch, const wchar_t* name, WORD flags, VARIANT* result,
                        std::initializer_list<VARIANT*> args = {}, EXCEPINFO* excep = nullptr)
    {
        // DISPPARAMS take the arguments from the last to the first.
        std::vector<VARIANT> reversed;
        for (auto it = std::rbegin(args); it != std::rend(args); ++it)
            reversed.push_back(**it);
        DISPPARAMS params = {reversed.empty() ? nullptr : reversed.data(), nullptr,
                             static_cast<UINT>(reversed.size()), 0};
        EXCEPINFO local = {};
        UINT argErr = 0;
        HRESULT hr = dispatch->Invoke(IdOf(dispatch, name), IID_NULL, LOCALE_USER_DEFAULT, flags, &params, result,
                                      excep ? excep : &local, &argErr);
        if (!excep) {
            ::SysFreeString(local.bstrSource);
            ::SysFreeString(local.bstrDescription);
            ::SysFreeString(local.bstrHelpFile);
        }
        return hr;
    }
};

}  // namespace

TEST_F(StreamDispatch, ReadStreamAnswersPropertiesAndReadsByName)
{
    vfc::TComPtr<CVnQueueReadStream> stream;
    ASSERT_EQ(S_OK, CVnQueueReadStream::Create(stream.put()));
    stream->WriteToQueue(reinterpret_cast<const BYTE*>("hello\r\nworld"), 0, 12);
    vfc::TComPtr<IDispatch> dispatch;
    ASSERT_EQ(S_OK, stream.query_to(dispatch.put()));

    EXPECT_EQ(0x60020002, IdOf(dispatch.get(), L"AvailableBytes"));
    vfc::TVariant result;
    ASSERT_EQ(S_OK, Call(dispatch.get(), L"AvailableBytes", DISPATCH_PROPERTYGET, result.put()));
    ASSERT_EQ(VT_I4, result->vt);
    EXPECT_EQ(12, result->lVal);

    ASSERT_EQ(S_OK, Call(dispatch.get(), L"CanRead", DISPATCH_PROPERTYGET, result.put()));
    ASSERT_EQ(VT_BOOL, result->vt);
    EXPECT_EQ(VARIANT_TRUE, result->boolVal);

    ASSERT_EQ(S_OK, Call(dispatch.get(), L"ReadString", DISPATCH_METHOD, result.put()));
    ASSERT_EQ(VT_BSTR, result->vt);
    EXPECT_EQ(std::wstring(L"hello\n"), result->bstrVal);

    vfc::TVariant count(static_cast<LONG>(3));
    ASSERT_EQ(S_OK, Call(dispatch.get(), L"Read", DISPATCH_METHOD, result.put(), {count.get()}));
    ASSERT_EQ(VT_ARRAY | VT_UI1, result->vt);
    EXPECT_EQ("\nwo", ArrayText(result->parray));
}

TEST_F(StreamDispatch, WriteStreamTakesAnArrayAndReportsRefusedReadsAsItsStatus)
{
    vfc::TComPtr<CVnQueueWriteStream> stream;
    ASSERT_EQ(S_OK, CVnQueueWriteStream::Create(stream.put()));
    vfc::TComPtr<IDispatch> dispatch;
    ASSERT_EQ(S_OK, stream.query_to(dispatch.put()));

    vfc::TVariant data;
    data.get()->vt = VT_ARRAY | VT_UI1;
    data.get()->parray = MakeArray(Bytes("0123456789"));
    vfc::TVariant start(static_cast<LONG>(4));
    vfc::TVariant length(static_cast<LONG>(3));
    vfc::TVariant result;
    ASSERT_EQ(S_OK, Call(dispatch.get(), L"Write", DISPATCH_METHOD, result.put(),
                         {data.get(), start.get(), length.get()}));
    ASSERT_EQ(VT_I4, result->vt);
    EXPECT_EQ(3, result->lVal);

    LONG taken = 0;
    std::unique_ptr<BYTE[]> block = stream->ReadFromQueue(0, &taken, 0);
    ASSERT_EQ(3, taken);
    EXPECT_EQ("456", std::string(reinterpret_cast<const char*>(block.get())));

    EXCEPINFO excep = {};
    vfc::TVariant none(static_cast<LONG>(0));
    const HRESULT hr = Call(dispatch.get(), L"Read", DISPATCH_METHOD, result.put(), {none.get()}, &excep);
    const HRESULT reported = hr == DISP_E_EXCEPTION ? excep.scode : hr;
    EXPECT_EQ(VN_E_STREAM_NOT_READABLE, reported);
    ::SysFreeString(excep.bstrSource);
    ::SysFreeString(excep.bstrDescription);
    ::SysFreeString(excep.bstrHelpFile);
}
