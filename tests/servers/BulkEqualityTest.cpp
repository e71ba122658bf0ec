// The ODBC source's whole-schema reads against live PostgreSQL (psqlODBC) and MariaDB (Connector/ODBC)
// servers started by scripts/db-servers.sh: for every table of schemas built to provoke differences
// (names that are patterns of one another, every common column type, keys of every kind) the
// records equal those of the driver's per-table catalog calls. The schemas exist only while the
// tests run, so that the whole-source golden texts never see them.
#include "platform/BaseStringUtil.h"
#include "tests/import/OdbcEquality.h"
#include "tests/servers/ServerSettings.h"
#include "tests/support/RunCommand.h"

#include <gtest/gtest.h>

#include <fstream>
#include <string>

namespace {

using odbc_equality::ExpectSameRecords;

using server_settings::Setting;

WyString Wide(const std::string& utf8) {
    return BaseStringUtil::StringFrom(utf8.c_str(), SystemUtility::GetMultiByteCodePage());
}

const char* const kPostgresSql = R"sql(
\set ON_ERROR_STOP on
SET client_min_messages = warning;
DROP SCHEMA IF EXISTS bulk_a CASCADE;
DROP SCHEMA IF EXISTS "bulk b" CASCADE;
CREATE SCHEMA bulk_a;
CREATE SCHEMA "bulk b";
SET search_path = bulk_a;
CREATE DOMAIN money_amount AS numeric(12, 2) NOT NULL;
CREATE TYPE mood AS ENUM ('sad', 'ok');
CREATE TYPE pair AS (l integer, r integer);
CREATE TABLE types (
  id serial PRIMARY KEY, big bigserial, ident integer GENERATED ALWAYS AS IDENTITY, si smallint NOT NULL,
  i integer DEFAULT 7, bi bigint, r real, d double precision, n numeric, n2 numeric(10, 3), vc varchar,
  vc2 varchar(20), ch char, ch2 char(7), t text, b boolean, by bytea, dt date, tm time, tm3 time(3),
  tz timetz, ts timestamp, ts0 timestamp(0), tstz timestamptz, iv interval, u uuid, j json, jb jsonb,
  x xml, ia integer[], ta text[], m mood, p pair, ma money_amount, cash money, ip inet, bits bit(4),
  vb varbit(9), oi oid, nm name, pt point, ss smallserial, g bigint GENERATED ALWAYS AS (si * 2) STORED,
  now_at timestamp DEFAULT now()
);
COMMENT ON COLUMN types.i IS 'commented';
ALTER TABLE types DROP COLUMN bi;
CREATE TABLE "x_y" (id integer PRIMARY KEY, a text);
CREATE TABLE xzy (id integer, b varchar(20) NOT NULL, CONSTRAINT xzy_key PRIMARY KEY (b, id));
CREATE TABLE "x%y" (id integer);
CREATE TABLE xy (c integer);
CREATE INDEX "xZy_" ON xy (c);
CREATE TABLE "a\b" (k integer PRIMARY KEY);
CREATE TABLE "Quote'd Größe" (k integer PRIMARY KEY, "Spalte ä" text);
CREATE TABLE nopk (k integer NOT NULL);
CREATE UNIQUE INDEX nopk_pkey ON nopk (k);
CREATE TABLE child (
  id integer PRIMARY KEY, k1 integer, k2 varchar(20), xy integer, q integer,
  CONSTRAINT child_xzy FOREIGN KEY (k2, k1) REFERENCES xzy (b, id) ON DELETE CASCADE ON UPDATE SET NULL,
  CONSTRAINT child_x_y FOREIGN KEY (xy) REFERENCES "x_y" (id) ON DELETE SET DEFAULT ON UPDATE RESTRICT,
  CONSTRAINT child_q FOREIGN KEY (q) REFERENCES "Quote'd Größe" (k),
  CONSTRAINT child_self FOREIGN KEY (q) REFERENCES child (id) DEFERRABLE
);
CREATE TABLE uniq_ref (u integer UNIQUE);
CREATE TABLE to_uniq (v integer REFERENCES uniq_ref (u));
CREATE VIEW x_view AS SELECT id, a || 'z' AS computed, 1::numeric(5, 1) AS one FROM "x_y";
CREATE MATERIALIZED VIEW mv AS SELECT id FROM "x_y";
CREATE TABLE parted (k integer, at date) PARTITION BY RANGE (at);
CREATE TABLE parted_2024 PARTITION OF parted FOR VALUES FROM ('2024-01-01') TO ('2025-01-01');
CREATE TABLE "bulk b".x_y (id integer PRIMARY KEY, other varchar(3));
CREATE TABLE "bulk b".refers (r integer REFERENCES bulk_a.xy_target (id));
)sql";

class BulkEqualityTest : public ::testing::Test {
public:
    static void Psql(const std::string& sql) { Run("UDML_PG_", sql); }
    static void Mariadb(const std::string& sql) { Run("UDML_MARIADB_", sql); }
    static void Run(const std::string& prefix, const std::string& sql) {
        const std::string path = ScratchPath("bulk-equality.sql");
        std::ofstream(path) << sql;
        try { // also from destructors, which must not throw
            server_settings::RunSqlFile(prefix, path);
        } catch (const std::exception& error) {
            ADD_FAILURE() << error.what();
        }
    }

    static void Open(OdbcImport& source, const std::string& connectKey, bool perTable) {
        source.SetPerTableReads(perTable);
        WyString connection = Wide(Setting(connectKey)), user = Wide(Setting("UDML_DB_USER")),
                 password = Wide(Setting("UDML_DB_PASSWORD"));
        source.OpenConnection(connection, user, password, false);
    }
};

// Creates the PostgreSQL schemas; they are dropped when the returned guard goes.
struct PostgresSchemas {
    PostgresSchemas() {
        std::string sql = kPostgresSql;
        // The cross-schema reference needs its target first.
        sql.replace(sql.find("CREATE TABLE \"bulk b\".refers"), 0,
                    "CREATE TABLE bulk_a.xy_target (id integer PRIMARY KEY);\n");
        BulkEqualityTest::Psql(sql);
    }
    ~PostgresSchemas() {
        BulkEqualityTest::Psql(
            "DROP SCHEMA IF EXISTS bulk_a CASCADE; DROP SCHEMA IF EXISTS \"bulk b\" CASCADE;");
    }
};

// Compares the records of both schemas, back and forth (each read replaces the one before), and
// gives the whole-schema reads it took.
size_t ComparePostgresSchemas() {
    OdbcImport fast, plain;
    BulkEqualityTest::Open(fast, "UDML_PG_CONNECT", false);
    BulkEqualityTest::Open(plain, "UDML_PG_CONNECT", true);
    const WyString catalog = Wide(Setting("UDML_PG_DATABASE"));
    EXPECT_EQ(ExpectSameRecords(fast, plain, catalog, L"bulk_a"), 16u);
    EXPECT_EQ(ExpectSameRecords(fast, plain, catalog, L"bulk b"), 2u);
    EXPECT_EQ(ExpectSameRecords(fast, plain, catalog, L"bulk_a"), 16u);
    EXPECT_EQ(plain.WholeSchemaReads(), 0u);
    return fast.WholeSchemaReads();
}

TEST_F(BulkEqualityTest, PostgresSchemasMatchThePerTableCalls) {
    PostgresSchemas schemas;
    EXPECT_EQ(ComparePostgresSchemas(), 9u); // columns, primary and foreign keys of each visit
}

// The keys are read on a second connection while the first reads the columns; a database that
// admits no further connection gets the same records, read on the first.
TEST_F(BulkEqualityTest, PostgresWithoutASecondConnectionMatchesThePerTableCalls) {
    PostgresSchemas schemas;
    const std::string database = "\"" + Setting("UDML_PG_DATABASE") + "\"";
    Psql("ALTER DATABASE " + database + " CONNECTION LIMIT 2;");
    struct Unlimit {
        std::string database;
        ~Unlimit() { Psql("ALTER DATABASE " + database + " CONNECTION LIMIT -1;"); }
    } unlimit{database};
    EXPECT_EQ(ComparePostgresSchemas(), 9u);
}

TEST_F(BulkEqualityTest, MariadbDatabaseMatchesThePerTableCalls) {
    Mariadb(R"sql(
DROP DATABASE IF EXISTS udml_bulk;
DROP DATABASE IF EXISTS udml_bulk_other;
CREATE DATABASE udml_bulk_other;
CREATE TABLE udml_bulk_other.target (k int PRIMARY KEY);
CREATE DATABASE udml_bulk CHARACTER SET utf8mb4;
USE udml_bulk;
CREATE TABLE types (
  id int AUTO_INCREMENT PRIMARY KEY, ti tinyint, tu tinyint unsigned, si smallint NOT NULL, mi mediumint,
  i int DEFAULT 7 COMMENT 'commented', iu int unsigned, bi bigint, bu bigint unsigned, f float, d double,
  dc decimal(10, 3), n numeric, b bit(1), b9 bit(9), bo boolean, c char(5), vc varchar(40), t text,
  tt tinytext, mt mediumtext, lt longtext, bn binary(4), vb varbinary(8), bl blob, lb longblob, dt date,
  tm time, tm3 time(3), dtm datetime, ts timestamp NULL, y year, e enum('a', 'b'), st set('x', 'y'), j json
);
CREATE TABLE `x_y` (id int PRIMARY KEY, a text);
CREATE TABLE xzy (id int, b varchar(20) NOT NULL, PRIMARY KEY (b, id));
CREATE TABLE `x%y` (id int);
CREATE TABLE `Größe` (k int PRIMARY KEY, `Spalte ä` text);
CREATE TABLE child (
  id int PRIMARY KEY, k1 int, k2 varchar(20), xy int,
  CONSTRAINT child_xzy FOREIGN KEY (k2, k1) REFERENCES xzy (b, id) ON DELETE CASCADE ON UPDATE SET NULL,
  CONSTRAINT child_x_y FOREIGN KEY (xy) REFERENCES `x_y` (id)
);
CREATE VIEW x_view AS SELECT id, concat(a, 'z') AS computed FROM `x_y`;
CREATE TABLE uniq (u int UNIQUE, p int PRIMARY KEY);
CREATE TABLE refs (
  id int PRIMARY KEY, a int, b int, c int, u int, o int, self int, k1 int, k2 varchar(20),
  CONSTRAINT refs_z FOREIGN KEY (c) REFERENCES `x_y` (id), CONSTRAINT refs_b FOREIGN KEY (b) REFERENCES `x_y` (id),
  CONSTRAINT refs_a FOREIGN KEY (a) REFERENCES `x_y` (id), CONSTRAINT refs_u FOREIGN KEY (u) REFERENCES uniq (u),
  CONSTRAINT refs_o FOREIGN KEY (o) REFERENCES udml_bulk_other.target (k),
  CONSTRAINT refs_self FOREIGN KEY (self) REFERENCES refs (id) ON DELETE SET NULL,
  CONSTRAINT refs_k FOREIGN KEY (k2, k1) REFERENCES xzy (b, id), CONSTRAINT refs_j FOREIGN KEY (k2, a) REFERENCES xzy (b, id)
);
)sql");
    struct Cleanup {
        ~Cleanup() { Mariadb("DROP DATABASE IF EXISTS udml_bulk; DROP DATABASE IF EXISTS udml_bulk_other;"); }
    } cleanup;

    OdbcImport fast, plain;
    Open(fast, "UDML_MARIADB_CONNECT", false);
    Open(plain, "UDML_MARIADB_CONNECT", true);
    EXPECT_EQ(ExpectSameRecords(fast, plain, L"udml_bulk", L""), 9u);
    EXPECT_EQ(fast.WholeSchemaReads(), 3u); // columns, primary and foreign keys
}

} // namespace
