// The parser and its exception are part of the program file's binary
// boundary: other programs find their operations by decorated name in the
// export table. The test program links them the way VnLinkhost.exe does, so
// its own export table must show them, private and trivial operations
// included.
#include <gtest/gtest.h>

#include <windows.h>

namespace {

bool Exported(const char* name)
{
    return ::GetProcAddress(::GetModuleHandleA(nullptr), name) != nullptr;
}

}  // namespace

TEST(PullParserExport, PublicOperationsAreExportedByName)
{
    EXPECT_TRUE(Exported("_ZN13XmlPullParser4nextEv"));                       // next()
    EXPECT_TRUE(Exported("_ZN13XmlPullParserC1ERSi"));                        // XmlPullParser(std::istream&)
    EXPECT_TRUE(Exported("_ZN13XmlPullParserC1ERKS_"));                       // the copy constructor
    EXPECT_TRUE(Exported("_ZNK13XmlPullParser12getEventTypeEv"));             // getEventType() const
    EXPECT_TRUE(Exported("_ZNK13XmlPullParser17getAttributeCountEv"));        // getAttributeCount() const
}

TEST(PullParserExport, PrivateOperationsAreExportedToo)
{
    EXPECT_TRUE(Exported("_ZN13XmlPullParser7peekbufEi"));  // peekbuf(int)
    EXPECT_TRUE(Exported("_ZN13XmlPullParser4readEc"));     // read(char)
    EXPECT_TRUE(Exported("_ZN13XmlPullParser4readEv"));     // read()
    EXPECT_TRUE(Exported("_ZN13XmlPullParser9adjustNspEv"));
}

TEST(PullParserExport, ExceptionIsExported)
{
    EXPECT_TRUE(Exported("_ZNK22XmlPullParserException10getMessageB5cxx11Ev"));
    EXPECT_TRUE(Exported("_ZN22XmlPullParserExceptionaSERKS_"));  // operator=
    EXPECT_FALSE(Exported("_ZN22XmlPullParserException11notAMemberEv"));
}
