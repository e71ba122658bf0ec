// A host of the installed library, as a repository-administration tool would use it: it hands
// the generator an ODBC source it opened itself, sets standard output as the sink, asks for the
// whole database, and disconnects.
//
// Usage: sales-udml CONNECTION DATABASE
//   CONNECTION  an ODBC data source name or connection string
//   DATABASE    the repository database, the first part of every qualified name
#include "SMUOdbcGenerator.h"

#include <cstring>
#include <iostream>

namespace {

WyString FromUtf8(const char* text) {
    return BaseStringUtil::StringFrom(text, SystemUtility::GetMultiByteCodePage());
}

std::string ToUtf8(const WyString& text) {
    return BaseStringUtil::StringToStdString(text, SystemUtility::GetMultiByteCodePage());
}

} // namespace

int main(int argc, char** argv) {
    if (argc != 3) {
        std::cerr << "usage: sales-udml CONNECTION DATABASE\n";
        return 2;
    }
    if (std::strcmp(UdmlOdbcGenVersion(), UDMLODBCGEN_VERSION) != 0)
        std::cerr << "sales-udml: built against library " << UDMLODBCGEN_VERSION << ", running with "
                  << UdmlOdbcGenVersion() << "\n";
    WyString source = FromUtf8(argv[1]);
    const WyString database = FromUtf8(argv[2]);

    // Opening the source here rather than through Connect lets the driver's own message reach
    // the user: Connect discards a failure to open.
    MIMetaDataImport* import = DbGatewayDllMgr::MakeMIMetaDataImport(ServerInfo::kCLI_ODBC350);
    WyString user, password; // the sample needs none
    try {
        import->OpenConnection(source, user, password, false);
    } catch (const ErrorMessage& error) {
        for (const WyString& message : error.Messages())
            std::cerr << "sales-udml: " << ToUtf8(message) << "\n";
        delete import;
        return 1;
    }

    // The repository holds only the database, so every catalog and schema gets its statement.
    ARpGateway repository;
    repository.DeclareDatabase(database);
    CUdmlGenerator generator(&repository, import, source, database, L"", L"", ServerInfo::kCLI_ODBC350);
    generator.SetOuputStdOut();

    WyString errorText;
    const bool succeeded = generator.GenerateUdml(kTIDADatabase, L"", L"", L"", L"", L"", L"", L"", errorText,
                                                  -1, 0xffff, false);
    // Disconnect closes and destroys the source, though the host created it.
    generator.Disconnect();
    std::cout.flush();
    if (!succeeded) {
        std::cerr << "sales-udml: " << ToUtf8(errorText);
        return 1;
    }
    return std::cout ? 0 : 1;
}
