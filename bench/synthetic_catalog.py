#!/usr/bin/env python3
"""Prints the DDL of a synthetic catalog for bench/compare.sh.

Usage: synthetic_catalog.py DIALECT TABLES SCHEMAS
  DIALECT  postgres, mariadb or sqlite
  TABLES   number of tables
  SCHEMAS  schemas to spread them over (PostgreSQL only; MariaDB and SQLite put every table in
           the one database they are run against)

Each table has about ten columns of everyday types, a primary key (every fourth one over two
columns), a foreign key to an earlier table (but the first), a comment on the table and on two
columns (not on SQLite, which keeps none). The names are those of bench/GeneratorBench.cpp.
"""
import sys

NOUNS = ["customer", "order", "invoice", "product", "shipment", "employee", "account", "payment",
         "ticket", "campaign", "supplier", "warehouse"]
QUALS = ["history", "detail", "line", "summary", "archive", "staging"]
SCHEMAS = ["sales", "inventory", "finance", "hr", "crm", "logistics", "billing", "support",
           "marketing", "analytics"]

TYPES = {
    "postgres": dict(text="text", double="double precision", boolean="boolean",
                     timestamp="timestamp", default_now="DEFAULT now()"),
    "mariadb": dict(text="text", double="double", boolean="boolean", timestamp="datetime",
                    default_now="DEFAULT CURRENT_TIMESTAMP"),
    "sqlite": dict(text="text", double="double", boolean="boolean", timestamp="timestamp",
                   default_now="DEFAULT CURRENT_TIMESTAMP"),
}


def table_name(i):
    return "%s_%s_%05d" % (NOUNS[i % 12], QUALS[(i // 7) % 6], i)


def quote(dialect, name):
    return "`%s`" % name if dialect == "mariadb" else '"%s"' % name


def main():
    if len(sys.argv) != 4 or sys.argv[1] not in TYPES:
        sys.exit(__doc__)
    dialect, tables, schemas = sys.argv[1], int(sys.argv[2]), int(sys.argv[3])
    if dialect != "postgres":
        schemas = 1
    t = TYPES[dialect]
    out = sys.stdout
    out.write("BEGIN;\n" if dialect != "mariadb" else "SET foreign_key_checks = 0;\n")
    names = [SCHEMAS[s % len(SCHEMAS)] + ("" if s < len(SCHEMAS) else str(s)) for s in range(schemas)]
    if dialect == "postgres":
        for name in names:
            out.write("CREATE SCHEMA %s;\n" % name)

    def qualified(i):
        table = quote(dialect, table_name(i))
        return "%s.%s" % (names[i % schemas], table) if dialect == "postgres" else table

    for i in range(tables):
        composite = i % 4 == 3
        columns = ["id integer NOT NULL"]
        if composite:
            columns.append("line_no integer NOT NULL")
        columns += ["ref_id integer", "ref_line integer", "name varchar(120) NOT NULL",
                    "amount numeric(12,2)",
                    "created_at %s NOT NULL %s" % (t["timestamp"], t["default_now"]),
                    "is_active %s" % t["boolean"], "notes %s" % t["text"], "valid_from date",
                    "ratio %s" % t["double"], "quantity smallint", "code char(3)"]
        columns.append("PRIMARY KEY (%s)" % ("id, line_no" if composite else "id"))
        if i > 0:
            j = (i * 7919) % i
            ref_composite = j % 4 == 3
            columns.append("CONSTRAINT %s FOREIGN KEY (%s) REFERENCES %s (%s)" % (
                quote(dialect, "fk_" + table_name(i)),
                "ref_id, ref_line" if ref_composite else "ref_id", qualified(j),
                "id, line_no" if ref_composite else "id"))
        remark = "Rows of %s, kept for the reporting area" % table_name(i)
        tail = " COMMENT '%s'" % remark if dialect == "mariadb" else ""
        out.write("CREATE TABLE %s (%s)%s;\n" % (qualified(i), ", ".join(columns), tail))
        if dialect == "postgres":
            out.write("COMMENT ON TABLE %s IS '%s';\n" % (qualified(i), remark))
            out.write("COMMENT ON COLUMN %s.name IS 'Display name as entered by the clerk';\n"
                      % qualified(i))
    out.write("COMMIT;\n" if dialect != "mariadb" else "SET foreign_key_checks = 1;\n")


if __name__ == "__main__":
    main()
