// Container statements: the walk from database to catalog to schema to table, and the catalog,
// schema and table statements. A listing that fails ends quietly with what it has read; a failure
// while writing goes up to the request entry.
#include "SMUOdbcGenerator.h"

#include <list>

namespace {

constexpr int kGenerateCatalog = 0x0002;
constexpr int kGenerateSchema = 0x0004;
constexpr int kGenerateTable = 0x0008;
constexpr int kGenerateAll = 0xffff;

const WyString kAllNames(L"%");

// True when the repository already holds an object of `type` at `qName`. Without a gateway the
// repository counts as empty, so the caller writes its statement unchecked.
bool RepositoryHolds(const ARpGateway* pGateway, TypeID type, const QualifiedName& qName) {
    if (pGateway == nullptr)
        return false;
    NamedInterfaceTypeCondition condition(type, qName, false);
    VoidIDVector ids;
    pGateway->FindObjects(condition, ids);
    return !ids.empty();
}

// Inserts `value` under (first, second) unless the key is already there: the first remark
// recorded for a table is the one its statement carries.
void RecordFirst(WyMetadataMap& map, const WyString& first, const WyString& second, const WyString& value) {
    WyStringVector key;
    key.reserve(2);
    key.push_back(first);
    key.push_back(second);
    map.emplace(std::move(key), value);
}

} // namespace

void CUdmlGenerator::GenerateDatabaseUdml() {
    if (m_bAbort)
        return;
    CDepthCounter depth(m_nDepth, m_nDepthLimit);
    if (!depth.GoDeeper())
        return;
    m_strCatalog = kAllNames;
    GenerateCatalogUdml();
}

void CUdmlGenerator::GenerateCatalogUdml() {
    if (m_bAbort || m_pImport == nullptr)
        return;
    CDepthCounter depth(m_nDepth, m_nDepthLimit);

    // Remembers each catalog's table remarks for a packaged application's source, whose table
    // statements carry them as descriptions. Guarded by itself: a failure here costs only the
    // descriptions, never the catalog.
    auto preReadTables = [this](const WyString& catalog) {
        try {
            if (!m_pImport->GetIsTavrinMetadata())
                return;
            WyString catalogArg(catalog);
            m_pImport->PrepareForTable(catalogArg, m_strSchema, m_strTable, m_tableType);
            MITable table;
            while (!m_bAbort && m_pImport->Get(table)) {
                if (BaseStringUtil::IsCaseInsensitiveMatch(table.catalog_, catalog))
                    RecordFirst(m_metadataMap, table.catalog_, table.table_, table.remarks_);
            }
        } catch (const ErrorMessage&) {
        }
    };

    WyStringVector strlist;
    if (!m_strCatalog.empty() && m_strCatalog != kAllNames) {
        // A named catalog is declared even when the source does not list it; a repository
        // failure here is the request's failure.
        GenCatalogUdmlStatement(m_strCatalog);
        strlist.push_back(m_strCatalog);
        preReadTables(m_strCatalog);
    } else {
        try {
            WyString pattern(m_strCatalog);
            m_pImport->PrepareForCatalog(pattern);
            MICatalog catalog;
            while (!m_bAbort && m_pImport->Get(catalog)) {
                if (catalog.catalog_.empty())
                    continue;
                preReadTables(catalog.catalog_);
                GenCatalogUdmlStatement(catalog.catalog_);
                strlist.push_back(catalog.catalog_);
            }
        } catch (const ErrorMessage&) {
            // The catalogs listed so far are still walked.
        }
    }

    if (!depth.GoDeeper())
        return;
    if (BaseStringUtil::IsCaseInsensitiveMatch(m_strCatalog, kAllNames)) {
        m_strSchema = kAllNames;
        m_strTable = kAllNames;
    }
    if (strlist.empty()) {
        // Sources without catalogs still have schemas and tables.
        m_strCatalog.clear();
        GenerateSchemaUdml();
        return;
    }
    // The schema walk leaves the last table's names in the path fields; every catalog starts
    // again from the request's patterns.
    const WyString schemaPattern(m_strSchema);
    const WyString tablePattern(m_strTable);
    for (const WyString& name : strlist) {
        if (m_bAbort)
            break;
        m_strCatalog = name;
        m_strSchema = schemaPattern;
        m_strTable = tablePattern;
        GenerateSchemaUdml();
    }
}

void CUdmlGenerator::GenCatalogUdmlStatement(const WyString& strCatalog) {
    if (m_bAbort || (m_fGenerate & kGenerateCatalog) == 0)
        return;
    QualifiedName qName;
    qName.push_back(m_strDatabase);
    qName.push_back(strCatalog);
    if (RepositoryHolds(m_pRpGateway, kTIDACatalog, qName))
        return;
    OutputCString("\nDECLARE CATALOG ");
    GenerateQualifiedUdml(&m_strDatabase, &strCatalog, nullptr);
    OutputCString(" AS \"");
    OutputWyString(strCatalog);
    OutputCString("\";\n");
}

void CUdmlGenerator::GenerateSchemaUdml() {
    if (m_bAbort || m_pImport == nullptr)
        return;
    CDepthCounter depth(m_nDepth, m_nDepthLimit);

    // Everything is collected before anything is written: the later look-ups (input messages,
    // each table's columns and keys) prepare listings of their own.
    std::list<COdbcHelper> listKludge;
    auto accept = [this, &listKludge](const MITable& table) {
        listKludge.emplace_back(table.schema_, table.table_, table.fullyQualifiedName_);
        RecordFirst(m_metadataMap, table.schema_, table.table_, table.remarks_);
    };

    try {
        WyStringVector workingSchemas;
        bool bNoSchemaLoadAllTables = false;
        if (BaseStringUtil::IsCaseInsensitiveMatch(m_strSchema, kAllNames)) {
            m_pImport->PrepareForSchema(m_strCatalog, m_strSchema);
            MISchema schema;
            while (!m_bAbort && m_pImport->Get(schema))
                workingSchemas.push_back(schema.schema_);
            bNoSchemaLoadAllTables = workingSchemas.empty();
            if (bNoSchemaLoadAllTables && !m_bAbort) {
                // A source without schemas: every table of the catalog, unfiltered.
                m_pImport->PrepareForTable(m_strCatalog, m_strSchema, m_strTable, m_tableType);
                MITable table;
                while (!m_bAbort && m_pImport->Get(table))
                    accept(table);
            }
        } else {
            workingSchemas.push_back(m_strSchema);
        }

        if (!bNoSchemaLoadAllTables) {
            MITable table;
            for (WyString& name : workingSchemas) {
                if (m_bAbort)
                    break;
                m_pImport->PrepareForTable(m_strCatalog, name, m_strTable, m_tableType);
                // The schema name is a search pattern to the source ("_" matches any character),
                // so only tables of exactly this schema, ignoring case, are taken.
                bool bNoTables = true;
                while (!m_bAbort && m_pImport->Get(table)) {
                    bNoTables = false;
                    if (name.empty() || BaseStringUtil::IsCaseInsensitiveMatch(table.schema_, name))
                        accept(table);
                }
                if (bNoTables && !m_bAbort)
                    listKludge.emplace_back(name, WyString(), WyString());
            }
        }
    } catch (const ErrorMessage&) {
        // What was collected before the failure is still written.
    }

    listKludge.sort();

    WyStringSet schemas;
    const WyString* pLastSchema = nullptr;
    for (const COdbcHelper& helper : listKludge) {
        if (m_bAbort)
            break;
        // After the sort a schema's triples lie together; only a change of name needs the set.
        if ((m_fGenerate & kGenerateSchema) != 0 && !helper.m_strSchema.empty() &&
            (pLastSchema == nullptr || *pLastSchema != helper.m_strSchema)) {
            pLastSchema = &helper.m_strSchema;
            if (schemas.insert(BaseStringUtil::ToUpperCase(helper.m_strSchema)).second) {
                QualifiedName qName;
                qName.reserve(3);
                qName.push_back(m_strDatabase);
                qName.push_back(m_strCatalog);
                qName.push_back(helper.m_strSchema);
                if (!RepositoryHolds(m_pRpGateway, kTIDASchema, qName)) {
                    OutputCString("\nDECLARE SCHEMA ");
                    GenerateQualifiedUdml(&m_strDatabase, &m_strCatalog, &helper.m_strSchema, nullptr);
                    OutputCString(" AS \"");
                    OutputWyString(helper.m_strSchema);
                    OutputCString("\"");
                    if (m_callInterfaceType == ServerInfo::kCLI_WS && m_pImport != nullptr) {
                        WyString schemaArg(helper.m_strSchema);
                        m_pImport->PrepareForSchema(m_strCatalog, schemaArg);
                        MISchema schema;
                        while (!m_bAbort && m_pImport->Get(schema)) {
                            if (schema.catalog_ == m_strCatalog && schema.schema_ == helper.m_strSchema) {
                                if (!schema.wsInputMsg_.empty()) {
                                    OutputCString("\n\tWS INPUTMSG");
                                    OutputWyString(
                                        UDMLWyGenerator::EscapeCurlyBraceInWyString(schema.wsInputMsg_));
                                }
                                break;
                            }
                        }
                    }
                    OutputCString(";\n");
                }
            }
        }
        if (depth.GoDeeper() && !helper.m_strTable.empty()) {
            m_strSchema = helper.m_strSchema;
            m_strTable = helper.m_strTable;
            m_strTableURI = helper.m_strTableURI;
            GenerateTableUdml();
        }
    }
}

void CUdmlGenerator::GenerateTableUdml() {
    if (m_bAbort || m_pImport == nullptr)
        return;
    InitializeTableMetadataMap();
    ConstructTableUDML(nullptr);
}

void CUdmlGenerator::ConstructTableUDML(TableUDML* pTableInfo) {
    CDepthCounter depth(m_nDepth, m_nDepthLimit);
    const bool bDeeper = depth.GoDeeper();

    // Map values are never erased, so pointers to them stay valid while the columns are written.
    const WyString* pRemarks = nullptr;
    const WyString* pEffCode = nullptr;
    if ((m_fGenerate & kGenerateTable) != 0) {
        OutputCString("\nDECLARE TABLE ");
        GenerateQualifiedUdml(&m_strDatabase, &m_strCatalog, &m_strSchema, &m_strTable, nullptr);
        OutputCString(" AS \"");
        OutputWyString(m_strTable);
        OutputCString("\"");
        if (m_callInterfaceType == ServerInfo::kCLI_ZEL_HTTP)
            m_importedZelTableNames.insert(m_strTable);

        if (!m_metadataMap.empty() || !m_metadataEFFCodeMap.empty()) {
            WyStringVector tblVect;
            tblVect.reserve(2);
            tblVect.push_back(m_strSchema.empty() ? m_strCatalog : m_strSchema);
            tblVect.push_back(m_strTable);
            auto remarks = m_metadataMap.find(tblVect);
            if (remarks != m_metadataMap.end())
                pRemarks = &remarks->second;
            auto effCode = m_metadataEFFCodeMap.find(tblVect);
            if (effCode != m_metadataEFFCodeMap.end())
                pEffCode = &effCode->second;
        }

        if (bDeeper)
            GenerateTableColumnUdml(pTableInfo != nullptr ? &pTableInfo->columns : nullptr);
    }

    if (m_callInterfaceType == ServerInfo::kCLI_ZEL_HTTP)
        OutputCString(" NOT CACHEABLE");
    if (!bDeeper)
        OutputCString(" NO INTERSECTION");
    if (pRemarks != nullptr && !pRemarks->empty()) {
        OutputCString(" DESCRIPTION ");
        OutputWyString(UDMLWyGenerator::EscapeCurlyBraceInWyString(*pRemarks));
    }
    if (!m_strTableURI.empty()) {
        OutputCString(" URI '");
        OutputWyString(m_strTableURI);
        OutputCString("'");
    }
    if (pEffCode != nullptr && !pEffCode->empty()) {
        WyStringStringMap propertyMap;
        propertyMap.emplace(S_FND_ACFF_EFF_FLEXFIELD_CODE, *pEffCode);
        WyString returnStr;
        OutputWyString(UDMLWyGenerator::GenerateTblOrColumnProperties(propertyMap, returnStr));
    }
    if (m_callInterfaceType == ServerInfo::kCLI_WS && m_pImport != nullptr) {
        // Only the table's name is compared: the web-service source names its tables uniquely.
        m_pImport->PrepareForTable(m_strCatalog, m_strSchema, m_strTable, m_tableType);
        MITable table;
        while (!m_bAbort && m_pImport->Get(table)) {
            if (table.table_ != m_strTable)
                continue;
            if (!table.wsXSLT_.empty()) {
                OutputCString("\n\tWS XSLT");
                OutputWyString(UDMLWyGenerator::EscapeCurlyBraceInWyString(table.wsXSLT_));
            }
            if (!table.wsxsd_.empty()) {
                OutputCString("\n\tWS XSDSCHEMA");
                OutputWyString(UDMLWyGenerator::EscapeCurlyBraceInWyString(table.wsxsd_));
            }
            break;
        }
    }
    OutputCString(";\n");

    if (bDeeper) {
        GenerateTableKeyUdml(pTableInfo != nullptr ? &pTableInfo->primaryKeys : nullptr);
        const WyString strBlank;
        GenerateForeignKeyUdml(strBlank);
    }
}

void CUdmlGenerator::InitializeTableMetadataMap() {
    if (m_pImport == nullptr)
        return;
    try {
        SUFeaturesTable features;
        TargetType targetType = kTargetDefault;
        m_pImport->GetFeatures(features, targetType);
        if (targetType != kZelV2)
            return;
        m_pImport->PrepareForTable(m_strCatalog, m_strSchema, m_strTable, m_tableType);
        MITable table;
        while (!m_bAbort && m_pImport->Get(table)) {
            RecordFirst(m_metadataMap, table.catalog_, table.table_, table.remarks_);
            if (!table.effFlexfieldCode_.empty())
                RecordFirst(m_metadataEFFCodeMap, table.catalog_, table.table_, table.effFlexfieldCode_);
        }
    } catch (const ErrorMessage&) {
        // The statements are written without the descriptions that could not be read.
    }
}

void CUdmlGenerator::GenerateTableUdml(WyStringSet& tableNames, TableUDMLVector& tableInfoList) {
    if (m_bAbort || m_pImport == nullptr)
        return;
    m_bUseExistingStructs = false;
    m_fGenerate = kGenerateAll;

    // Each bundle is the sink while its table is written; the host's sink comes back on every
    // way out, so nothing is ever written into a bundle that is gone.
    struct SinkRestorer {
        CUdmlGenerator& generator;
        OutputType type;
        WyString* output;
        ~SinkRestorer() {
            generator.m_nOutputType = type;
            generator.m_pstrOutput = output;
        }
    } restorer{*this, m_nOutputType, m_pstrOutput};
    m_nOutputType = oString;

    InitializeTableMetadataMap();
    try {
        for (const WyString& name : tableNames) {
            m_strTable = name;
            TableUDML bundle;
            bundle.tableName = name;
            m_pstrOutput = &bundle.udml;
            ConstructTableUDML(&bundle);
            m_pstrOutput = nullptr;
            tableInfoList.push_back(std::move(bundle));
        }
    } catch (const ErrorMessage&) {
        // The batch ends here; the bundles already appended are the caller's answer.
    }
}
