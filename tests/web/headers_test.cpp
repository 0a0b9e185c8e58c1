// CVnHTTPHeaders: storing is exact and lookup ignores the capitals A to Z,
// the raw block is parsed by its line rules, the status line gives the code,
// and clients enumerate "name: value" texts.
#include <gtest/gtest.h>

#include <windows.h>
#include <oleauto.h>

#include <string>
#include <vector>

#include "vfc/bstr.h"
#include "vfc/com_ptr.h"
#include "web/headers.h"

namespace {

vfc::TComPtr<CVnHTTPHeaders> NewHeaders()
{
    vfc::TComPtr<CVnHTTPHeaders> headers;
    EXPECT_EQ(S_OK, CVnHTTPHeaders::Create(headers.put()));
    return headers;
}

std::wstring Lookup(const CVnHTTPHeaders& headers, const wchar_t* name)
{
    vfc::TBstr value;
    const HRESULT hr = headers.GetHeader(name, value.put());
    if (hr != S_OK) {
        EXPECT_EQ(nullptr, value.get());
        return L"<none>";
    }
    return value.str();
}

std::string Text(const CVnHTTPHeaders& headers)
{
    std::string text;
    EXPECT_EQ(S_OK, headers.GetHeadersAsText(text));
    return text;
}

// Everything left in the enumeration, one element at a time.
std::vector<std::wstring> Remaining(IEnumVARIANT* items)
{
    std::vector<std::wstring> out;
    for (int guard = 0; guard < 1000; ++guard) {
        VARIANT item;
        ::VariantInit(&item);
        ULONG fetched = 99;
        const HRESULT hr = items->Next(1, &item, &fetched);
        if (hr != S_OK) {
            EXPECT_EQ(S_FALSE, hr);
            EXPECT_EQ(0u, fetched);
            break;
        }
        EXPECT_EQ(1u, fetched);
        EXPECT_EQ(VT_BSTR, item.vt);
        out.emplace_back(item.bstrVal, ::SysStringLen(item.bstrVal));
        ::VariantClear(&item);
    }
    return out;
}

}  // namespace

TEST(HeadersAdd, AppendsInOrderAndReplacesInPlace)
{
    auto headers = NewHeaders();
    EXPECT_EQ(S_OK, headers->AddHeader(L"Accept", L"*/*"));
    EXPECT_EQ(S_OK, headers->AddHeader(L"Host", L"a"));
    EXPECT_EQ(S_OK, headers->AddHeader(L"Accept", L"text/html"));
    EXPECT_EQ("Accept: text/html\r\nHost: a\r\n\r\n", Text(*headers.get()));
}

TEST(HeadersAdd, EmptyValueRemovesThePairAndLaterOnesMoveUp)
{
    auto headers = NewHeaders();
    headers->AddHeader(L"A", L"1");
    headers->AddHeader(L"B", L"2");
    headers->AddHeader(L"C", L"3");
    EXPECT_EQ(S_OK, headers->AddHeader(L"B", L""));
    EXPECT_EQ("A: 1\r\nC: 3\r\n\r\n", Text(*headers.get()));
    EXPECT_EQ(S_OK, headers->AddHeader(L"A", nullptr));
    EXPECT_EQ("C: 3\r\n\r\n", Text(*headers.get()));
}

TEST(HeadersAdd, NothingToDoGivesFalse)
{
    auto headers = NewHeaders();
    EXPECT_EQ(S_FALSE, headers->AddHeader(L"", L"value"));
    EXPECT_EQ(S_FALSE, headers->AddHeader(nullptr, L"value"));
    EXPECT_EQ(S_FALSE, headers->AddHeader(L"Absent", L""));
    EXPECT_EQ(0u, headers->GetCount());
    EXPECT_EQ("\r\n", Text(*headers.get()));
}

TEST(HeadersCapitals, StoringIsExactSoOtherCapitalsMakeASecondPair)
{
    auto headers = NewHeaders();
    headers->AddHeader(L"Content-Length", L"5");
    headers->AddHeader(L"content-length", L"7");
    EXPECT_EQ(2u, headers->GetCount());
    EXPECT_EQ("Content-Length: 5\r\ncontent-length: 7\r\n\r\n", Text(*headers.get()));
    // Removing is exact too.
    headers->AddHeader(L"CONTENT-LENGTH", L"");
    EXPECT_EQ(2u, headers->GetCount());
}

TEST(HeadersCapitals, LookupIgnoresCapitalsAndFindsTheFirst)
{
    auto headers = NewHeaders();
    headers->AddHeader(L"Content-Length", L"5");
    headers->AddHeader(L"content-length", L"7");
    EXPECT_EQ(L"5", Lookup(*headers.get(), L"content-length"));
    EXPECT_EQ(L"5", Lookup(*headers.get(), L"CONTENT-LENGTH"));
    EXPECT_EQ(L"<none>", Lookup(*headers.get(), L"Content-Lengt"));
    EXPECT_EQ(L"<none>", Lookup(*headers.get(), L"Content-Length2"));
}

TEST(HeadersCapitals, OnlyTheLettersAToZAreFolded)
{
    auto headers = NewHeaders();
    headers->AddHeader(L"X-\u00C4rger", L"yes");
    EXPECT_EQ(L"yes", Lookup(*headers.get(), L"x-\u00C4RGER"));
    EXPECT_EQ(L"<none>", Lookup(*headers.get(), L"X-\u00E4rger"));
}

TEST(HeadersLookup, AbsentNameOrNoOutPointerGivesFalse)
{
    auto headers = NewHeaders();
    headers->AddHeader(L"Host", L"a");
    EXPECT_EQ(S_FALSE, headers->GetHeader(L"Host", nullptr));
    BSTR value = ::SysAllocString(L"stale");
    BSTR before = value;
    EXPECT_EQ(S_FALSE, headers->GetHeader(L"Accept", &value));
    EXPECT_EQ(nullptr, value);
    ::SysFreeString(before);
}

TEST(HeadersParse, StatusLineAndOneHeaderGiveTheCodeAndThePair)
{
    auto headers = NewHeaders();
    ASSERT_EQ(S_OK, headers->InitHeaders("HTTP/1.1 200 OK\r\nContent-Length: 5\r\n\r\n"));
    LONG code = 0;
    EXPECT_EQ(S_OK, headers->GetResultCode(&code));
    EXPECT_EQ(200, code);
    EXPECT_EQ(1u, headers->GetCount());
    EXPECT_EQ(L"5", Lookup(*headers.get(), L"Content-Length"));
    std::string status;
    EXPECT_EQ(S_OK, headers->GetStatusLine(status));
    EXPECT_EQ("HTTP/1.1 200 OK", status);
}

TEST(HeadersParse, NamesStayAsTheyAreAndValuesAreTrimmed)
{
    auto headers = NewHeaders();
    ASSERT_EQ(S_OK, headers->InitHeaders("  HTTP/1.0 302 Found \t\nLocation:\t /x  \n Odd :v\r\n"));
    std::string status;
    headers->GetStatusLine(status);
    EXPECT_EQ("HTTP/1.0 302 Found", status);
    EXPECT_EQ("Location: /x\r\n Odd : v\r\n\r\n", Text(*headers.get()));
}

TEST(HeadersParse, RepeatedNameKeepsTheLastValueAndAnEmptyValueRemoves)
{
    auto headers = NewHeaders();
    ASSERT_EQ(S_OK, headers->InitHeaders("HTTP/1.1 200 OK\r\n"
                                         "Set-Cookie: a=1\r\n"
                                         "Server: x\r\n"
                                         "Set-Cookie: b=2\r\n"
                                         "Server:\r\n"
                                         "Empty:   \r\n"
                                         "\r\n"));
    EXPECT_EQ("Set-Cookie: b=2\r\n\r\n", Text(*headers.get()));
}

TEST(HeadersParse, LastLineWithoutALineEndIsNotTaken)
{
    auto headers = NewHeaders();
    ASSERT_EQ(S_OK, headers->InitHeaders("HTTP/1.1 200 OK\r\nA: 1\r\nB: 2"));
    EXPECT_EQ("A: 1\r\n\r\n", Text(*headers.get()));
}

TEST(HeadersParse, BlockBeginningWithALineEndGivesNothing)
{
    auto headers = NewHeaders();
    headers->AddHeader(L"Old", L"1");
    ASSERT_EQ(S_OK, headers->InitHeaders("\r\nHTTP/1.1 200 OK\r\nA: 1\r\n"));
    EXPECT_EQ(0u, headers->GetCount());
    std::string status;
    EXPECT_EQ(S_FALSE, headers->GetStatusLine(status));
}

TEST(HeadersParse, NullBlockFailsButEmptiesTheList)
{
    auto headers = NewHeaders();
    headers->AddHeader(L"Old", L"1");
    EXPECT_EQ(E_FAIL, headers->InitHeaders(nullptr));
    EXPECT_EQ(0u, headers->GetCount());
}

TEST(HeadersParse, LineWithoutAColonTakesTheNextColonFurtherOn)
{
    auto headers = NewHeaders();
    ASSERT_EQ(S_OK, headers->InitHeaders("HTTP/1.1 200 OK\r\nNoColon\r\nA: b\r\n"));
    // The name runs across the line end up to the colon of the next line;
    // that next line is then taken once more on its own.
    EXPECT_EQ(2u, headers->GetCount());
    EXPECT_EQ(L"b", Lookup(*headers.get(), L"NoColon\r\nA"));
    EXPECT_EQ(L"b", Lookup(*headers.get(), L"A"));
}

TEST(HeadersParse, LineWithoutAnyColonLeftTakesTheRestOfTheBlockAsName)
{
    auto headers = NewHeaders();
    ASSERT_EQ(S_OK, headers->InitHeaders("HTTP/1.1 200 OK\r\nA: 1\r\nX-Last\r\n"));
    EXPECT_EQ(2u, headers->GetCount());
    // The value is the block from its start to the end of that line, trimmed.
    EXPECT_EQ(L"HTTP/1.1 200 OK\r\nA: 1\r\nX-Last", Lookup(*headers.get(), L"X-Last\r\n"));
}

TEST(HeadersParse, ParsingAgainReplacesTheListAndTheStatusLine)
{
    auto headers = NewHeaders();
    headers->InitHeaders("HTTP/1.1 200 OK\r\nA: 1\r\n");
    headers->InitHeaders("HTTP/1.1 404 Not Found\r\nB: 2\r\n");
    EXPECT_EQ("B: 2\r\n\r\n", Text(*headers.get()));
    LONG code = 0;
    headers->GetResultCode(&code);
    EXPECT_EQ(404, code);
}

TEST(HeadersResultCode, ReadsTheThreeCharactersBehindTheFirstBlank)
{
    struct Case {
        const char* block;
        HRESULT result;
        LONG code;
    } cases[] = {
        {"HTTP/1.1 404\r\n", S_OK, 404},
        {"HTTP/1.1 301 Moved Permanently\r\n", S_OK, 301},
        {"HTTP/1.1   500 \r\n", S_OK, 500},
        {"HTTP/1.1 2000\r\n", S_OK, 200},
        {"ABC\r\n", S_FALSE, 0},  // no blank: read from the start, letters give 0
        {"123\r\n", S_OK, 123},
        {"HTTP/1.1 \r\n", S_FALSE, 0},  // trimmed to a line without a blank
        {"HTTP/1.1 OK!\r\n", S_FALSE, 0},
    };
    for (const Case& c : cases) {
        auto headers = NewHeaders();
        headers->InitHeaders(c.block);
        LONG code = -1;
        EXPECT_EQ(c.result, headers->GetResultCode(&code)) << c.block;
        EXPECT_EQ(c.code, code) << c.block;
        EXPECT_EQ(c.result, headers->GetResultCode(nullptr)) << c.block;
    }
}

TEST(HeadersResultCode, TooShortAStatusLineFails)
{
    for (const char* block : {"HTTP/1.1 20\r\n", "AB\r\n", "HTTP/1.1 2\r\n"}) {
        auto headers = NewHeaders();
        headers->InitHeaders(block);
        LONG code = -1;
        EXPECT_EQ(E_FAIL, headers->GetResultCode(&code)) << block;
        EXPECT_EQ(-1, code) << block;
    }
    auto empty = NewHeaders();
    EXPECT_EQ(E_FAIL, empty->GetResultCode(nullptr));
}

TEST(HeadersEnumeration, NextGivesNameColonValueTextsAndFalseWhenShort)
{
    auto headers = NewHeaders();
    headers->AddHeader(L"A", L"1");
    headers->AddHeader(L"B", L"2");
    headers->AddHeader(L"C", L"3");

    VARIANT items[5];
    for (VARIANT& v : items)
        ::VariantInit(&v);
    ULONG fetched = 0;
    ASSERT_EQ(S_OK, headers->Next(1, items, &fetched));
    EXPECT_EQ(1u, fetched);
    EXPECT_EQ(std::wstring(L"A: 1"), items[0].bstrVal);

    EXPECT_EQ(S_FALSE, headers->Next(5, items, &fetched));
    EXPECT_EQ(2u, fetched);
    ASSERT_EQ(VT_BSTR, items[0].vt);
    EXPECT_EQ(std::wstring(L"B: 2"), items[0].bstrVal);
    EXPECT_EQ(std::wstring(L"C: 3"), items[1].bstrVal);
    EXPECT_EQ(VT_EMPTY, items[2].vt);

    EXPECT_EQ(S_FALSE, headers->Next(1, items, &fetched));
    EXPECT_EQ(0u, fetched);
    EXPECT_EQ(VT_EMPTY, items[0].vt);
    for (VARIANT& v : items)
        ::VariantClear(&v);

    EXPECT_EQ(E_INVALIDARG, headers->Next(1, nullptr, &fetched));
    EXPECT_EQ(0u, fetched);
}

TEST(HeadersEnumeration, SkipStopsAtTheEndAndResetStartsOver)
{
    auto headers = NewHeaders();
    headers->AddHeader(L"A", L"1");
    headers->AddHeader(L"B", L"2");
    headers->AddHeader(L"C", L"3");
    EXPECT_EQ(S_OK, headers->Skip(2));
    EXPECT_EQ((std::vector<std::wstring>{L"C: 3"}), Remaining(headers.get()));
    EXPECT_EQ(S_OK, headers->Reset());
    EXPECT_EQ(S_OK, headers->Skip(1000));
    EXPECT_EQ(std::vector<std::wstring>{}, Remaining(headers.get()));
    // The position stopped at the end, so a pair added now comes next.
    headers->AddHeader(L"D", L"4");
    EXPECT_EQ((std::vector<std::wstring>{L"D: 4"}), Remaining(headers.get()));
    EXPECT_EQ(S_OK, headers->Skip(0xFFFFFFFFu));
    EXPECT_EQ(std::vector<std::wstring>{}, Remaining(headers.get()));
    headers->AddHeader(L"D", L"");
    headers->Reset();
    EXPECT_EQ((std::vector<std::wstring>{L"A: 1", L"B: 2", L"C: 3"}), Remaining(headers.get()));
}

TEST(HeadersEnumeration, CloneStartsAtTheBeginningAndMovesOnItsOwn)
{
    auto headers = NewHeaders();
    headers->InitHeaders("HTTP/1.1 200 OK\r\nA: 1\r\nB: 2\r\n");
    headers->Skip(1);

    vfc::TComPtr<IEnumVARIANT> clone;
    ASSERT_EQ(S_OK, headers->Clone(clone.put()));
    EXPECT_EQ((std::vector<std::wstring>{L"A: 1", L"B: 2"}), Remaining(clone.get()));
    EXPECT_EQ((std::vector<std::wstring>{L"B: 2"}), Remaining(headers.get()));

    // The copy has the pairs but not the status line.
    auto* copy = static_cast<CVnHTTPHeaders*>(clone.get());
    std::string status;
    EXPECT_EQ(S_FALSE, copy->GetStatusLine(status));
    EXPECT_TRUE(status.empty());
    copy->AddHeader(L"C", L"3");
    EXPECT_EQ(2u, headers->GetCount());
}

TEST(HeadersCopy, CopiesThePairsInOrderAndStartsTheEnumerationOver)
{
    auto source = NewHeaders();
    source->AddHeader(L"A", L"1");
    source->AddHeader(L"B", L"2");
    auto target = NewHeaders();
    target->AddHeader(L"Old", L"x");
    target->Skip(1);

    ASSERT_EQ(S_OK, target->CopyFrom(source.get()));
    EXPECT_EQ("A: 1\r\nB: 2\r\n\r\n", Text(*target.get()));
    EXPECT_EQ((std::vector<std::wstring>{L"A: 1", L"B: 2"}), Remaining(target.get()));

    EXPECT_EQ(S_OK, target->CopyFrom(target.get()));
    EXPECT_EQ("A: 1\r\nB: 2\r\n\r\n", Text(*target.get()));
    EXPECT_EQ(E_INVALIDARG, target->CopyFrom(nullptr));
    EXPECT_EQ(2u, target->GetCount());
}

TEST(HeadersStatusLine, AbsentUntilAResponseIsParsed)
{
    auto headers = NewHeaders();
    std::string status = "stale";
    EXPECT_EQ(S_FALSE, headers->GetStatusLine(status));
    EXPECT_TRUE(status.empty());
    headers->InitHeaders("HTTP/1.1 204 No Content\r\n");
    EXPECT_EQ(S_OK, headers->GetStatusLine(status));
    EXPECT_EQ("HTTP/1.1 204 No Content", status);
}
