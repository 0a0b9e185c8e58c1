// Helpers of the XML tests: a parser over a text, the failure an action ends
// in, and the files of tests/xml/data (under Wine the source tree is drive Z:).
#pragma once

#include <gtest/gtest.h>

#include "common/test_util.h"
#include "xml/xml_pull_parser.h"

#include <sstream>
#include <string>

namespace vn_xml_test {

using P = XmlPullParser;

// 'R' in `flags` turns on the relaxed feature, 'N' namespace processing.
struct Reader {
    explicit Reader(const std::string& text, const std::string& flags = "") : stream(text), parser(stream)
    {
        parser.setFeature(P::FEATURE_RELAXED, flags.find('R') != std::string::npos);
        parser.setFeature(P::FEATURE_PROCESS_NAMESPACES, flags.find('N') != std::string::npos);
    }
    std::istringstream stream;
    XmlPullParser parser;
};

// The message of the parse failure that `action` ends in, or "".
template <typename Action>
std::string FailureOf(Action action)
{
    try {
        action();
    } catch (const XmlPullParserException& e) {
        return e.getMessage();
    }
    return std::string();
}

inline std::string DataFile(const std::string& name)
{
    const std::string here = __FILE__;
    return vn_test::ReadWholeFile((here[0] == '/' ? "Z:" : "") + here.substr(0, here.find_last_of("/\\")) + "/data/" + name);
}

}  // namespace vn_xml_test
