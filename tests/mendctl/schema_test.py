#!/usr/bin/python3
"""Holds what mendctl --json prints in the transcripts against docs/mendctl.schema.json, each by its command."""

import json
import pathlib
import sys

import jsonschema

root = pathlib.Path(sys.argv[1])
schema = json.loads((root / "docs/mendctl.schema.json").read_text())
files = sorted((root / "tests/mendctl").glob("**/*.json"))
checked = set()
for file in files:
    # "show-2" is the command "show N"; "plan-to-check-point" is "plan" with an option.
    # A call log is what "log" prints.
    stem = file.stem.removeprefix("call_")
    command = max((name for name in schema["$defs"] if stem.startswith(name.replace(" N", ""))), key=len)
    if command.startswith("show"):
        command = "show N" if file.stem[-1].isdigit() else "show"
    jsonschema.validate(json.loads(file.read_text()), {**schema, "$ref": "#/$defs/" + command})
    checked.add(command)
    broken = {**json.loads(file.read_text()), "unknown field": 1}
    assert not jsonschema.Draft7Validator({**schema, "$ref": "#/$defs/" + command}).is_valid(broken), "the schema takes anything"
missing = {"status", "show", "show N", "plan", "verify", "diff", "uninstall-log", "prune", "log"} - checked
assert not missing, f"no transcript of {missing}"
print(f"{len(files)} files fit the schema")
