"""The description of the topics holds together: it has the form of AsyncAPI 3.0, everything that it refers to
is there, and the payloads' schemas are JSON Schemas.

Usage: asyncapi_test.py FILE
"""

import json
import re
import sys
from pathlib import Path

try:
    import jsonschema
    import yaml
except ImportError as error:
    print(f"Left out: {error.name} is missing; python3-yaml and python3-jsonschema have what this needs.")
    sys.exit(77)

# What https://www.asyncapi.com/docs/reference/specification/v3.0.0 asks of the parts that we use.
REFERENCE = {"type": "object", "required": ["$ref"], "properties": {"$ref": {"type": "string"}}}
FORM = {
    "type": "object",
    "required": ["asyncapi", "info", "channels", "operations"],
    "additionalProperties": False,
    "patternProperties": {"^x-": True},
    "properties": {
        "asyncapi": {"const": "3.0.0"},
        "id": {"type": "string"},
        "info": {
            "type": "object",
            "required": ["title", "version"],
            "properties": {"title": {"type": "string"}, "version": {"type": "string"}},
        },
        "defaultContentType": {"type": "string"},
        "servers": {
            "additionalProperties": {
                "type": "object",
                "required": ["host", "protocol"],
                "properties": {"host": {"type": "string"}, "protocol": {"enum": ["mqtt", "mqtts"]}},
            }
        },
        "channels": {
            "additionalProperties": {
                "type": "object",
                "required": ["address", "messages"],
                "additionalProperties": False,
                "properties": {
                    "address": {"type": ["string", "null"]},
                    "title": {"type": "string"},
                    "description": {"type": "string"},
                    "parameters": {
                        "additionalProperties": {
                            "type": "object",
                            "properties": {
                                "$ref": {"type": "string"},
                                "description": {"type": "string"},
                                "default": {"type": "string"},
                            },
                            "additionalProperties": False,
                        }
                    },
                    "messages": {"type": "object", "minProperties": 1, "additionalProperties": REFERENCE},
                    "bindings": {"type": "object"},
                },
            }
        },
        "operations": {
            "additionalProperties": {
                "type": "object",
                "required": ["action", "channel"],
                "additionalProperties": False,
                "properties": {
                    "action": {"enum": ["send", "receive"]},
                    "channel": REFERENCE,
                    "description": {"type": "string"},
                    "bindings": {
                        "type": "object",
                        "properties": {
                            "mqtt": {
                                "type": "object",
                                "additionalProperties": False,
                                "properties": {
                                    "qos": {"enum": [0, 1, 2]},
                                    "retain": {"type": "boolean"},
                                    "bindingVersion": {"const": "0.2.0"},
                                },
                            }
                        },
                    },
                    "reply": {
                        "type": "object",
                        "properties": {
                            "address": {"type": "object", "required": ["location"]},
                            "channel": REFERENCE,
                        },
                    },
                },
            }
        },
        "components": {"type": "object"},
    },
}


def references(value):
    if isinstance(value, dict):
        if isinstance(value.get("$ref"), str):
            yield value["$ref"]
        for one in value.values():
            yield from references(one)
    elif isinstance(value, list):
        for one in value:
            yield from references(one)


def resolved(document, reference):
    place = document
    for step in reference.removeprefix("#/").split("/"):
        place = place[step]
    return place


def main(path):
    document = yaml.safe_load(path.read_text())
    jsonschema.Draft202012Validator(FORM).validate(document)
    files = set()
    for reference in references(document):
        if reference.startswith("#/"):
            resolved(document, reference)
        else:
            files.add(path.parent / reference)
    for file in sorted(files):
        jsonschema.Draft202012Validator.check_schema(json.loads(file.read_text()))
    for name, channel in document["channels"].items():
        named = set(re.findall(r"\{(\w+)\}", channel["address"] or ""))
        declared = set(channel.get("parameters", {}))
        assert named == declared, f"{name}: {named} in the address, {declared} declared"
    told = {resolved(document, one["channel"]["$ref"])["address"] for one in document["operations"].values()}
    replies = [one["reply"]["channel"]["$ref"] for one in document["operations"].values() if "reply" in one]
    for name, channel in document["channels"].items():
        assert channel["address"] in told or f"#/channels/{name}" in replies, f"nobody uses {name}"
    # Every schema that lies there is somebody's payload.
    assert files == set(path.parent.glob("*.schema.json")), "schemas that no message has"
    print(f"{len(document['channels'])} channels, {len(files)} payloads")


main(Path(sys.argv[1]))
