#!/usr/bin/env python3
"""validate.py SCHEMA FILE: fails unless FILE is exactly one JSON value that the schema allows."""

import json
import sys

import jsonschema

with open(sys.argv[1], encoding="utf-8") as file:
    schema = json.load(file)
jsonschema.Draft202012Validator.check_schema(schema)
with open(sys.argv[2], encoding="utf-8") as file:
    report = json.load(file)
own = schema
if "command" in report:
    # The definition of the report's own command: its messages name the key that is wrong.
    name = report["command"]
    if name == "image" and report["verdict"] == "refused":
        name = "imageRefused"
    own = {"$defs": schema["$defs"], "$ref": f"#/$defs/{name}"}
errors = list(jsonschema.Draft202012Validator(own).iter_errors(report))
for error in errors:
    print(f"{sys.argv[2]}: {error.json_path}: {error.message}")
jsonschema.Draft202012Validator(schema).validate(report)
sys.exit(1 if errors else 0)
