// Dialog templates, controls and the bitmap of the configuration dialog.
#pragma once

#define IDD_CONNECTION_PAGE 202
#define IDD_PROXY_PAGE 203
#define IDD_PLUGIN_PAGE 215
#define IDB_CONNECTIONS 209

// Both data pages.
#define IDC_USE_SYSTEM 206
#define IDC_SYSTEM_SETTINGS 1001

// Proxy page.
#define IDC_MODE_NONE 1009
#define IDC_MODE_AUTO 1010
#define IDC_MODE_MANUAL 1011
#define IDC_MODE_SCRIPT 1012
#define IDC_ADDRESS_LABEL 208
#define IDC_ADDRESS 1013
#define IDC_PORT_LABEL 210
#define IDC_PORT 1014
#define IDC_EXCLUDE_LABEL 211
#define IDC_EXCLUDE 1015
#define IDC_EXAMPLE 212
#define IDC_NO_LOCAL 1017
#define IDC_SCRIPT_LABEL 213
#define IDC_SCRIPT 1016

// Connection page.
#define IDC_ENTRIES 1002
#define IDC_SET_DEFAULT 1006
#define IDC_WIZARD 1007
#define IDC_CONNECTION_TEXT 207
#define IDC_DIAL_NEVER 1003
#define IDC_DIAL_REQUIRED 1004
#define IDC_DIAL_ALWAYS 1005
#define IDC_DEFAULT_ENTRY 1008
