// The UDML generator: reads a data source's catalog through an import source and writes the
// repository statements that declare it (catalogs, schemas, tables with their columns, table
// keys, foreign keys and view-link joins). This header is all a host includes.
#pragma once

#include "SMUOdbStdIncludes.h"

#include <atomic>
#include <list>
#include <string>
#include <unordered_map>

/// One collected (schema, table, table URI) triple of the schema walk; a schema-only triple has
/// an empty table and URI. Ordered by schema name ignoring case; table and URI take no part.
class SMU_ODBCGEN_API COdbcHelper {
public:
    COdbcHelper() = default;
    COdbcHelper(const WyString& strSchema, const WyString& strTable, const WyString& strTableURI)
        : m_strSchema(strSchema), m_strTable(strTable), m_strTableURI(strTableURI) {}
    COdbcHelper(const COdbcHelper&) = default;
    COdbcHelper& operator=(const COdbcHelper&) = default;
    bool operator<(const COdbcHelper& other) const {
        return BaseStringUtil::IsCaseInsensitiveLessThan(m_strSchema, other.m_strSchema);
    }

    WyString m_strSchema;
    WyString m_strTable;
    WyString m_strTableURI;
};

/// Scope guard of the walk depth: adds one level on construction, takes it away on every exit.
class SMU_ODBCGEN_API CDepthCounter {
public:
    CDepthCounter(int& nDepth, int nDepthLimit) : m_nDepth(nDepth), m_nDepthLimit(nDepthLimit) { ++m_nDepth; }
    ~CDepthCounter() { --m_nDepth; }
    CDepthCounter(const CDepthCounter&) = delete;
    CDepthCounter& operator=(const CDepthCounter&) = delete;
    /// True while the counter is at most the limit, or the limit is -1.
    bool GoDeeper() const { return m_nDepthLimit == -1 || m_nDepth <= m_nDepthLimit; }

private:
    int& m_nDepth;
    int m_nDepthLimit;
};

/// One table of the batch entry: its complete text and the records read for it.
struct SMU_ODBCGEN_API TableUDML {
    WyString udml;
    WyString tableName;
    MIColumnVector columns;
    MIPrimaryKeyVector primaryKeys;
};
using TableUDMLVector = std::vector<TableUDML>;

/// Column records of stand-alone column requests: table key (catalog + schema + fetch table) to
/// column name to record.
using StrToMIColumnsMap = std::map<WyString, std::map<WyString, MIColumn>>;

/// The repository's join cardinalities.
enum JoinCardinality : uint16 {
    k_One_To_One = 0,
    k_ZeroOrOne_To_One = 1,
    k_One_To_ZeroOrOne = 2,
    k_ZeroOrOne_To_ZeroOrOne = 3,
    k_One_To_Many = 4,
    k_ZeroOrOne_To_Many = 5,
    k_Many_To_One = 6,
    k_Many_To_ZeroOrOne = 7,
    k_Many_To_Many = 8,
    kUnknownCardinality = 9,
};

/// FNV-1a over the lower-cased code units, in unsigned 64-bit arithmetic.
struct SMU_ODBCGEN_API WyStringCaseInsensitiveHash {
    size_t operator()(const WyString& key) const;
};
struct SMU_ODBCGEN_API WyStringCaseInsensitiveMatch {
    bool operator()(const WyString& a, const WyString& b) const {
        return BaseStringUtil::IsCaseInsensitiveMatch(a, b);
    }
};
using AppModuleNamesVector = std::vector<WyString>;
using ViewObjectNameToAppModuleMap =
    std::unordered_map<WyString, AppModuleNamesVector, WyStringCaseInsensitiveHash,
                       WyStringCaseInsensitiveMatch>;

/// Decides which view links a repository database forbids: each property category of the
/// database is an application module, and its JOIN_ONLY_WITHIN_MODULE property lists (";"-separated)
/// view objects that may only be joined to view objects whose names begin with the module's name.
/// Without a gateway, or without exactly one database of the name, nothing is forbidden.
class SMU_ODBCGEN_API ViewLinkRestrictHelper {
public:
    ViewLinkRestrictHelper(ARpGateway* pRpGateway, const WyString& sDatabase);
    ~ViewLinkRestrictHelper();

    /// True when the link must not become a join; loads the properties on first use. Exceptions
    /// of the repository pass to the caller.
    bool IsViewLinkProhibited(const MIViewLink& viewLink);
    void LoadDatabaseProperties();
    bool IsViewObjectBelongsToOneOfSpecifiedAppModules(const AppModuleNamesVector& appModuleNamesVector,
                                                       const WyString& sViewObjectName);

private:
    ARpGateway* m_pRpGateway;
    WyString m_sDatabase;
    bool m_bLoaded;
    ViewObjectNameToAppModuleMap m_viewObjectNameToAppModuleMap;
};

/// The generator. A host constructs it, connects it (or hands it an open import source), sets a
/// sink, and sends requests through GenerateUdml; one request at a time, on the caller's thread.
///
/// The repository gateway answers whether a catalog or schema already exists and which tables
/// and joins the repository holds. A generator without a gateway treats the repository as empty:
/// catalog and schema statements are written unchecked, and GenerateViewLinks finds no repository
/// tables, so it writes no join and forbids nothing.
class SMU_ODBCGEN_API CUdmlGenerator {
public:
    enum OutputType : int32_t { oNothing = -1, oVTable = 0, oString = 1, oStdOut = 2 };

    /// A generator that creates its own import source in Connect and owns it.
    CUdmlGenerator();
    /// A generator around an open import source of the host, which stays the host's (but see
    /// Disconnect). Neither the gateway nor the source is released by the generator.
    CUdmlGenerator(ARpGateway* pGateway, MIMetaDataImport* pImport, const WyString& strSource,
                   const WyString& strDatabase, const WyString& strUser, const WyString& strPassword,
                   CLIType cliType);
    /// Disconnects (closing and destroying the source) only when the generator created it.
    virtual ~CUdmlGenerator();
    CUdmlGenerator(const CUdmlGenerator&) = delete;
    CUdmlGenerator& operator=(const CUdmlGenerator&) = delete;

    /// Disconnects, then creates an import source for the call-interface type and opens it. False
    /// when no source exists for the type; true once a source was created, even when opening it
    /// failed (the source then stays attached, and its failure is discarded).
    bool Connect(const WyString& strSource, const WyString& strUser, const WyString& strPassword);
    /// Closes and destroys whatever import source is attached, whoever created it; a failure to
    /// close is ignored.
    void Disconnect();
    bool IsConnected() { return m_pImport != nullptr; }
    void SetImport(MIMetaDataImport* pImport) { m_pImport = pImport; }
    MIMetaDataImport* GetImport() { return m_pImport; }

    /// The record table becomes the sink: one record per output piece.
    void SetOuput(VirtualTable* pVTable) {
        m_pVTable = pVTable;
        m_nOutputType = oVTable;
    }
    /// The string becomes the sink: output is appended to it.
    void SetOuput(WyString* pstrOutput) {
        m_pstrOutput = pstrOutput;
        m_nOutputType = oString;
    }
    /// The process's standard output stream becomes the sink (UTF-8, no flush of its own).
    void SetOuputStdOut() { m_nOutputType = oStdOut; }
    OutputType GetOutputType() const { return m_nOutputType; }

    void SetTableType(uint8 tableType) { m_tableType = tableType; }
    /// Stops the request in progress at its next check; safe to call from another thread or a
    /// signal handler. The next request clears it.
    void Abort() { m_bAbort.store(true); }

    void SetSource(const WyString& s) { m_strSource = s; }
    void SetDatabase(const WyString& s) { m_strDatabase = s; }
    void SetZelDSN(const WyString& s) { m_zelDSN = s; }
    void SetUser(const WyString& s) { m_strUser = s; }
    void SetPassword(const WyString& s) { m_strPassword = s; }
    const WyString& GetSource() { return m_strSource; }
    const WyString& GetDatabase() { return m_strDatabase; }
    const WyString& GetZelDSN() { return m_zelDSN; }
    const WyString& GetUser() { return m_strUser; }
    const WyString& GetPassword() { return m_strPassword; }
    void setRpGateway(ARpGateway* pGateway) { m_pRpGateway = pGateway; }
    void setCheckColumnVector(WyStringVector columns) { m_checkColumnVector = std::move(columns); }
    void SetCallInterfaceType(CLIType cliType) { m_callInterfaceType = cliType; }
    CLIType GetCallInterfaceType() const { return m_callInterfaceType; }
    bool IsSynonymBranch() { return !m_strBaseTable.empty(); }

    /// Hands in a column record for stand-alone column requests; turns on existing structures.
    void SetMIColumn(const MIColumn& column);
    /// Hands in key records for key statements; turns on existing structures.
    void SetMITableKeys(const MIPrimaryKeyVector& keyVec);
    /// Hands in view links for GenerateViewLinks; turns on existing structures.
    void SetMIViewLinks(const MIViewLinkVector& linkVec);
    void SetUseExistingStructs(bool bUseExistingStructs) { m_bUseExistingStructs = bUseExistingStructs; }

    /// Writes the UDML of the object `typeID` names (database 3023, catalog 3025, schema 3027,
    /// table 3001, column 3003, table key 3008, foreign key 3006) and what lies beneath it down to
    /// `nDepthLimit` levels (-1: no limit), the statement kinds of `fGenerate` only. False without
    /// an import source, or when the source failed: `strErrorMsg` then holds each message of the
    /// failure followed by "\n". Output already written is never withdrawn.
    bool GenerateUdml(const TypeID& typeID, const WyString& strCatalog, const WyString& strSchema,
                      const WyString& strTable, const WyString& strTableURI, const WyString& strColumn,
                      const WyString& strForeignKey, const WyString& strBaseTable, WyString& strErrorMsg,
                      int nDepthLimit, int fGenerate, bool bUseExistingStructs);

    /// Appends the foreign-key statements of every table of the source to `parrayForeignKeys`;
    /// nothing reaches the sink, which stays oNothing afterwards. The whole path is emptied first,
    /// base table included.
    bool GenerateAllForeignKeys(WyStringVector* parrayForeignKeys);
    /// Appends the foreign-key statements of one table to `parrayForeignKeys`.
    bool GenerateForeignKeys(const WyString& strCatalog, const WyString& strSchema, const WyString& strTable,
                             const WyString& strBaseTable, WyStringVector* parrayForeignKeys);
    bool GenerateForeignKeys(const WyString& strCatalog, const WyString& strSchema,
                             WyStringVector* parrayForeignKeys);
    /// Writes the table-key statements of one table.
    bool GeneratePrimaryKey(const WyString& strCatalog, const WyString& strSchema, const WyString& strTable,
                            const WyString& strBaseTable);
    /// Writes one join per admissible view link of the source (or of SetMIViewLinks). A link
    /// whose source and destination column lists differ in length is reported as a logic error
    /// after its head is written; its statement is then ended with ";" without the expression
    /// clause and the remaining links are written. False when aborted, without an import source,
    /// or when the source or repository failed (what was written stays written).
    bool GenerateViewLinks(const WyStringSet& strTablesInCurrDB, const WyStringSet& strComplexJoinsInCurrDB,
                           const WyStringSet& strComplexJoinsInOtherDBs);
    /// The join condition of a view link, built into `sViewLinkExpr`: one equation per column
    /// pair, source on the left. Only positions present in both column lists are used.
    WyString& GenerateZelViewLinkExpression(const MIViewLink& viewLink, WyString& sViewLinkExpr);
    /// One bundle per name of `tableNames`, in the set's order, appended to `tableInfoList`.
    void GenerateTableUdml(WyStringSet& tableNames, TableUDMLVector& tableInfoList);

protected:
    void Initialize();

    // Container statements.
    void GenerateDatabaseUdml();
    void GenerateCatalogUdml();
    void GenCatalogUdmlStatement(const WyString& strCatalog);
    void GenerateSchemaUdml();
    void GenerateTableUdml();
    void ConstructTableUDML(TableUDML* pTableInfo);
    void InitializeTableMetadataMap();

    // Columns and keys.
    void GenerateColumnInfoUdml(const MIColumn& column);
    void GenerateTableColumnUdml(MIColumnVector* pColumns);
    void GenerateColumnUdml();
    void correctPickList(MIColumn& column, const WyStringVector& columnVector);
    void GenerateTableKeyUdml(MIPrimaryKeyVector* pKeys);

    // Relationships.
    void GenerateForeignKeyUdml(const WyString& strForeignKeyName);
    void GenerateForeignKeyTailUdml(const MIForeignKey& foreignKey);

    // Output to the current sink.
    void OutputCString(const char* cStr);
    void OutputWyString(const WyString& wyStr);
    void OutputQualifiedWyString(const WyString& wyQualifier, const WyString& wyStr, bool bQualified);
    /// Writes the quoted name path of the parts up to the first null pointer.
    void GenerateQualifiedUdml(const WyString* pstrFirst, ...);
    WyString GenerateQualifiedUDMLStr(const WyString* pstrFirst, ...);

    ARpGateway* m_pRpGateway;
    MIMetaDataImport* m_pImport;
    bool m_bAutoClean;
    std::atomic<bool> m_bAbort;
    bool m_bUseExistingStructs;
    MIColumn m_importedMIColumn;
    MIPrimaryKeyVector m_importedMITablePrimaryKeys;
    MIViewLinkVector m_importedMIViewLinks;
    WyString m_strCatalog;
    WyString m_strSchema;
    WyString m_strTable;
    WyString m_strTableURI;
    WyString m_strColumn;
    WyString m_strBaseTable;
    WyString m_strSource;
    WyString m_strDatabase;
    WyString m_zelDSN;
    WyString m_strUser;
    WyString m_strPassword;
    int m_nDepth;
    int m_nDepthLimit;
    int m_fGenerate;
    uint8 m_tableType;
    CLIType m_callInterfaceType;
    OutputType m_nOutputType;
    VirtualTable* m_pVTable;
    WyString* m_pstrOutput;
    WyStringVector* m_parrayForeignKeys;
    WyMetadataMap m_metadataMap;
    WyMetadataMap m_metadataEFFCodeMap;
    WyStringVector m_checkColumnVector;
    StrToMIColumnsMap m_importedTableColumns;
    WyStringSet m_importedZelTableNames;

private:
    // Runs `walk` in the collect-only configuration of the foreign-key collection requests.
    template <class Walk> bool CollectForeignKeys(WyStringVector* parrayForeignKeys, Walk walk);

    // The column records of the table list being written, kept between tables so that each
    // fetch refills records whose strings already have room.
    MIColumnVector m_tableColumnScratch;
    // The 8-bit form of the piece being written to the record table or standard output, kept so
    // that a piece costs no allocation.
    std::string m_pieceBytes;
};
