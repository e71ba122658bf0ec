// The import source over ODBC: reads catalogs, schemas, tables, columns and keys through the
// ODBC 3 catalog functions of unixODBC (wide entry points) and hands them over as records.
#pragma once

#include "import/MIMetaDataImport.h"

#include <cstddef>
#include <memory>

/// An import source over one ODBC connection. Each kind of listing (catalogs, schemas, tables,
/// columns, primary keys, foreign keys) has a statement of its own, so listings of different kinds
/// may be read side by side. With psqlODBC, a second connection to the same source (opened when
/// first needed, from a thread of its own) reads a schema's keys while the first reads its columns.
/// Every ODBC failure is thrown as ErrorMessage: first what was being done, in the user's words,
/// then one message "SQLSTATE [native] text" per diagnostic record.
class OdbcImport : public MIMetaDataImportBase {
public:
    OdbcImport();
    /// Closes the connection; never throws.
    ~OdbcImport() override;
    OdbcImport(const OdbcImport&) = delete;
    OdbcImport& operator=(const OdbcImport&) = delete;

    /// Whether every request for the columns or keys of one table goes to the driver's catalog
    /// function. Otherwise (the default, unless the environment sets UDMLGEN_ODBC_PER_TABLE=1)
    /// the source reads a whole schema at once on the second request for a table of it, from
    /// drivers whose answers it reproduces exactly, and answers the tables of that schema from
    /// memory. Takes effect at the next OpenConnection.
    void SetPerTableReads(bool perTable);
    /// How many whole-schema reads this source has made.
    size_t WholeSchemaReads() const;
    /// What the connected driver says of itself and of its DBMS, for a person reading a log:
    /// "driver NAME VERSION, DBMS NAME VERSION"; empty when not connected.
    WyString ProductNames() const;

    /// Connects, closing any earlier connection first. `source` containing "=" is a connection
    /// string (a non-empty user and password are appended as UID and PWD); otherwise it names a
    /// data source, reached with the user and password. The login times out after 15 seconds.
    void OpenConnection(WyString& source, WyString& user, WyString& password, bool) override;
    /// Ends the connection and drops every listing; never throws.
    void CloseConnection() override;

    /// Catalogs matching the pattern `catalog`, each once, in the driver's order.
    void PrepareForCatalog(WyString& catalog) override;
    /// Schemas matching the pattern `schema`, of catalog `catalog` where the driver names one.
    void PrepareForSchema(WyString& catalog, WyString& schema) override;
    /// Tables matching the patterns whose type the selector `tableType` selects.
    void PrepareForTable(WyString& catalog, WyString& schema, WyString& table, uint8 tableType) override;
    /// Columns matching the patterns, in the driver's order.
    void PrepareForColumn(WyString& catalog, WyString& schema, WyString& table, WyString& column) override;
    /// Primary-key columns of the named table; of every table of the catalog and schema when
    /// `table` is empty.
    void PrepareForPrimaryKey(WyString& catalog, WyString& schema, WyString& table) override;
    /// Foreign-key columns between the named tables (either may be empty); when both are empty,
    /// the foreign keys of every table of the foreign-key catalog and schema.
    void PrepareForForeignKey(WyString& pkCatalog, WyString& pkSchema, WyString& pkTable, WyString& fkCatalog,
                              WyString& fkSchema, WyString& fkTable) override;

    bool Get(MICatalog& record) override;
    bool Get(MISchema& record) override;
    bool Get(MITable& record) override;
    bool Get(MIColumn& record) override;
    bool Get(MIPrimaryKey& record) override;
    bool Get(MIForeignKey& record) override;
    using MIMetaDataImportBase::Get;

    /// Reports the target type 0 and no features.
    bool GetFeatures(SUFeaturesTable& features, TargetType& targetType) override;
    bool GetIsTavrinMetadata() override { return false; }
    bool GetTavrinEAI() override { return false; }
    /// ODBC sources have no view links: the listing is empty.
    void PrepareForViewLink() override {}
    bool Get(MIViewLink&) override { return false; }

private:
    struct State;
    std::unique_ptr<State> m_state;
};
