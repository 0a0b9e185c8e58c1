// CVnHTTPHeaders: storing is exact and lookup ignores the capitals A to Z, the raw block is parsed by its line rules,
// the status line gives the code, and clients enumerate "name: value" texts; a result answers from them.
#include <gtest/gtest.h>

#include <windows.h>
#include <oleauto.h>

#include <string>

#include "vfc/bstr.h"
#include "vfc/com_ptr.h"
#include "vfc/text.h"
#include "web/headers.h"
#include "web/result.h"

namespace {

vfc::TComPtr<CVnHTTPHeaders> New(const std::wstring& pairs = L"", std::string* results = nullptr)
{
    vfc::TComPtr<CVnHTTPHeaders> headers;
    EXPECT_EQ(S_OK, CVnHTTPHeaders::Create(headers.put()));
    std::string ignored;
    for (size_t pos = 0, end, equals; pos < pairs.size(); pos = end + 1) {  // "name=value;..." through AddHeader
        end = std::min(pairs.find(L';', pos), pairs.size()), equals = pairs.find(L'=', pos);
        const std::wstring name = pairs.substr(pos, equals - pos), value = pairs.substr(equals + 1, end - equals - 1);
        (results ? *results : ignored) += std::to_string(headers->AddHeader(name.c_str(), value.c_str()));
    }
    return headers;
}

std::string Text(const CVnHTTPHeaders* headers) { std::string text; return headers->GetHeadersAsText(text) == S_OK ? text : "<failed>"; }

std::string Lookup(const CVnHTTPHeaders* headers, const wchar_t* name)  // or "<none>" for S_FALSE with the value cleared
{
    vfc::TBstr stale(L"stale");
    BSTR value = stale.get();
    const HRESULT hr = headers->GetHeader(name, &value);
    vfc::TBstr found;
    *found.put() = hr == S_OK ? value : nullptr;  // the caller owns what it found
    return hr == S_OK ? vfc::Narrow(found.str()) : hr == S_FALSE && !value ? "<none>" : "<bad>";
}

// The texts Next gives, up to `count` at a time, up to the end; each ended by '|', each call by '/'.
std::string Remaining(IEnumVARIANT* items, ULONG count = 1)
{
    std::string out;
    vfc::TVariant texts[3];  // laid out as an array of VARIANT
    static_assert(sizeof(texts) == 3 * sizeof(VARIANT), "TVariant is a bare VARIANT");
    for (ULONG fetched = count, guard = 0; fetched == count && guard < 100; ++guard, out += "/") {
        const HRESULT hr = items->Next(count, texts[0].put(), &fetched);
        for (ULONG i = 0; i < count; ++i)
            out += texts[i]->vt == VT_BSTR ? vfc::Narrow(texts[i]->bstrVal) + "|" : i < fetched ? "<bad item>" : "";
        out += hr == (fetched == count ? S_OK : S_FALSE) ? "" : "<bad result>";
    }
    return out;
}

}  // namespace

TEST(Headers, AddIsExactAndReplacesOrRemovesInPlaceAndLookupIgnoresCapitals)
{
    const std::pair<const wchar_t*, const char*> rows[] = {  // the pairs added; the results, then the pairs as text
        {L"Accept=*/*;Host=a;Accept=text/html", "000 Accept: text/html\r\nHost: a\r\n\r\n"},
        {L"A=1;B=2;C=3;B=", "0000 A: 1\r\nC: 3\r\n\r\n"},  // later pairs move up
        {L"A=1;B=2;C=3;B=;C=4;B=5", "000000 A: 1\r\nC: 4\r\nB: 5\r\n\r\n"},
        {L"X-Ma\u00DF=1;X-Mass=2", "00 X-Ma\xDF: 2\r\n\r\n"},  // the user's locale finds these names equal
        {L"=value;Absent=", "11 \r\n"},
        {L"Content-Length=5;content-length=7;CONTENT-LENGTH=", "001 Content-Length: 5\r\ncontent-length: 7\r\n\r\n"},
    };
    for (auto& [pairs, expected] : rows) {
        std::string results;
        auto headers = New(pairs, &results);
        EXPECT_EQ(expected, results + " " + Text(headers.get()));
    }
    auto headers = New(L"A=1;Content-Length=5;content-length=7;X-\u00C4rger=yes");
    EXPECT_EQ(S_FALSE, headers->AddHeader(nullptr, L"value"));
    EXPECT_EQ(S_OK, headers->AddHeader(L"A", nullptr));
    std::string found;
    for (const wchar_t* name : {L"content-length", L"CONTENT-LENGTH", L"x-\u00C4RGER", L"Content-Lengt", L"X-\u00E4rger", L"A"})
        found += Lookup(headers.get(), name) + "|";
    EXPECT_EQ("5|5|yes|<none>|<none>|<none>|", found);
    EXPECT_EQ(S_FALSE, headers->GetHeader(L"Content-Length", nullptr));
}

TEST(Headers, RawBlockGivesStatusLineCodeAndPairs)
{
    const char* const rows[][2] = {
        {"HTTP/1.1 200 OK\r\nContent-Length: 5\r\n\r\n", "HTTP/1.1 200 OK#0:200#Content-Length: 5\r\n\r\n"},  // status#code#pairs
        {"  HTTP/1.0 302 Found \t\nLocation:\t /x  \n Odd :v\r\n", "HTTP/1.0 302 Found#0:302#Location: /x\r\n Odd : v\r\n\r\n"},
        {"HTTP/1.1 200 OK\r\nSet-Cookie: a=1\r\nServer: x\r\nSet-Cookie: b=2\r\nServer:\r\nEmpty:   \r\n\r\n",
         "HTTP/1.1 200 OK#0:200#Set-Cookie: b=2\r\n\r\n"},  // the last of a name wins, an empty value removes
        {"HTTP/1.1 200 OK\r\nA: 1\r\nB: 2", "HTTP/1.1 200 OK#0:200#A: 1\r\n\r\n"},  // no line end, no line
        {"\r\nHTTP/1.1 200 OK\r\nA: 1\r\n", "<none>#-2147467259:-1#\r\n"},
        // Without a colon the name runs on to the next one; with none left it is the rest of the block.
        {"HTTP/1.1 200 OK\r\nNoColon\r\nA: b\r\n", "HTTP/1.1 200 OK#0:200#NoColon\r\nA: b\r\nA: b\r\n\r\n"},
        {"HTTP/1.1 200 OK\r\nA: 1\r\nX-Last\r\n", "HTTP/1.1 200 OK#0:200#A: 1\r\nX-Last\r\n: HTTP/1.1 200 OK\r\nA: 1\r\nX-Last\r\n\r\n"},
        // The code is the three characters behind the first blank, or from the start without one.
        {"HTTP/1.1 404 Not Found\r\n", "HTTP/1.1 404 Not Found#0:404#\r\n"}, {"HTTP/1.1 404\r\n", "HTTP/1.1 404#0:404#\r\n"},
        {"HTTP/1.1   500 \r\n", "HTTP/1.1   500#0:500#\r\n"},
        {"HTTP/1.1 2000\r\n", "HTTP/1.1 2000#0:200#\r\n"}, {"123\r\n", "123#0:123#\r\n"}, {"ABC\r\n", "ABC#1:0#\r\n"},
        {"HTTP/1.1 \r\n", "HTTP/1.1#1:0#\r\n"}, {"HTTP/1.1 OK!\r\n", "HTTP/1.1 OK!#1:0#\r\n"},
        {"HTTP/1.1 20\r\n", "HTTP/1.1 20#-2147467259:-1#\r\n"}, {"AB\r\n", "AB#-2147467259:-1#\r\n"},
    };
    for (const auto& row : rows) {
        auto headers = New(L"Old=1");
        ASSERT_EQ(S_OK, headers->InitHeaders(row[0]));
        std::string status = "stale";
        const bool hasStatus = headers->GetStatusLine(status) == S_OK;
        LONG code = -1;
        const HRESULT hr = headers->GetResultCode(&code);
        EXPECT_EQ(hr, headers->GetResultCode(nullptr));
        EXPECT_EQ(row[1], (hasStatus ? status : status.empty() ? "<none>" : "<stale>") + "#" + std::to_string(hr) + ":" +
                              std::to_string(code) + "#" + Text(headers.get()));
    }
    auto headers = New();
    headers->InitHeaders("HTTP/1.1 200 OK\r\nA: 1\r\n");
    EXPECT_EQ(E_FAIL, headers->InitHeaders(nullptr));  // fails, and empties the list all the same
    EXPECT_EQ("\r\n", Text(headers.get()));
}

TEST(Headers, EnumerationSkipResetCloneAndCopy)
{
    auto headers = New(L"A=1;B=2;C=3");
    ULONG fetched = 9;
    EXPECT_EQ(S_OK, headers->Skip(1));
    EXPECT_EQ("B: 2|C: 3|/", Remaining(headers.get(), 3));  // 2 of 3, and false
    EXPECT_EQ(E_INVALIDARG, headers->Next(1, nullptr, &fetched));
    EXPECT_EQ(S_OK, headers->Skip(0xFFFFFFFFu));  // stops at the end, so a pair added now comes next
    headers->AddHeader(L"D", L"4");
    EXPECT_EQ("D: 4|//", Remaining(headers.get()));
    EXPECT_EQ(S_OK, headers->Reset());
    headers->Skip(1);
    headers->InitHeaders("HTTP/1.1 200 OK\r\nA: 1\r\nB: 2\r\n");
    vfc::TComPtr<IEnumVARIANT> clone;
    ASSERT_EQ(S_OK, headers->Clone(clone.put()));
    auto target = New(L"Old=x");
    target->Skip(1);
    std::string status;
    EXPECT_EQ(S_FALSE, static_cast<CVnHTTPHeaders*>(clone.get())->GetStatusLine(status));  // pairs, but no status line
    EXPECT_EQ(S_OK, target->CopyFrom(static_cast<CVnHTTPHeaders*>(clone.get())));
    EXPECT_EQ(E_INVALIDARG, target->CopyFrom(nullptr));
    EXPECT_EQ("A: 1|/B: 2|//|A: 1|/B: 2|//|B: 2|//",
              Remaining(clone.get()) + "|" + Remaining(target.get()) + "|" + Remaining(headers.get()));
}

TEST(Result, RefusesNullOutPointersAndNamesAHeaderItLacks)
{
    vfc::TComPtr<CVnWebResult> result;
    ASSERT_EQ(S_OK, CVnWebResult::Create(result.put()));
    ASSERT_EQ(S_OK, result->SetRawHeaders("HTTP/1.1 204 No Content\r\nServer: vn\r\n"));
    vfc::TBstr name(L"Server"), missing(L"Date"), value;
    EXPECT_EQ(std::make_tuple(E_POINTER, E_POINTER, E_POINTER, E_POINTER), std::make_tuple(result->get_ResultCode(nullptr),
              result->get_Headers(nullptr), result->get_DataStream(nullptr), result->GetHeaderValue(name.get(), nullptr)));
    EXPECT_EQ(E_INVALIDARG, result->GetHeaderValue(missing.get(), value.put()));
    EXPECT_EQ(S_OK, result->GetHeaderValue(name.get(), value.put()));
    EXPECT_EQ(L"vn", value.str());
}
