// Relationships: foreign-key statements and their collection, the view-link restriction by
// application module, and the join statements built from view links.
#include "SMUOdbcGenerator.h"

#include <algorithm>
#include <cstdint>
#include <unordered_set>

namespace {
// Where an inconsistent view link is reported from; hosts recognise the report by this location.
const wchar_t kGeneratorSourceFile[] = L"server/Metadata/UDMLOdbcGen/Src/SMUOdbcGenerator";
const int kViewLinkColumnsLine = 1985;
const int kForeignKeyBit = 0x0020;

// The repository's words for a join cardinality; the cardinalities it has no words for write none.
const char* CardinalityWords(uint16 cardinality) {
    switch (cardinality) {
    case k_One_To_One:
        return "ONE TO ONE";
    case k_One_To_Many:
        return "ONE TO MANY";
    case k_Many_To_One:
        return "MANY TO ONE";
    case k_Many_To_Many:
        return "MANY TO MANY";
    default:
        return "";
    }
}
} // namespace

// ---------------------------------------------------------------------------------------------
// Foreign keys

void CUdmlGenerator::GenerateForeignKeyUdml(const WyString& strForeignKeyName) {
    if (m_bAbort || (m_fGenerate & kForeignKeyBit) == 0 || m_pImport == nullptr)
        return;

    // Each key is built apart so that a key interrupted by a failure never reaches the sink, and
    // so that a self-referencing key can be withdrawn at its tail.
    const OutputType nSavedOutputType = m_nOutputType;
    WyString* const pSavedOutput = m_pstrOutput;
    WyString strKeyUdml;
    m_nOutputType = oString;
    m_pstrOutput = &strKeyUdml;

    WyStringVector arrayTemp;
    try {
        WyStringVector existingFKeyNames;
        // The same names as a set: a table with thousands of foreign keys would otherwise search
        // the list once per key. The list is still what a rename consults.
        std::unordered_set<WyString> existingFKeyNameSet;
        WyString strEmpty;
        WyString& strFetchTable = IsSynonymBranch() ? m_strBaseTable : m_strTable;
        m_pImport->PrepareForForeignKey(strEmpty, strEmpty, strEmpty, m_strCatalog, m_strSchema,
                                        strFetchTable);

        MIForeignKey foreignKey;
        MIForeignKey prevForeignKey;
        bool bFirstRecord = true;
        while (!m_bAbort && m_pImport->Get(foreignKey)) {
            // The filter sees only delivered names: a key the source left unnamed is never asked for.
            if (!strForeignKeyName.empty() &&
                !BaseStringUtil::IsMatch(foreignKey.foreignKeyName_, strForeignKeyName))
                continue;

            const bool bGeneratedName = foreignKey.foreignKeyName_.empty();
            if (bGeneratedName) {
                foreignKey.foreignKeyName_.reserve(foreignKey.fkTable_.size() + foreignKey.pkTable_.size() +
                                                   4);
                foreignKey.foreignKeyName_.append(L"FK_")
                    .append(foreignKey.fkTable_)
                    .append(L"_")
                    .append(foreignKey.pkTable_);
            }
            // Must agree with the name the table-key statement gives an unnamed key, so that the
            // REFERENCES clause names the key the referenced table declares.
            if (foreignKey.primaryKeyName_.empty())
                foreignKey.primaryKeyName_.append(L"PK_").append(foreignKey.pkTable_);

            bool bStartKey = bFirstRecord;
            if (!bFirstRecord) {
                bool bIsContinuationOfLastFKey;
                if (!BaseStringUtil::IsMatch(foreignKey.foreignKeyName_, prevForeignKey.foreignKeyName_))
                    bIsContinuationOfLastFKey = false;
                else if (bGeneratedName)
                    bIsContinuationOfLastFKey = true;
                else
                    bIsContinuationOfLastFKey =
                        BaseStringUtil::IsMatch(foreignKey.pkTable_, prevForeignKey.pkTable_) &&
                        BaseStringUtil::IsMatch(foreignKey.fkTable_, prevForeignKey.fkTable_);

                if (bIsContinuationOfLastFKey) {
                    OutputCString(", ");
                } else {
                    existingFKeyNames.push_back(prevForeignKey.foreignKeyName_);
                    existingFKeyNameSet.insert(prevForeignKey.foreignKeyName_);
                    // Made-up names repeat by design (two unnamed keys between the same tables);
                    // only a delivered name that comes back is renamed.
                    if (!bGeneratedName && existingFKeyNameSet.count(foreignKey.foreignKeyName_) != 0)
                        foreignKey.foreignKeyName_ =
                            GenerateUniqueName(existingFKeyNames, foreignKey.foreignKeyName_);
                    GenerateForeignKeyTailUdml(prevForeignKey);
                    arrayTemp.push_back(strKeyUdml);
                    strKeyUdml.clear();
                    bStartKey = true;
                }
            }

            if (bStartKey) {
                OutputCString("\nDECLARE FOREIGN KEY ");
                GenerateQualifiedUdml(&m_strDatabase, &m_strCatalog, &m_strSchema, &m_strTable,
                                      &foreignKey.foreignKeyName_, nullptr);
                OutputCString(" AS \"");
                OutputWyString(foreignKey.foreignKeyName_);
                OutputCString("\"\n HAVING ( ");
            }
            GenerateQualifiedUdml(&m_strDatabase, &m_strCatalog, &m_strSchema, &foreignKey.fkTable_,
                                  &foreignKey.fkColumnName_, nullptr);
            prevForeignKey = foreignKey;
            bFirstRecord = false;
        }

        if (!bFirstRecord) {
            GenerateForeignKeyTailUdml(prevForeignKey);
            arrayTemp.push_back(strKeyUdml);
            strKeyUdml.clear();
        }
    } catch (...) {
        // A failing source ends the listing: the keys finished so far are kept, the one under
        // construction is dropped.
    }

    m_nOutputType = nSavedOutputType;
    m_pstrOutput = pSavedOutput;

    for (const WyString& strStatement : arrayTemp)
        OutputWyString(strStatement);
    if (m_parrayForeignKeys != nullptr && !arrayTemp.empty())
        m_parrayForeignKeys->insert(m_parrayForeignKeys->end(), arrayTemp.begin(), arrayTemp.end());
}

void CUdmlGenerator::GenerateForeignKeyTailUdml(const MIForeignKey& foreignKey) {
    OutputCString(" )\n REFERENCES ");
    // A key of a table onto itself is not declared; its statement is emptied but keeps its place.
    if (BaseStringUtil::IsCaseInsensitiveMatch(foreignKey.pkTable_, m_strTable) &&
        BaseStringUtil::IsCaseInsensitiveMatch(foreignKey.pkCatalog_, m_strCatalog) &&
        BaseStringUtil::IsCaseInsensitiveMatch(foreignKey.pkSchema_, m_strSchema)) {
        // Only a statement being built in a string can be withdrawn; a host's other sink keeps
        // what it received.
        if (m_nOutputType == oString && m_pstrOutput != nullptr)
            m_pstrOutput->clear();
        return;
    }
    GenerateQualifiedUdml(&m_strDatabase, &foreignKey.pkCatalog_, &foreignKey.pkSchema_, &foreignKey.pkTable_,
                          &foreignKey.primaryKeyName_, nullptr);
    OutputCString(";\n");
}

// ---------------------------------------------------------------------------------------------
// Foreign-key collection

// Both requests leave the generator collect-only (no sink, no depth limit, the foreign-key bit
// alone) and clear only the collection pointer on every way out.
template <class Walk> bool CUdmlGenerator::CollectForeignKeys(WyStringVector* parrayForeignKeys, Walk walk) {
    if (m_bAbort || m_pImport == nullptr)
        return false;
    m_nOutputType = oNothing;
    m_parrayForeignKeys = parrayForeignKeys;
    m_nDepth = 0;
    m_nDepthLimit = -1;
    m_fGenerate = kForeignKeyBit;

    bool bResult = true;
    try {
        walk();
    } catch (...) {
        bResult = false;
    }
    m_parrayForeignKeys = nullptr;
    return bResult;
}

bool CUdmlGenerator::GenerateForeignKeys(const WyString& strCatalog, const WyString& strSchema,
                                         const WyString& strTable, const WyString& strBaseTable,
                                         WyStringVector* parrayForeignKeys) {
    return CollectForeignKeys(parrayForeignKeys, [&] {
        m_strCatalog = strCatalog;
        m_strSchema = strSchema;
        m_strTable = strTable;
        m_strBaseTable = strBaseTable;
        GenerateForeignKeyUdml(WyString());
    });
}

bool CUdmlGenerator::GenerateForeignKeys(const WyString& strCatalog, const WyString& strSchema,
                                         WyStringVector* parrayForeignKeys) {
    const WyString strNoTable;
    return GenerateForeignKeys(strCatalog, strSchema, strNoTable, strNoTable, parrayForeignKeys);
}

bool CUdmlGenerator::GenerateAllForeignKeys(WyStringVector* parrayForeignKeys) {
    return CollectForeignKeys(parrayForeignKeys, [this] {
        m_strCatalog.clear();
        m_strSchema.clear();
        m_strTable.clear();
        m_strColumn.clear();
        // A base table left by an earlier request would redirect every table's fetch to it.
        m_strBaseTable.clear();
        GenerateDatabaseUdml();
    });
}

// ---------------------------------------------------------------------------------------------
// View-link restriction

size_t WyStringCaseInsensitiveHash::operator()(const WyString& key) const {
    uint64_t hash = 2166136261ULL;
    for (const wchar_t unit : key)
        hash = (hash ^ static_cast<uint32_t>(BaseStringUtil::ToLower(unit))) * 16777619ULL;
    return static_cast<size_t>(hash);
}

ViewLinkRestrictHelper::ViewLinkRestrictHelper(ARpGateway* pRpGateway, const WyString& sDatabase)
    : m_pRpGateway(pRpGateway), m_sDatabase(sDatabase), m_bLoaded(false) {}

ViewLinkRestrictHelper::~ViewLinkRestrictHelper() = default;

void ViewLinkRestrictHelper::LoadDatabaseProperties() {
    if (m_bLoaded)
        return;
    // Set before reading, so that a load that fails or finds nothing is not attempted again.
    m_bLoaded = true;
    if (m_pRpGateway == nullptr)
        return;

    VoidIDVector databaseIds;
    m_pRpGateway->FindObjects(
        NamedInterfaceTypeCondition(kTIDADatabase, m_sDatabase, WyStringVector(), false), databaseIds);
    // With no database of the name, or an ambiguous one, there is no telling whose rules apply.
    if (databaseIds.size() != 1)
        return;

    Ref<ARpObject> objectRef = m_pRpGateway->GetObjectRef(databaseIds.front());
    Ref<ADatabase> databaseRef = RefHelper::AddRef<ADatabase>(objectRef);
    RefHelper::ReleaseRef(objectRef);
    const ADatabase* pDatabase = RefHelper::GetObjectPointerFromGatway(databaseRef);
    if (pDatabase != nullptr) {
        DatabasePropertiesTableMap allProperties;
        pDatabase->GetDatabaseProperties(allProperties);
        const WyString sPropName(S_ZEL_PROPERYTY_JOIN_ONLY_WITHIN_AM);
        const WyString sSeparator(L";");
        WyString sPropValue;
        WyStringVector viewObjectNames;
        for (const auto& category : allProperties) {
            const WyString& sAppModuleName = category.first;
            category.second.GetProperty(sPropName, sPropValue);
            if (sPropValue.empty())
                continue;
            viewObjectNames.clear();
            BaseStringUtil::Tokenize(sPropValue, sSeparator, viewObjectNames, false, false);
            for (const WyString& sViewObjectName : viewObjectNames) {
                if (sViewObjectName.empty())
                    continue;
                m_viewObjectNameToAppModuleMap[sViewObjectName].push_back(sAppModuleName);
            }
        }
    }
    RefHelper::ReleaseRef(databaseRef);
}

bool ViewLinkRestrictHelper::IsViewObjectBelongsToOneOfSpecifiedAppModules(
    const AppModuleNamesVector& appModuleNamesVector, const WyString& sViewObjectName) {
    // Modules own their view objects by name prefix; no separator after the module is required.
    for (const WyString& sAppModuleName : appModuleNamesVector)
        if (BaseStringUtil::CaseInsensitiveFindPatternAtStart(sViewObjectName, sAppModuleName))
            return true;
    return false;
}

bool ViewLinkRestrictHelper::IsViewLinkProhibited(const MIViewLink& viewLink) {
    LoadDatabaseProperties();
    if (m_viewObjectNameToAppModuleMap.empty())
        return false;

    auto entry = m_viewObjectNameToAppModuleMap.find(viewLink.source_);
    if (entry != m_viewObjectNameToAppModuleMap.end() &&
        !IsViewObjectBelongsToOneOfSpecifiedAppModules(entry->second, viewLink.destination_))
        return true;
    entry = m_viewObjectNameToAppModuleMap.find(viewLink.destination_);
    if (entry != m_viewObjectNameToAppModuleMap.end() &&
        !IsViewObjectBelongsToOneOfSpecifiedAppModules(entry->second, viewLink.source_))
        return true;
    return false;
}

// ---------------------------------------------------------------------------------------------
// View-link joins

void CUdmlGenerator::SetMIViewLinks(const MIViewLinkVector& linkVec) {
    m_bUseExistingStructs = true;
    m_importedMIViewLinks = linkVec;
}

WyString& CUdmlGenerator::GenerateZelViewLinkExpression(const MIViewLink& viewLink, WyString& sViewLinkExpr) {
    sViewLinkExpr.clear();
    // Pairs are taken by position; a destination list shorter than the source list has no
    // partner for the rest, which are left out rather than read past the end.
    const size_t nPairs = std::min(viewLink.sourceColumns_.size(), viewLink.destinationColumns_.size());
    for (size_t i = 0; i < nPairs; ++i) {
        if (i > 0)
            sViewLinkExpr += L"\nAND\n";
        sViewLinkExpr += GenerateQualifiedUDMLStr(&m_strDatabase, &m_strCatalog, &m_strSchema,
                                                  &viewLink.source_, &viewLink.sourceColumns_[i], nullptr);
        sViewLinkExpr += L" = ";
        sViewLinkExpr +=
            GenerateQualifiedUDMLStr(&m_strDatabase, &m_strCatalog, &m_strSchema, &viewLink.destination_,
                                     &viewLink.destinationColumns_[i], nullptr);
    }
    return sViewLinkExpr;
}

bool CUdmlGenerator::GenerateViewLinks(const WyStringSet& strTablesInCurrDB,
                                       const WyStringSet& strComplexJoinsInCurrDB,
                                       const WyStringSet& strComplexJoinsInOtherDBs) {
    if (m_bAbort || m_pImport == nullptr)
        return false;

    try {
        const bool bFromList = m_bUseExistingStructs;
        MIViewLink viewLink;
        bool bMayRun;
        if (bFromList) {
            bMayRun = !m_importedMIViewLinks.empty();
        } else {
            m_pImport->PrepareForViewLink();
            bMayRun = !m_bAbort && m_pImport->Get(viewLink);
        }

        WyStringSet existingJoins(strComplexJoinsInCurrDB);
        existingJoins.insert(strComplexJoinsInOtherDBs.begin(), strComplexJoinsInOtherDBs.end());
        WyStringSet joinsCreated;
        ViewLinkRestrictHelper viewLinksRestricter(m_pRpGateway, m_strDatabase);
        if (!bMayRun)
            return true;

        WyString complexJoinName;
        WyString invertedJoinName;
        WyString sViewLinkExpr;
        size_t linkIndex = 0;

        // Writes the join of the current link unless one of the filters rejects it.
        auto writeJoin = [&]() {
            complexJoinName.assign(viewLink.source_).append(L"_").append(viewLink.destination_);
            invertedJoinName.assign(viewLink.destination_).append(L"_").append(viewLink.source_);
            if (joinsCreated.count(complexJoinName) != 0 || joinsCreated.count(invertedJoinName) != 0 ||
                strTablesInCurrDB.count(viewLink.source_) == 0 ||
                strTablesInCurrDB.count(viewLink.destination_) == 0)
                return;
            // A source's links may name view objects of other imports; only links that touch a
            // table this generator declared are its business.
            if (!bFromList && m_importedZelTableNames.count(viewLink.destination_) == 0 &&
                m_importedZelTableNames.count(viewLink.source_) == 0)
                return;

            // Without a repository there are no tables to join.
            if (m_pRpGateway == nullptr)
                return;
            const WyStringVector qNameTableSource{m_strDatabase, m_strCatalog, m_strSchema, viewLink.source_};
            const WyStringVector qNameTableDest{m_strDatabase, m_strCatalog, m_strSchema,
                                                viewLink.destination_};
            VoidIDVector idsSource;
            VoidIDVector idsDest;
            m_pRpGateway->FindObjects(NamedInterfaceTypeCondition(kTIDATable, qNameTableSource, false),
                                      idsSource);
            m_pRpGateway->FindObjects(NamedInterfaceTypeCondition(kTIDATable, qNameTableDest, false),
                                      idsDest);
            if (idsSource.empty() || idsDest.empty())
                return;
            Ref<ARpObject> sourceTable = m_pRpGateway->GetObjectRef(idsSource.front());
            Ref<ARpObject> targetTable = m_pRpGateway->GetObjectRef(idsDest.front());
            Ref<ARpObject> existingJoin =
                MetadataUtil::FindComplexJoinBetweenTables(sourceTable, targetTable);
            const bool bCreateJoin = existingJoin.IsNull();
            RefHelper::ReleaseRef(existingJoin);
            RefHelper::ReleaseRef(targetTable);
            RefHelper::ReleaseRef(sourceTable);
            if (!bCreateJoin)
                return;

            if (viewLinksRestricter.IsViewLinkProhibited(viewLink))
                return;

            // The pair keeps its first name here, so the inverted link is excluded even when the
            // written name had to be changed.
            joinsCreated.insert(complexJoinName);
            int i = 0;
            while (existingJoins.count(complexJoinName) != 0) {
                complexJoinName = GenerateName(complexJoinName.c_str(), i);
                ++i;
            }
            existingJoins.insert(complexJoinName);

            OutputCString("\nDECLARE JOIN \"");
            OutputWyString(complexJoinName);
            OutputCString("\" AS \"");
            OutputWyString(complexJoinName);
            OutputCString("\" EXTERNAL \"");
            OutputWyString(viewLink.name_);
            OutputCString("\" ON TABLES (");
            GenerateQualifiedUdml(&m_strDatabase, &m_strCatalog, &m_strSchema, &viewLink.destination_,
                                  nullptr);
            OutputCString(", ");
            GenerateQualifiedUdml(&m_strDatabase, &m_strCatalog, &m_strSchema, &viewLink.source_, nullptr);
            OutputCString(") AS {} ");
            OutputCString(CardinalityWords(viewLink.cardinality_));

            if (viewLink.sourceColumns_.size() != viewLink.destinationColumns_.size()) {
                // The head is already out; closing the statement without its condition keeps the
                // output readable, and the remaining links still get their joins.
                WyAssert::handleLogicError(kGeneratorSourceFile, kViewLinkColumnsLine, s_ksBlank);
            } else if (!viewLink.sourceColumns_.empty()) {
                OutputCString("\nEXTERNAL EXPRESSION {");
                OutputWyString(GenerateZelViewLinkExpression(viewLink, sViewLinkExpr));
                OutputCString("}");
            }
            OutputCString(";");
            // A source that leaves the cardinality unset must not inherit this link's words.
            viewLink.cardinality_ = kUnknownCardinality;
        };

        for (;;) {
            if (bFromList)
                viewLink = m_importedMIViewLinks[linkIndex];
            writeJoin();
            if (bFromList) {
                ++linkIndex;
                if (m_bAbort || linkIndex >= m_importedMIViewLinks.size())
                    break;
            } else if (m_bAbort || !m_pImport->Get(viewLink)) {
                break;
            }
        }
        return true;
    } catch (...) {
        return false;
    }
}
