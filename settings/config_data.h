// The one record that says how the system reaches the internet.
#pragma once

#include <string>

enum VnProxyMode { ProxyNone = 0, ProxyAuto = 1, ProxyManual = 2, ProxyScript = 3 };
enum VnDialMode { DialNever = 0, DialRequired = 1, DialAlways = 2 };

struct CConfigData {
    bool m_UseSystemProxy = false;
    int m_ProxyMode = ProxyNone;
    std::string m_ProxyAddress;
    int m_ProxyPort = 0;
    std::string m_ProxyExclude;
    bool m_ProxyNoLocal = false;
    std::string m_ProxyScript;
    bool m_UseSystemConnection = false;
    int m_DialMode = DialNever;
    std::string m_DefaultConnection;
    int m_SessionFlags = 0;  // given by a client with its session; never stored
    bool m_SkipHeadAuth = false;

    // A fresh record is all zero with empty texts; the root object gives the
    // one it loads at start these defaults first.
    void SetDefaults()
    {
        m_UseSystemProxy = true;
        m_ProxyMode = ProxyNone;
        m_ProxyAddress = "proxy";
        m_ProxyPort = 8080;
        m_ProxyExclude = "localhost";
        m_ProxyNoLocal = true;
        m_ProxyScript.clear();
        m_UseSystemConnection = true;
        m_DialMode = DialRequired;
        m_DefaultConnection.clear();
        m_SessionFlags = 0;
        m_SkipHeadAuth = false;
    }
};
