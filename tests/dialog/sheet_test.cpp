// The configuration sheet on a real display: shown on a thread of this process and driven from the test's thread like a
// user would, and shown by the real program with -c. The dial-up entries come from the stand-in RASAPI32.DLL.
#include <gtest/gtest.h>

#include <windows.h>
#include <commctrl.h>
#include <prsht.h>

#include <thread>

#include "dialog/dialog_ids.h"
#include "dialog/property_sheet.h"
#include "server/server_fixture.h"
#include "tests/doubles/rasapi32/standin_registry.h"
#include "tests/doubles/test_plugin/recording_page.h"
#include "tests/settings/settings_support.h"
#include "vfc/bstr.h"
#include "vfc/com_object.h"
#include "vfc/text.h"

namespace {

HWND FindSheet(DWORD timeoutMs = 10000)
{
    HWND sheet = nullptr;
    vn_test::WaitUntil([&] { return (sheet = ::FindWindowA(nullptr, "Internetoptionen")) != nullptr; }, timeoutMs);
    return sheet;
}

// A shown sheet, driven from outside its thread as a user would: pages, clicks, the buttons.
struct TSheet {
    HWND window;
    HWND Page() const { return reinterpret_cast<HWND>(::SendMessageA(window, PSM_GETCURRENTPAGEHWND, 0, 0)); }
    HWND Item(int id) const { return ::GetDlgItem(Page(), id); }
    void Select(int index) const { ::SendMessageA(window, PSM_SETCURSEL, index, 0); }
    void Click(int id) const { ::SendMessageA(Item(id), BM_CLICK, 0, 0); }
    bool Checked(int id) const { return ::SendMessageA(Item(id), BM_GETCHECK, 0, 0) == BST_CHECKED; }
    bool Enabled(int id) const { return ::IsWindowEnabled(Item(id)) != FALSE; }
    bool ApplyEnabled() const { return ::IsWindowEnabled(::GetDlgItem(window, 0x3021)) != FALSE; }
    void Press(int button) const { ::PostMessageA(window, PSM_PRESSBUTTON, button, 0); }
    std::string Text(int id) const
    {
        char text[512] = {};
        ::SendMessageA(Item(id), WM_GETTEXT, sizeof text, reinterpret_cast<LPARAM>(text));
        return text;
    }
    HWND TabControl() const { return reinterpret_cast<HWND>(::SendMessageA(window, PSM_GETTABCONTROL, 0, 0)); }
    int TabCount() const { return static_cast<int>(::SendMessageA(TabControl(), TCM_GETITEMCOUNT, 0, 0)); }
    // The tabs' titles in their order (of a sheet in this process: the platform does not carry the text across processes).
    std::vector<std::string> Tabs() const
    {
        std::vector<std::string> titles(static_cast<size_t>(TabCount()));
        for (size_t i = 0; i < titles.size(); ++i) {
            char text[128] = {};
            TCITEMA item = {};
            item.mask = TCIF_TEXT, item.pszText = text, item.cchTextMax = sizeof text;
            ::SendMessageA(TabControl(), TCM_GETITEMA, i, reinterpret_cast<LPARAM>(&item));
            titles[i] = text;
        }
        return titles;
    }
};

class Sheet : public testing::Test {
protected:
    TSheet Show(const CConfigData& data)
    {
        m_sheet.WorkingCopy() = data;
        m_thread = std::thread([this] { m_threadId = ::GetCurrentThreadId(); m_result = m_sheet.ShowSheet(nullptr); });
        TSheet shown{FindSheet()};
        EXPECT_TRUE(shown.window) << "no sheet appeared";
        ::AttachThreadInput(::GetCurrentThreadId(), m_threadId, TRUE);  // so that the test can give the focus
        return shown;
    }
    INT_PTR Close(const TSheet& shown, int button = PSBTN_CANCEL) { shown.Press(button); m_thread.join(); return m_result; }
    void Type(HWND field, const std::string& keys)
    {
        ::SetFocus(field);
        for (char key : keys)
            ::SendMessageA(field, WM_CHAR, static_cast<unsigned char>(key), 0);
    }
    void TearDown() override
    {
        if (m_thread.joinable())
            Close(TSheet{FindSheet(0)});
    }

    CVnLinkhostPropertySheet m_sheet;
    std::thread m_thread;
    DWORD m_threadId = 0;
    INT_PTR m_result = -2;
};

CConfigData Record(bool useSystem, int mode)
{
    CConfigData data = vn_settings_test::Defaults();
    data.m_UseSystemProxy = useSystem, data.m_ProxyMode = mode;
    return data;
}

TEST_F(Sheet, ProxyPageEnablesTheModesAndTheirFieldsByTheSettings)
{
    // Use of the system's settings, mode; the mode buttons, the manual fields, the script field enabled.
    const std::tuple<bool, int, bool, bool, bool> rows[] = {
        {true, 2, false, false, false}, {false, 0, true, false, false}, {false, 1, true, false, false},
        {false, 2, true, true, false},  {false, 3, true, false, true},
    };
    for (auto& [useSystem, mode, modes, manual, script] : rows) {
        SCOPED_TRACE(testing::Message() << useSystem << " mode " << mode);
        const TSheet shown = Show(Record(useSystem, mode));
        EXPECT_EQ(std::make_tuple(useSystem, true, modes, modes),
                  std::make_tuple(shown.Checked(IDC_USE_SYSTEM), shown.Checked(IDC_MODE_NONE + mode),
                                  shown.Enabled(IDC_MODE_NONE), shown.Enabled(IDC_MODE_SCRIPT)));
        for (int id : {IDC_ADDRESS, IDC_PORT, IDC_EXCLUDE, IDC_NO_LOCAL, IDC_EXAMPLE})
            EXPECT_EQ(manual, shown.Enabled(id)) << id;
        EXPECT_EQ(script, shown.Enabled(IDC_SCRIPT));
        EXPECT_FALSE(shown.ApplyEnabled());
        Close(shown);
    }
    // A click writes through at once, sets the enabling anew and marks the page.
    const TSheet shown = Show(Record(false, 0));
    shown.Click(IDC_MODE_MANUAL);
    EXPECT_EQ(std::make_tuple(2, true, false, true),
              std::make_tuple(m_sheet.WorkingCopy().m_ProxyMode, shown.Enabled(IDC_PORT), shown.Enabled(IDC_SCRIPT),
                              shown.ApplyEnabled()));
    EXPECT_EQ(1, Close(shown, PSBTN_OK));
}

TEST_F(Sheet, TypingWritesThroughAndAPortBeyondTheRangeIsMendedTo80WithAMessage)
{
    const TSheet shown = Show(Record(false, 2));
    const HWND port = shown.Item(IDC_PORT);
    ::SetFocus(shown.Item(IDC_ADDRESS));
    ::SetWindowTextA(port, "");  // filled from code: nothing is written through
    EXPECT_EQ(8080, m_sheet.WorkingCopy().m_ProxyPort);
    Type(shown.Item(IDC_ADDRESS), "x");
    EXPECT_EQ("xproxy", m_sheet.WorkingCopy().m_ProxyAddress);
    Type(port, "7000");
    EXPECT_EQ(7000, m_sheet.WorkingCopy().m_ProxyPort);
    // The fifth digit brings the message, modal on the sheet's thread.
    ::PostMessageA(port, WM_CHAR, '0', 0);
    std::pair<HWND, HWND> box{shown.window, nullptr};  // the sheet, and another window of its thread
    ASSERT_TRUE(vn_test::WaitUntil([&] {
        ::EnumThreadWindows(m_threadId, [](HWND w, LPARAM found) {
            auto& pair = *reinterpret_cast<std::pair<HWND, HWND>*>(found);
            pair.second = w != pair.first && ::IsWindowVisible(w) ? w : pair.second;
            return TRUE;
        }, reinterpret_cast<LPARAM>(&box));
        return box.second != nullptr;
    }, 5000));
    char text[256] = {};
    ::GetDlgItemTextA(box.second, 0xFFFF, text, sizeof text);
    EXPECT_STREQ("Der HTTP-Port ist ung\xFCltig und wird durch einen Standardwert ersetzt werden.", text);
    ::PostMessageA(box.second, WM_COMMAND, IDOK, 0);
    EXPECT_TRUE(vn_test::WaitUntil([&] { return !::IsWindow(box.second); }, 5000));
    EXPECT_EQ(std::make_pair(std::string("80"), 80), std::make_pair(shown.Text(IDC_PORT), m_sheet.WorkingCopy().m_ProxyPort));
    Close(shown);
}

TEST_F(Sheet, ConnectionPageListsTheEntriesShowsTheDefaultAndRefusesOkWithNothingToDial)
{
    namespace si = vn_standin;
    // Entries, use of the standard connection, the default entry; the entry selected, the default shown, the choices enabled.
    const std::tuple<std::vector<std::string>, bool, const char*, const char*, const char*, bool> rows[] = {
        {{"Office", "Home"}, false, "Home", "Home", "Home", true},
        {{"Office", "Home"}, false, "", "Office", "keine", true},
        {{"Office", "Home"}, false, "Gone", "Office", "Gone", true},
        {{"Office", "Home"}, true, "Home", "Home", "Home", false},
        {{}, false, "", "", "keine", false},
    };
    for (auto& [entries, useSystem, entry, selected, shownDefault, choices] : rows) {
        SCOPED_TRACE(testing::Message() << entries.size() << " entries, default " << entry << ", system " << useSystem);
        si::WriteList(si::kRasKey, "Entries", entries);
        CConfigData data = Record(true, 0);
        data.m_UseSystemConnection = useSystem, data.m_DefaultConnection = entry;
        const TSheet shown = Show(data);
        shown.Select(1);
        const HWND tree = shown.Item(IDC_ENTRIES);
        char text[64] = {};
        TVITEMA item = {};
        item.mask = TVIF_TEXT, item.pszText = text, item.cchTextMax = sizeof text;
        item.hItem = reinterpret_cast<HTREEITEM>(::SendMessageA(tree, TVM_GETNEXTITEM, TVGN_CARET, 0));
        ::SendMessageA(tree, TVM_GETITEMA, 0, reinterpret_cast<LPARAM>(&item));
        EXPECT_EQ(std::make_tuple(std::string(selected), std::string(shownDefault), choices, choices, !useSystem),
                  std::make_tuple(std::string(text), shown.Text(IDC_DEFAULT_ENTRY), shown.Enabled(IDC_SET_DEFAULT),
                                  shown.Enabled(IDC_DIAL_ALWAYS), shown.Enabled(IDC_ENTRIES)));
        if (choices) {
            shown.Click(IDC_SET_DEFAULT);
            EXPECT_EQ(std::make_tuple(std::string(selected), std::string(selected)),
                      std::make_tuple(m_sheet.WorkingCopy().m_DefaultConnection, shown.Text(IDC_DEFAULT_ENTRY)));
        }
        shown.Press(PSBTN_OK);
        vn_test::WaitUntil([&] { return !::IsWindow(shown.window); }, 300);
        EXPECT_EQ(entries.empty(), ::IsWindow(shown.window) != FALSE) << "OK with nothing to dial must be refused";
        Close(shown);
    }
    ::RegDeleteTreeA(HKEY_CURRENT_USER, si::kRasKey);
}

TEST_F(Sheet, PluginPagesTakeTheirPlaceByHintAndAreAskedInTheirOrder)
{
    vfc::TComPtr<TRecordingPage> pages[4];
    const std::pair<const char*, int> hints[] = {{"Vorn", -400}, {"Mitte", -250}, {"Hinten", 0}, {"Doppelt", -250}};
    for (int i = 0; i < 4; ++i) {
        ASSERT_EQ(S_OK, vfc::CreateInto(pages[i]));
        EXPECT_EQ(S_OK, m_sheet.InsertCustomPage(pages[i].get(), hints[i].first, hints[i].second));
    }
    EXPECT_EQ(E_POINTER, m_sheet.InsertCustomPage(nullptr, "Leer", 5));
    for (HRESULT dirty : {S_FALSE, S_OK}) {
        pages[0]->calls.clear(), pages[0]->dirty = dirty;
        const TSheet shown = Show(Record(true, 0));
        EXPECT_EQ((std::vector<std::string>{"Vorn", "Proxyeinstellungen", "Mitte", "Verbindungen", "Hinten"}), shown.Tabs());
        EXPECT_EQ("site;activate;show5;", pages[0]->calls);  // the first tab is made at once
        ASSERT_TRUE(pages[0]->site);
        pages[0]->site->OnStatusChange(PROPPAGESTATUS_DIRTY);
        EXPECT_TRUE(shown.ApplyEnabled());
        pages[0]->site->OnStatusChange(PROPPAGESTATUS_VALIDATE);
        EXPECT_FALSE(shown.ApplyEnabled());
        EXPECT_EQ(1, Close(shown, PSBTN_OK));
        EXPECT_EQ(std::string("site;activate;show5;dirty?;") + (dirty == S_OK ? "apply;" : "") + "nosite;deactivate;",
                  pages[0]->calls);
        EXPECT_EQ("", pages[1]->calls + pages[3]->calls) << "a tab never opened, and a page that lost its place";
    }
}

// The real program: -c shows the sheet over the stored record, with the page of the test plug-in at its place; OK
// stores the working copy, Cancel leaves the file alone.
TEST(ConfigureRole, OkStoresWhatWasChangedAndCancelStoresNothing)
{
    vn_test::RegisterTestPlugin();
    for (int button : {PSBTN_CANCEL, PSBTN_OK}) {
        vn_config_test::TConfigFilesGuard files;
        vn_test::TChild program(vn_test::Quoted(vn_test::ServerExe()) + " -c");
        TSheet shown{FindSheet()};
        ASSERT_TRUE(shown.window);
        // Proxy, plug-in, connection page: each known by what it shows.
        EXPECT_EQ(3, shown.TabCount());
        EXPECT_TRUE(shown.Item(IDC_USE_SYSTEM));
        shown.Select(1);
        EXPECT_TRUE(vn_test::WaitUntil([&] { return ::FindWindowExA(shown.Page(), nullptr, "Static", "Testseite"); }, 5000))
            << "the plug-in's page is not second, or was not activated in the sheet";
        shown.Select(2);
        EXPECT_TRUE(shown.Item(IDC_ENTRIES));
        shown.Select(0);
        shown.Click(IDC_USE_SYSTEM);
        shown.Press(button);
        EXPECT_EQ(0u, program.Wait(10000));
        EXPECT_EQ(button == PSBTN_OK ? vn_config_test::CrLf(vn_config_test::ToXml(Record(false, 0))) : "<missing>",
                  vn_config_test::ReadBytes(vn_config_test::PrimaryFile()));
    }
    vn_test::UnregisterTestPlugin();
}

}  // namespace
