#!/usr/bin/env python3
"""Writes a synthetic snapshot file: one catalog, TABLES tables spread evenly over SCHEMAS schemas,
ten columns a table of everyday types (remarks on every fourth), a one-column primary key, and a
foreign key from each table to the one before it in its schema. Records are written one by one,
so the generator itself stays small at any size.

    make-snapshot.py TABLES SCHEMAS OUT.json
"""
import json
import sys

TYPES = [("WyInt4Data", "int4", 10, 4), ("WyVarCharData", "varchar", 80, 80), ("WyDateData", "date", 10, 6),
         ("WyDecimalData", "numeric", 12, 14), ("WyNumericData", "int8", 19, 8), ("WyBitData", "bool", 1, 1)]


def main():
    tables, schemas, out_path = int(sys.argv[1]), int(sys.argv[2]), sys.argv[3]
    per_schema = (tables + schemas - 1) // schemas
    names = [(f"sales_{s:04d}", f"invoice_line_{t:06d}") for t in range(tables) for s in [t // per_schema]]
    dump = json.dumps
    with open(out_path, "w", encoding="utf-8") as out:
        out.write('{"format": "udml-snapshot-1",\n"source": {"callInterface": 3, "targetType": 0},\n')
        out.write('"catalogs": [{"catalog": "bench"}],\n"schemas": [')
        out.write(",\n".join(dump({"catalog": "bench", "schema": f"sales_{s:04d}"}) for s in range(schemas)))
        out.write('],\n"tables": [')
        out.write(",\n".join(dump({"catalog": "bench", "schema": s, "table": t, "tableType": "TABLE",
                                   "remarks": f"table {t}"}) for s, t in names))
        out.write('],\n"columns": [')
        first = True
        for s, t in names:
            for c in range(10):
                data_type, type_name, precision, length = TYPES[c % len(TYPES)]
                record = {"catalog": "bench", "schema": s, "table": t, "columnName": f"col_{c:02d}_id" if c == 0 else f"col_{c:02d}",
                          "dataType": data_type, "typeName": type_name, "precision": precision, "length": length,
                          "radix": 10, "nullable": 0 if c == 0 else 1, "remarks": f"column {c}" if c % 4 == 0 else ""}
                out.write(("" if first else ",\n") + dump(record))
                first = False
        out.write('],\n"primaryKeys": [')
        out.write(",\n".join(dump({"catalog": "bench", "schema": s, "table": t, "columnName": "col_00_id",
                                   "keySequence": 1, "primaryKeyName": f"pk_{t}"}) for s, t in names))
        out.write('],\n"foreignKeys": [')
        out.write(",\n".join(dump({"pkCatalog": "bench", "pkSchema": s, "pkTable": names[i - 1][1],
                                   "pkColumnName": "col_00_id", "fkCatalog": "bench", "fkSchema": s, "fkTable": t,
                                   "fkColumnName": "col_01", "keySequence": 1, "foreignKeyName": f"fk_{t}",
                                   "primaryKeyName": f"pk_{names[i - 1][1]}"})
                             for i, (s, t) in enumerate(names) if i > 0 and names[i - 1][0] == s))
        out.write('],\n"pickLists": {},\n"viewLinks": []}\n')


if __name__ == "__main__":
    main()
