#!/usr/bin/env python3
"""Checks snapshot files against docs/snapshot.schema.json; names each file that does not match and
where. Usage: check-snapshot.py FILE..."""
import json
import pathlib
import sys

import jsonschema

schema_path = pathlib.Path(__file__).resolve().parent.parent / "docs" / "snapshot.schema.json"
validator = jsonschema.Draft202012Validator(json.loads(schema_path.read_text(encoding="utf-8")))
failed = 0
for name in sys.argv[1:]:
    with open(name, encoding="utf-8-sig") as file:
        document = json.load(file)
    for error in sorted(validator.iter_errors(document), key=lambda e: list(e.absolute_path)):
        path = "".join(f"[{p}]" if isinstance(p, int) else f".{p}" for p in error.absolute_path)
        print(f"{name}: {path.lstrip('.') or '(top)'}: {error.message}", file=sys.stderr)
        failed = 1
sys.exit(failed)
