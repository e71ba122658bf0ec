// The texts of `udmlgen --help` around the option list.
#pragma once

namespace udmlgen {

inline const char kDescription[] =
    "Writes the UDML that declares a data source's catalog metadata in the repository's physical layer.";

inline const char kHelpFooter[] = R"(
Depth levels (--depth N writes the levels up to N; -1, the default, writes all; 0 writes nothing):
  the request itself is level 1, and each step down adds one. A database request writes catalogs
  at level 2, schemas at 3, table statements at 4 and their columns and keys at 5; a schema
  request writes schemas at 1, tables at 2, columns at 3; a table request the table at 1 and its
  columns at 2. A table cut off by the limit is written with NO INTERSECTION instead of columns.
    udmlgen --snapshot sales.json --depth 4     # every table, without columns or keys

Table types (--table-types N: a sum of bits, decimal or 0x-hexadecimal, 0 to 255):
  1 (0x01) tables, views and every type not named below   2 (0x02) system tables and views
  4 (0x04) synonyms and aliases                            8 (0x08) temporary tables
  0 selects every type; the default is 1.
    udmlgen --snapshot sales.json --table-types 5   # tables, views, synonyms and aliases

Examples:
  Describe a whole database reached through an ODBC data source name:
    UDMLGEN_PASSWORD=secret udmlgen --connect SalesDSN --user admin --database Sales > sales.udml
  Use a connection string, and only one schema, without foreign keys:
    udmlgen --connect "Driver=/usr/lib/x86_64-linux-gnu/odbc/libsqlite3odbc.so;Database=sales.db" \
            --database Sales --request schema --schema main --generate "schema,table,table-key"
  Capture a source once, then generate from the snapshot offline:
    udmlgen snapshot --connect SalesDSN -o sales.json
    udmlgen --snapshot sales.json --database Sales -o sales.udml
  Skip what the repository already holds, and add view-link joins of an application source:
    udmlgen --snapshot app.json --database AppDB --existing repo.udml --view-links
  After the source changed: report what differs from the repository, then add only what is new:
    udmlgen diff --snapshot sales.json --database Sales --existing sales.udml
    udmlgen --snapshot sales.json --database Sales --only-new --existing sales.udml -o new.udml
  List the ODBC data sources and drivers this machine knows:
    udmlgen sources

At the end a summary line on standard error counts what was written (not with -q).
Exit status: 0 success, 1 generation or connection failure, 2 usage error, 130/143 interrupted;
udmlgen diff: 0 no differences, 3 differences found (the report on standard output or -o).
The password is read from the environment variable UDMLGEN_PASSWORD, never from the command line;
at a terminal udmlgen asks for it when the source refuses a login without one.
)";

} // namespace udmlgen
