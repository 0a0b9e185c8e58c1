#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "host/messages.h"
#include "host/module.h"
#include "host/platform_seams.h"
#include "res/resource.h"

namespace {

struct Box {
    std::string text, title;
    UINT type;
};
std::vector<Box> g_boxes;

int WINAPI CaptureBox(HWND, LPCSTR text, LPCSTR title, UINT type)
{
    g_boxes.push_back({text ? text : "", title ? title : "", type});
    return IDOK;
}

const char* const kFrame = "Velorin Linkhost Component\nInternet access for the Velorin desktop applications. "
                           "Copyright (C) Velorin.\n\n";
const char* const kUsage =
    "\nUsage: VnLinkhost [-h] [-c] [-r] [-u] [-e] [-s] [-k]\nOptions:\n  -h\t--help\t\tDisplay this information\n"
    "  -c\t--configure\tConfigure the component settings\n  -r\t--register\t\tRegister as COM server\n"
    "  -u\t--unregister\tUnregister as COM server\n  -e\t--embedding\tStart as COM Server\n"
    "  -s\t--service\t\tStart as COM Service\n  -k\t--kill\t\tTerminate COM Server";

class Boxes : public testing::Test {
protected:
    void SetUp() override { g_boxes.clear(); }
    TScopedSeam<decltype(VnPlatformSeams::MessageBoxA)> m_seam{PlatformSeams().MessageBoxA, CaptureBox};

    // Runs the module's command line and returns the one box it showed.
    Box Parse(const char* commandLine)
    {
        g_boxes.clear();
        HRESULT status = S_OK;
        EXPECT_FALSE(Module().ParseCommandLine(commandLine, status)) << commandLine;
        EXPECT_EQ(E_FAIL, status) << commandLine;
        EXPECT_EQ(1u, g_boxes.size()) << commandLine;
        return g_boxes.empty() ? Box{} : g_boxes.back();
    }
};

TEST_F(Boxes, NoArgumentsAsksForARole)
{
    Box box = Parse("VnLinkhost.exe");
    EXPECT_EQ("Velorin Linkhost", box.title);
    EXPECT_EQ(static_cast<UINT>(MB_TASKMODAL), box.type);
    EXPECT_EQ(std::string(kFrame) +
                  " ERROR: Please specify either --configure, --register, --unregister --embedding or --service or "
                  "--kill\n" + kUsage,
              box.text);
}

TEST_F(Boxes, HelpHasNoErrorLine)
{
    EXPECT_EQ(std::string(kFrame) + kUsage, Parse("VnLinkhost.exe -h -x").text);
}

TEST_F(Boxes, BadOptionShowsTheParsersMessage)
{
    EXPECT_EQ(std::string(kFrame) + " ERROR: option '--reg' is ambiguous\n" + kUsage, Parse("VnLinkhost --reg").text);
    EXPECT_EQ(std::string(kFrame) + " ERROR: unrecognized option '-x'\n" + kUsage, Parse("VnLinkhost -x -h").text);
}

TEST_F(Boxes, LeftoverWordsAndBrokenLinesAreUnknownArguments)
{
    const std::string expected = std::string(kFrame) + " ERROR: Unknown command line arguments provided\n" + kUsage;
    EXPECT_EQ(expected, Parse("VnLinkhost foo -r").text);
    EXPECT_EQ(expected, Parse("0VnLinkhost -r").text);
    EXPECT_EQ(expected, Parse("\"C:\\no end -e").text);
}

TEST(ReportResult, FailureUsesTheSystemTextOrTheUnknownErrorString)
{
    g_boxes.clear();
    TScopedSeam<decltype(VnPlatformSeams::MessageBoxA)> seam(PlatformSeams().MessageBoxA, CaptureBox);
    ReportResult(static_cast<HRESULT>(0x8004DEAD), IDS_REGISTER_FAILED, IDS_REGISTER_OK);
    ReportResult(S_OK, IDS_UNREGISTER_FAILED, IDS_UNREGISTER_OK);
    ReportResult(S_OK, IDS_SERVICE_FAILED, 0);
    ASSERT_EQ(2u, g_boxes.size());
    EXPECT_EQ(std::string(kFrame) + "Velorin Linkhost COM registration failed.\nERROR: Unknown system error - " +
                  std::to_string(0x8004DEADul) + ".",
              g_boxes[0].text);
    EXPECT_EQ(std::string(kFrame) + "Velorin Linkhost COM unregistration succeeded.", g_boxes[1].text);
}

TEST(ReportResult, KnownSystemErrorHasItsText)
{
    g_boxes.clear();
    TScopedSeam<decltype(VnPlatformSeams::MessageBoxA)> seam(PlatformSeams().MessageBoxA, CaptureBox);
    ReportResult(E_ACCESSDENIED, IDS_SERVICE_FAILED, IDS_SERVICE_OK);
    ASSERT_EQ(1u, g_boxes.size());
    const std::string prefix = std::string(kFrame) + "Velorin Linkhost COM service failed.\nERROR: ";
    ASSERT_EQ(prefix, g_boxes[0].text.substr(0, prefix.size()));
    EXPECT_EQ(std::string::npos, g_boxes[0].text.find("Unknown system error"));
    EXPECT_GT(g_boxes[0].text.size(), prefix.size());
}

}  // namespace
