#!/usr/bin/env python3
"""validate_summary.py SCHEMA FILE: fails unless FILE is exactly one JSON value that the schema allows."""

import json
import sys

import jsonschema

with open(sys.argv[1], encoding="utf-8") as file:
    schema = json.load(file)
jsonschema.Draft202012Validator.check_schema(schema)
with open(sys.argv[2], encoding="utf-8") as file:
    summary = json.load(file)
errors = list(jsonschema.Draft202012Validator(schema).iter_errors(summary))
for error in errors:
    print(f"{sys.argv[2]}: {error.json_path}: {error.message}")
sys.exit(1 if errors else 0)
