// Opens the source itself rather than through the generator's Connect, so that a failure to
// connect reaches the user with the driver's own words instead of being discarded.
#include "Source.h"

#include "import/DbGatewayDllMgr.h"
#include "import/odbc/OdbcImport.h"
#include "import/snapshot/SnapshotImport.h"
#include "platform/BaseStringUtil.h"
#include "platform/ErrorMessage.h"
#include "platform/SystemUtility.h"

#include <cstdlib>
#include <iostream>
#include <iterator>
#include <termios.h>
#include <unistd.h>

namespace udmlgen {
namespace {

WyString Wide(const std::string& text) {
    return BaseStringUtil::StringFrom(text.c_str(), SystemUtility::GetMultiByteCodePage());
}

bool Mentions(const std::string& text, const char* words) {
    return text.find(words) != std::string::npos;
}

// What psqlODBC and the MariaDB driver say when a login needs a password that was not given.
bool RefusedForLackOfPassword(const std::string& text) {
    return Mentions(text, "no password supplied") || Mentions(text, "using password: NO");
}

std::string AskPassword(const std::string& user) {
    std::cerr << "Password" << (user.empty() ? "" : " for user " + user) << ": " << std::flush;
    termios saved{};
    const bool terminal = tcgetattr(STDIN_FILENO, &saved) == 0;
    if (terminal) {
        termios quiet = saved;
        quiet.c_lflag &= ~static_cast<tcflag_t>(ECHO);
        tcsetattr(STDIN_FILENO, TCSAFLUSH, &quiet);
    }
    std::string password;
    std::getline(std::cin, password);
    if (terminal)
        tcsetattr(STDIN_FILENO, TCSAFLUSH, &saved);
    std::cerr << "\n";
    return password;
}

Source OpenSnapshot(const std::string& path) {
    Source source;
    if (path == "-") {
        const std::string text((std::istreambuf_iterator<char>(std::cin)), std::istreambuf_iterator<char>());
        if (std::cin.bad())
            throw ErrorMessage(L"cannot read the snapshot from standard input");
        auto snapshot = std::make_unique<MemoryImport>(
            std::make_shared<const SourceMetadata>(ParseSnapshot(text, "standard input")));
        source.cliType = static_cast<CLIType>(snapshot->Metadata().callInterface);
        source.import = std::move(snapshot);
        source.description = "snapshot from standard input";
    } else {
        std::unique_ptr<SnapshotImport> snapshot = ReadSnapshotFile(path);
        source.cliType = static_cast<CLIType>(snapshot->CallInterface());
        source.import = std::move(snapshot);
        source.description = "snapshot " + path;
    }
    return source;
}

} // namespace

namespace {

Source OpenOdbc(const Options& options) {
    Source source;
    source.import.reset(DbGatewayDllMgr::MakeMIMetaDataImport(ServerInfo::kCLI_ODBC350));
    if (!source.import)
        throw ErrorMessage(L"no ODBC import source is available");
    WyString connect = Wide(options.connect);
    WyString user = Wide(options.user);
    const char* password = std::getenv("UDMLGEN_PASSWORD");
    WyString wpassword = Wide(password ? password : "");
    try {
        source.import->OpenConnection(connect, user, wpassword, false);
    } catch (const ErrorMessage& error) {
        if (!wpassword.empty() || !isatty(STDIN_FILENO) || !RefusedForLackOfPassword(error.what()))
            throw;
        wpassword = Wide(AskPassword(options.user));
        source.import->OpenConnection(connect, user, wpassword, false);
    }
    if (const auto* odbc = dynamic_cast<const OdbcImport*>(source.import.get()))
        source.description =
            BaseStringUtil::StringToStdString(odbc->ProductNames(), SystemUtility::GetMultiByteCodePage());
    return source;
}

} // namespace

Source OpenSource(const Options& options) {
    Source source = options.snapshotFile.empty() ? OpenOdbc(options) : OpenSnapshot(options.snapshotFile);
    // Everything after this point, the existence checks included, sees only the selected objects.
    source.import = ApplySelection(std::move(source.import), options.selection);
    return source;
}

std::vector<std::string> HintsFor(const std::string& text) {
    std::vector<std::string> hints;
    if (RefusedForLackOfPassword(text) || Mentions(text, "password authentication failed") ||
        Mentions(text, "Access denied for user"))
        hints.push_back("the password is read from the environment variable UDMLGEN_PASSWORD, never from the "
                        "command line: UDMLGEN_PASSWORD=... udmlgen ...");
    if (Mentions(text, "IM002"))
        hints.push_back(
            "'udmlgen sources' (or 'odbcinst -q -s') lists the data sources this machine knows; a "
            "connection string names its driver with Driver=...");
    if (Mentions(text, "IM003") || Mentions(text, "Can't open lib"))
        hints.push_back(
            "'udmlgen sources' (or 'odbcinst -q -d') lists the installed drivers; the common ones "
            "come in the Debian packages odbc-postgresql, odbc-mariadb and libsqliteodbc");
    if (Mentions(text, "\" not found"))
        hints.push_back("names are matched as the source spells them, letter case included; --allow-missing "
                        "sends the request anyway");
    return hints;
}

} // namespace udmlgen
