// Opening the import source of a run: a snapshot file (or standard input) or an ODBC source.
#pragma once

#include "Options.h"

#include "import/MIMetaDataImport.h"

#include <memory>
#include <string>

namespace udmlgen {

/// An open import source and what the generator and a person reading the log are told of it.
struct Source {
    std::unique_ptr<MIMetaDataImport> import;
    CLIType cliType = ServerInfo::kCLI_ODBC350;
    std::string description; // the driver and DBMS with their versions, when the source says
};

/// Opens the source the options name. At a terminal, a login refused for lack of a password is
/// tried once more with a password asked for without echo. Throws ErrorMessage with the driver's
/// own words when the source cannot be opened or read.
Source OpenSource(const Options& options);

/// Lines that tell a person what to do next about a failure whose messages are `text`: where
/// the password comes from, how to list data sources or drivers. Empty when none applies.
std::vector<std::string> HintsFor(const std::string& text);

} // namespace udmlgen
