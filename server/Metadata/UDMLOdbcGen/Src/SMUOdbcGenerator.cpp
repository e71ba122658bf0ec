// The generator frame: construction, the connection to an import source, the request entry with
// its dispatch, depth rule and error text, and the output operations that carry every piece of
// text to the sink the host chose.
#include "SMUOdbcGenerator.h"

#include <cstdarg>
#include <cstring>
#include <cwchar>
#include <iostream>

namespace {
// Where the connection assertion reports from; hosts recognise failures by this location.
const char kGeneratorSourceFile[] = "server/Metadata/UDMLOdbcGen/Src/SMUOdbcGenerator";
} // namespace

CUdmlGenerator::CUdmlGenerator()
    : m_pRpGateway(nullptr), m_pImport(nullptr), m_bAutoClean(true), m_bAbort(false),
      m_bUseExistingStructs(false), m_callInterfaceType(ServerInfo::kCLI_ODBC350) {
    Initialize();
}

CUdmlGenerator::CUdmlGenerator(ARpGateway* pGateway, MIMetaDataImport* pImport, const WyString& strSource,
                               const WyString& strDatabase, const WyString& strUser,
                               const WyString& strPassword, CLIType cliType)
    : m_pRpGateway(pGateway), m_pImport(pImport), m_bAutoClean(false), m_bAbort(false),
      m_bUseExistingStructs(false), m_strSource(strSource), m_strDatabase(strDatabase), m_strUser(strUser),
      m_strPassword(strPassword), m_callInterfaceType(cliType) {
    Initialize();
}

CUdmlGenerator::~CUdmlGenerator() {
    if (m_bAutoClean)
        Disconnect();
}

void CUdmlGenerator::Initialize() {
    m_nDepth = 0;
    m_nDepthLimit = -1;
    m_pVTable = nullptr;
    m_nOutputType = oNothing;
    m_pstrOutput = nullptr;
    m_parrayForeignKeys = nullptr;
    m_bAbort = false;
    m_fGenerate = 0xffff;
    m_tableType = 1;
}

void CUdmlGenerator::Disconnect() {
    if (m_pImport == nullptr)
        return;
    MIMetaDataImport* import = m_pImport;
    m_pImport = nullptr;
    // A source that fails to close is destroyed all the same: there is nothing the host could do
    // with it, and Disconnect runs from the destructor, where nothing may escape.
    try {
        import->CloseConnection();
    } catch (...) {
    }
    delete import;
}

bool CUdmlGenerator::Connect(const WyString& strSource, const WyString& strUser,
                             const WyString& strPassword) {
    Disconnect();
    m_strSource = strSource;
    m_strUser = strUser;
    m_strPassword = strPassword;
    if (m_pImport != nullptr)
        WyAssert::handleAssert(kGeneratorSourceFile, 248, "m_pImport == NULL");
    try {
        m_pImport = DbGatewayDllMgr::MakeMIMetaDataImport(m_callInterfaceType);
        if (m_pImport == nullptr)
            return false;
        m_pImport->OpenConnection(m_strSource, m_strUser, m_strPassword, false);
        return true;
    } catch (ErrorMessage&) {
        // A source that was created stays attached even when it could not be opened.
        return m_pImport != nullptr;
    }
}

bool CUdmlGenerator::GenerateUdml(const TypeID& typeID, const WyString& strCatalog, const WyString& strSchema,
                                  const WyString& strTable, const WyString& strTableURI,
                                  const WyString& strColumn, const WyString& strForeignKey,
                                  const WyString& strBaseTable, WyString& strErrorMsg, int nDepthLimit,
                                  int fGenerate, bool bUseExistingStructs) {
    if (m_pImport == nullptr)
        return false;
    m_nDepthLimit = nDepthLimit;
    m_bAbort = false;
    m_bUseExistingStructs = bUseExistingStructs;
    m_fGenerate = fGenerate;
    m_nDepth = 0;
    CDepthCounter depth(m_nDepth, m_nDepthLimit);
    if (!depth.GoDeeper())
        return true;

    try {
        m_strCatalog = strCatalog;
        m_strSchema = strSchema;
        m_strTable = strTable;
        m_strColumn = strColumn;
        m_strTableURI = strTableURI;
        m_strBaseTable = strBaseTable;
        switch (typeID) {
        case kTIDATable:
            GenerateTableUdml();
            break;
        case kTIDAColumn:
            GenerateColumnUdml();
            break;
        case kTIDAForeignKey:
            GenerateForeignKeyUdml(strForeignKey);
            break;
        case kTIDATableKey:
            GenerateTableKeyUdml(nullptr);
            break;
        case kTIDADatabase:
            GenerateDatabaseUdml();
            break;
        case kTIDACatalog:
            GenerateCatalogUdml();
            break;
        case kTIDASchema:
            GenerateSchemaUdml();
            break;
        default:
            break;
        }
        return true;
    } catch (ErrorMessage& error) {
        // The buffer holds 1024 units but is offered as 255: a longer message arrives in pieces.
        wchar_t message[1024];
        wchar_t formatted[1024];
        strErrorMsg.clear();
        while (error.PopErrorMessage(message, 255)) {
            if (swprintf(formatted, 1024, L"%ls\n", message) < 0)
                continue;
            strErrorMsg += formatted;
        }
        return false;
    } catch (...) {
        return false;
    }
}

// ---------------------------------------------------------------------------------------------
// Output operations. Each reads the sink anew, so a writer may redirect output mid-statement.

namespace {
// The writers' literals are ASCII: they widen unit by unit, with no decoding and no temporary.
// Anything else takes the full UTF-8 conversion.
void AppendLiteral(const char* cStr, WyString& out) {
    const char* end = cStr;
    bool ascii = true;
    for (; *end != '\0'; ++end)
        ascii = ascii && static_cast<unsigned char>(*end) < 0x80;
    if (ascii) {
        const size_t length = static_cast<size_t>(end - cStr);
        const size_t start = out.size();
        out.resize(start + length);
        wchar_t* target = &out[start];
        for (const char* source = cStr; source != end; ++source)
            *target++ = static_cast<wchar_t>(*source);
    } else
        BaseStringUtil::AppendFromUtf8(cStr, static_cast<size_t>(end - cStr), out);
}
} // namespace

void CUdmlGenerator::OutputCString(const char* cStr) {
    switch (m_nOutputType) {
    case oVTable:
        m_pVTable->putRecord(cStr, std::strlen(cStr));
        break;
    case oString:
        AppendLiteral(cStr, *m_pstrOutput);
        break;
    case oStdOut:
        std::cout << cStr;
        break;
    default:
        break;
    }
}

void CUdmlGenerator::OutputWyString(const WyString& wyStr) {
    switch (m_nOutputType) {
    case oVTable:
        m_pieceBytes.clear();
        BaseStringUtil::AppendUtf8(wyStr, m_pieceBytes);
        m_pVTable->putRecord(m_pieceBytes.data(), m_pieceBytes.size());
        break;
    case oString:
        m_pstrOutput->append(wyStr);
        break;
    case oStdOut:
        m_pieceBytes.clear();
        BaseStringUtil::AppendUtf8(wyStr, m_pieceBytes);
        std::cout.write(m_pieceBytes.data(), static_cast<std::streamsize>(m_pieceBytes.size()));
        break;
    default:
        break;
    }
}

void CUdmlGenerator::OutputQualifiedWyString(const WyString& wyQualifier, const WyString& wyStr,
                                             bool bQualified) {
    if (bQualified) {
        OutputWyString(wyQualifier);
        OutputCString(".");
    }
    OutputWyString(wyStr);
}

namespace {
const WyString kQuote = L"\"";
const WyString kDoubledQuote = L"\"\"";

// Only double quotes are escaped inside a name path; the replacement is skipped when there is
// nothing to replace, which is nearly always.
const WyString& EscapeNamePart(const WyString& part, WyString& scratch) {
    if (part.find(L'"') == WyString::npos)
        return part;
    scratch = BaseStringUtil::ReplacePatternInString(part, kQuote, kDoubledQuote);
    return scratch;
}
} // namespace

void CUdmlGenerator::GenerateQualifiedUdml(const WyString* pstrFirst, ...) {
    if (pstrFirst == nullptr)
        return;
    va_list parts;
    va_start(parts, pstrFirst);
    WyString scratch;
    bool first = true;
    for (const WyString* part = pstrFirst; part != nullptr; part = va_arg(parts, const WyString*)) {
        if (m_nOutputType == oString) {
            // The same text as the three pieces below, appended in place: name paths are the
            // bulk of the output, and a string has no piece boundaries to keep.
            m_pstrOutput->append(first ? L"\"" : L".\"");
            m_pstrOutput->append(EscapeNamePart(*part, scratch));
            m_pstrOutput->push_back(L'"');
        } else {
            OutputCString(first ? "\"" : ".\"");
            OutputWyString(EscapeNamePart(*part, scratch));
            OutputCString("\"");
        }
        first = false;
    }
    va_end(parts);
}

WyString CUdmlGenerator::GenerateQualifiedUDMLStr(const WyString* pstrFirst, ...) {
    WyString result;
    if (pstrFirst == nullptr)
        return result;
    va_list parts;
    va_start(parts, pstrFirst);
    WyString scratch;
    bool first = true;
    for (const WyString* part = pstrFirst; part != nullptr; part = va_arg(parts, const WyString*)) {
        result += first ? L"\"" : L".\"";
        result += EscapeNamePart(*part, scratch);
        result += L"\"";
        first = false;
    }
    va_end(parts);
    return result;
}
