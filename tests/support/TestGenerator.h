// The generator with the few protected members that tests of the frame and of failures need:
// the output operations, the batch entry, and the fields a host cannot read otherwise.
#pragma once

#include "SMUOdbcGenerator.h"

#include <memory>

class TestGenerator : public CUdmlGenerator {
public:
    using CUdmlGenerator::CUdmlGenerator;

    using CUdmlGenerator::GenerateQualifiedUdml;
    using CUdmlGenerator::GenerateQualifiedUDMLStr;
    using CUdmlGenerator::GenerateTableUdml;
    using CUdmlGenerator::OutputCString;
    using CUdmlGenerator::OutputWyString;

    using CUdmlGenerator::m_bAbort;
    using CUdmlGenerator::m_fGenerate;
    using CUdmlGenerator::m_importedZelTableNames;
    using CUdmlGenerator::m_nDepth;
    using CUdmlGenerator::m_nOutputType;
    using CUdmlGenerator::m_pstrOutput;
    using CUdmlGenerator::m_strCatalog;
    using CUdmlGenerator::m_strDatabase;
    using CUdmlGenerator::m_strSchema;

    /// A generator around `import` (not owned) writing into `output`, with database `database`.
    static std::unique_ptr<TestGenerator> Over(MIMetaDataImport* import, WyString* output,
                                               const WyString& database = L"SRC",
                                               CLIType cliType = ServerInfo::kCLI_ODBC350,
                                               ARpGateway* gateway = nullptr) {
        auto generator = std::make_unique<TestGenerator>(gateway, import, L"", database, L"", L"", cliType);
        generator->SetOuput(output);
        return generator;
    }
};
