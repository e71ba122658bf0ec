// The interface through which the generator reads a data source's metadata, one record at a time.
#pragma once

#include "import/MIRecords.h"
#include "platform/ErrorMessage.h"

/// An import source. Each PrepareFor... operation selects the rows of its level and the matching
/// Get delivers them one by one, returning false when none is left. An empty text argument means
/// every name; other arguments of PrepareForCatalog, PrepareForSchema, PrepareForTable and
/// PrepareForColumn are ODBC search patterns ("%", "_", "\" escapes, case-sensitive); the names
/// given to PrepareForPrimaryKey and PrepareForForeignKey are exact.
///
/// Listings of different kinds are independent: a source keeps a table listing and a catalog
/// listing open side by side, so the generator may prepare one while it still reads the other
/// (the ODBC source holds one statement handle per kind).
///
/// Every failure is thrown as ErrorMessage, whose messages say what failed in words a user can
/// act on. The owner destroys a source through the virtual destructor.
class MIMetaDataImport {
public:
    enum IndexType { MISQL_INDEX_UNIQUE = 0, MISQL_INDEX_ALL = 1 };
    enum FrequencyAccuracy { MISQL_QUICK = 0, MISQL_ENSURE = 1 };

    virtual ~MIMetaDataImport() = default;

    /// Opens the connection; the generator passes false as the last argument.
    virtual void OpenConnection(WyString& source, WyString& user, WyString& password, bool) = 0;
    virtual void CloseConnection() = 0;
    virtual void SetTargetType(TargetType) = 0;
    virtual void GetDefaultCatalog(WyString&) = 0;
    virtual void PrepareForCatalog(WyString& catalog) = 0;
    virtual void PrepareForSchema(WyString& catalog, WyString& schema) = 0;
    /// `tableType` is a bit set of table types: 0x01 every type not named below, 0x02 system
    /// tables and views, 0x04 synonyms and aliases, 0x08 temporary tables; 0 selects every type.
    virtual void PrepareForTable(WyString& catalog, WyString& schema, WyString& table, uint8 tableType) = 0;
    virtual void PrepareForColumn(WyString& catalog, WyString& schema, WyString& table, WyString& column) = 0;
    virtual void PrepareForPrimaryKey(WyString& catalog, WyString& schema, WyString& table) = 0;
    virtual void PrepareForForeignKey(WyString& pkCatalog, WyString& pkSchema, WyString& pkTable,
                                      WyString& fkCatalog, WyString& fkSchema, WyString& fkTable) = 0;
    virtual void PrepareForStatistics(WyString&, WyString&, WyString&, IndexType, FrequencyAccuracy) = 0;
    virtual void PrepareForWSInputParametersUpdate(WyString&, WyString&, WyString&, WyString&, WyString&) = 0;
    virtual bool Get(MICatalog&) = 0;
    virtual bool Get(MISchema&) = 0;
    virtual bool Get(MITable&) = 0;
    virtual bool Get(MIColumn&) = 0;
    virtual bool Get(MIPrimaryKey&) = 0;
    virtual bool Get(MIForeignKey&) = 0;
    virtual bool Get(MIStatistics&) = 0;
    /// Fills the features table and reports the target type (59 for kZelV2).
    virtual bool GetFeatures(SUFeaturesTable&, TargetType&) = 0;
    virtual bool Get(MISynonym&) = 0;
    virtual void PrepareForAllSynonyms() = 0;
    virtual void PrepareForUserInfo() = 0;
    virtual void PrepareForRoleInfo() = 0;
    virtual void PrepareForTablePrivileges(const WyString&, const WyString&, const WyString&) = 0;
    virtual void PrepareForColumnPrivileges(const WyString&, const WyString&, const WyString&,
                                            const WyString&) = 0;
    virtual void PrepareForExecutionTimes(WyString) = 0;
    virtual bool Get(MIUserInfo&) = 0;
    virtual bool Get(MIRoleInfo&) = 0;
    virtual bool Get(MITablePrivileges&) = 0;
    virtual bool Get(MIColumnPrivileges&) = 0;
    virtual bool Get(MIExecutionTimes&) = 0;
    /// True for a packaged application's source.
    virtual bool GetIsTavrinMetadata() = 0;
    virtual WyString GetAppID() = 0;
    virtual WyString GetServiceBean() = 0;
    virtual WyString GetJavahostServiceName() = 0;
    virtual WyString GetHost() = 0;
    virtual WyString GetPort() = 0;
    virtual WyStringPairVector GetConfigParams() = 0;
    virtual void SetConnectParameters(const WyString&, const WyString&, const WyString&, const WyString&,
                                      const WyString&, CLIType) = 0;
    virtual void SetTavrinEAI() = 0;
    /// True for a packaged application's EAI source, whose columns carry pick lists.
    virtual bool GetTavrinEAI() { return false; }
    /// Completes the column's pick list for the list that `picklistName` names.
    virtual void GetPickList(MIColumn&) {}
    virtual void PrepareForViewLink() = 0;
    virtual void PrepareForAMProperties() = 0;
    virtual bool Get(MIViewLink&) = 0;
    virtual bool Get(MIAMProperty&) = 0;
    virtual void SetConnectParameters(CLIType, WyStringPairVector&) = 0;
    virtual void GetTargetDBType(TargetType&) = 0;
};

/// Supplies the operations that the generator never calls, so that a source implements only the
/// catalog operations it serves: preparations select nothing and their Gets answer false.
class MIMetaDataImportBase : public MIMetaDataImport {
public:
    void SetTargetType(TargetType) override {}
    void GetDefaultCatalog(WyString& catalog) override { catalog.clear(); }
    void PrepareForStatistics(WyString&, WyString&, WyString&, IndexType, FrequencyAccuracy) override {}
    void PrepareForWSInputParametersUpdate(WyString&, WyString&, WyString&, WyString&, WyString&) override {}
    bool Get(MIStatistics&) override { return false; }
    bool Get(MISynonym&) override { return false; }
    void PrepareForAllSynonyms() override {}
    void PrepareForUserInfo() override {}
    void PrepareForRoleInfo() override {}
    void PrepareForTablePrivileges(const WyString&, const WyString&, const WyString&) override {}
    void PrepareForColumnPrivileges(const WyString&, const WyString&, const WyString&,
                                    const WyString&) override {}
    void PrepareForExecutionTimes(WyString) override {}
    bool Get(MIUserInfo&) override { return false; }
    bool Get(MIRoleInfo&) override { return false; }
    bool Get(MITablePrivileges&) override { return false; }
    bool Get(MIColumnPrivileges&) override { return false; }
    bool Get(MIExecutionTimes&) override { return false; }
    WyString GetAppID() override { return WyString(); }
    WyString GetServiceBean() override { return WyString(); }
    WyString GetJavahostServiceName() override { return WyString(); }
    WyString GetHost() override { return WyString(); }
    WyString GetPort() override { return WyString(); }
    WyStringPairVector GetConfigParams() override { return WyStringPairVector(); }
    void SetConnectParameters(const WyString&, const WyString&, const WyString&, const WyString&,
                              const WyString&, CLIType) override {}
    void SetTavrinEAI() override {}
    void PrepareForAMProperties() override {}
    bool Get(MIAMProperty&) override { return false; }
    void SetConnectParameters(CLIType, WyStringPairVector&) override {}
    void GetTargetDBType(TargetType& type) override { type = kTargetDefault; }
};
