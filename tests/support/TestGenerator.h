// The generator with its protected writers, output operations and fields opened for tests.
#pragma once

#include "SMUOdbcGenerator.h"

#include <memory>

class TestGenerator : public CUdmlGenerator {
public:
    using CUdmlGenerator::CUdmlGenerator;

    using CUdmlGenerator::ConstructTableUDML;
    using CUdmlGenerator::correctPickList;
    using CUdmlGenerator::GenCatalogUdmlStatement;
    using CUdmlGenerator::GenerateCatalogUdml;
    using CUdmlGenerator::GenerateColumnInfoUdml;
    using CUdmlGenerator::GenerateColumnUdml;
    using CUdmlGenerator::GenerateDatabaseUdml;
    using CUdmlGenerator::GenerateForeignKeyTailUdml;
    using CUdmlGenerator::GenerateForeignKeyUdml;
    using CUdmlGenerator::GenerateQualifiedUdml;
    using CUdmlGenerator::GenerateQualifiedUDMLStr;
    using CUdmlGenerator::GenerateSchemaUdml;
    using CUdmlGenerator::GenerateTableColumnUdml;
    using CUdmlGenerator::GenerateTableKeyUdml;
    using CUdmlGenerator::GenerateTableUdml;
    using CUdmlGenerator::InitializeTableMetadataMap;
    using CUdmlGenerator::OutputCString;
    using CUdmlGenerator::OutputQualifiedWyString;
    using CUdmlGenerator::OutputWyString;

    using CUdmlGenerator::m_bAbort;
    using CUdmlGenerator::m_bAutoClean;
    using CUdmlGenerator::m_bUseExistingStructs;
    using CUdmlGenerator::m_callInterfaceType;
    using CUdmlGenerator::m_checkColumnVector;
    using CUdmlGenerator::m_fGenerate;
    using CUdmlGenerator::m_importedMIColumn;
    using CUdmlGenerator::m_importedMITablePrimaryKeys;
    using CUdmlGenerator::m_importedMIViewLinks;
    using CUdmlGenerator::m_importedTableColumns;
    using CUdmlGenerator::m_importedZelTableNames;
    using CUdmlGenerator::m_metadataEFFCodeMap;
    using CUdmlGenerator::m_metadataMap;
    using CUdmlGenerator::m_nDepth;
    using CUdmlGenerator::m_nDepthLimit;
    using CUdmlGenerator::m_nOutputType;
    using CUdmlGenerator::m_parrayForeignKeys;
    using CUdmlGenerator::m_pImport;
    using CUdmlGenerator::m_pRpGateway;
    using CUdmlGenerator::m_pstrOutput;
    using CUdmlGenerator::m_pVTable;
    using CUdmlGenerator::m_strBaseTable;
    using CUdmlGenerator::m_strCatalog;
    using CUdmlGenerator::m_strColumn;
    using CUdmlGenerator::m_strDatabase;
    using CUdmlGenerator::m_strSchema;
    using CUdmlGenerator::m_strTable;
    using CUdmlGenerator::m_strTableURI;
    using CUdmlGenerator::m_tableType;

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
