#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Holds each line of a file against a JSON Schema; the last line alone must be the end.

    validate_events.py SCHEMA FILE
"""
import json
import sys

import jsonschema


def main():
    with open(sys.argv[1], encoding="ascii") as file:
        schema = json.load(file)
    jsonschema.Draft7Validator.check_schema(schema)
    validator = jsonschema.Draft7Validator(schema)
    with open(sys.argv[2], encoding="ascii") as file:
        events = [json.loads(line) for line in file]
    mistakes = [f"{event}: {error.message}" for event in events
                for error in validator.iter_errors(event)]
    if [number for number, event in enumerate(events) if event.get("event") == "end"] != [
            len(events) - 1]:
        mistakes.append("the end is not the last event, or not the only one of its kind")
    print("\n".join(mistakes))
    return 1 if mistakes else 0


if __name__ == "__main__":
    sys.exit(main())
