"""Checks messages, a line each with the schema's name before it, against the schemas of a folder."""

import json
import pathlib
import sys

import jsonschema

folder = pathlib.Path(sys.argv[1])
schemas = {}
for path in folder.glob("*.schema.json"):
    schema = json.loads(path.read_text(encoding="utf-8"))
    jsonschema.Draft202012Validator.check_schema(schema)
    schemas[path.name.removesuffix(".schema.json")] = jsonschema.Draft202012Validator(schema)
count = 0
wrong = 0
for line in pathlib.Path(sys.argv[2]).read_text(encoding="utf-8").splitlines():
    name, text = line.split(" ", 1)
    for error in schemas[name].iter_errors(json.loads(text)):
        print(f"{name}: {error.message}: {text}")
        wrong += 1
    count += 1
if count == 0:
    print("there are no messages")
sys.exit(0 if count > 0 and wrong == 0 else 1)
