// CVnLinkhostXMLConfigManager translates between the configuration record,
// an XML text and the file "VnLinkhost.xml". It keeps no state between calls
// beyond the document it inherits: a caller makes one on the stack for each
// load, save or conversion and drops it afterwards. It has no locks; the
// record belongs to whoever passes it in.
//
// The file lives in "<local app data>\Velorin\VnLinkhost\Konfiguration". When
// it is not there, a load falls back to the same subfolder of the roaming
// application data and then copies what it read into the local folder; the
// roaming copy is never changed.
//
// Every operation returns a status: 0 for success, a positive value for a
// soft failure (1: no file, no root element in a text; or a conversion's
// error number), a negative value for an error. No exception leaves an
// operation.
#pragma once

#include <windows.h>
#include <oleauto.h>

#include <string>

#include "settings/config_data.h"
#include "xml/vn_document.h"

class CVnLinkhostXMLConfigManager : public VnDocument {
public:
    using CConfigData = ::CConfigData;

    // The name of the configuration file in either folder.
    static constexpr const char* kFileName = "VnLinkhost.xml";
    // The head line of the file; double quotes, unlike the document's default.
    static constexpr const char* kHead = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>";

    CVnLinkhostXMLConfigManager() = default;

    // The path of the file in the local folder with its extension changed to
    // ".xsd". Nothing reads such a schema; the name is only handed out. On a
    // failure the line is logged and `path` is left empty; the status is 0
    // either way.
    HRESULT GetXsdFileName(std::string& path);

    // Writes the record to the file in the local folder, replacing it, and
    // clears the file's attributes first, so a read-only file is saved too.
    // 0x80004003 without a record; 1 when the file can't be opened;
    // 0x80040210 when writing throws.
    HRESULT SaveConfiguration(const CConfigData* pData);

    // Reads the file (local folder first, then roaming) and overlays
    // `**ppData`: a field whose element is absent keeps its value.
    // 0x80004003 without a record; 1 when neither file can be opened or the
    // file holds no root element; 0x80040210 when the parser fails, in which
    // case the record is left as it was.
    HRESULT LoadConfiguration(CConfigData** ppData);

    // Builds the tree of the record in this document and gives its text, with
    // bare line feeds, as a new string that the caller frees. 0x80004003
    // without a record or out pointer; 0x80040210 on an exception.
    HRESULT ConfigDataToXML(const CConfigData* pData, BSTR* pbstrXml);

    // Overlays `**ppData` from this document; when the document is empty it
    // is first parsed from `bstrXml` (which may be null). 1 when the text
    // holds no root element, leaving the record as it was; 0x80040210 when
    // the text can't be parsed (the record is then untouched as well) or
    // reading the tree fails (the fields read so far keep their new values).
    HRESULT XMLToConfigData(BSTR bstrXml, CConfigData** ppData);

private:
    // The full path of the file under the folder `csidl`. A folder that can't
    // be had leaves "\VnLinkhost.xml", never an empty text.
    static std::string _GetConfigFilePath(int csidl);
    // Reads `**ppData` from the document's root; throws what the tree throws.
    void _ReadTree(CConfigData& data);
};
