"""Prints what is wrong with documents in the eyes of their schema; fails if anything is.
Usage: schema_faults.py NAME FILE   (NAME as in Schemas/NAME.schema.json, FILE an array of them)"""
import json
import pathlib
import sys

import jsonschema

directory = pathlib.Path(__file__).parent.parent / "Schemas"
schemas = {path.name: json.loads(path.read_text()) for path in directory.glob("*.schema.json")}
schema = schemas[sys.argv[1] + ".schema.json"]
try:  # from jsonschema 4.18 on
    from referencing import Registry, Resource
    resources = [(name, Resource.from_contents(text)) for name, text in schemas.items()]
    others = {"registry": Registry().with_resources(resources)}
except ImportError:
    others = {"resolver": jsonschema.RefResolver(schema["$id"], schema, store=schemas)}
jsonschema.Draft202012Validator.check_schema(schema)
validator = jsonschema.Draft202012Validator(schema, **others)
documents = json.loads(pathlib.Path(sys.argv[2]).read_text())
faults = [fault for document in documents for fault in validator.iter_errors(document)]
for fault in faults:
    print(fault, file=sys.stderr)
sys.exit(bool(faults))
