#!/usr/bin/env python3
"""Validates `vessa-storage list --json` of every scenario, and of the run's partial and filtered forms,
against the JSON Schema the package installs. Run: schema.py PROGRAM SCHEMA SCENARIOS_DIR"""
import json
import subprocess
import sys
from pathlib import Path

import jsonschema


def main():
    program, schema_file, scenarios = sys.argv[1], sys.argv[2], Path(sys.argv[3])
    schema = json.loads(Path(schema_file).read_text())
    jsonschema.Draft202012Validator.check_schema(schema)
    validator = jsonschema.Draft202012Validator(schema)
    failed = 0
    roots = sorted(p for p in scenarios.glob("*/root") if p.is_dir())
    assert roots, "no scenarios under %s" % scenarios
    for root in roots:
        for extra in ([], ["--candidates"], ["--type", "fs"]):
            run = subprocess.run([program, "list", "--json", "--sysroot", str(root)] + extra,
                                 capture_output=True, text=True)
            if run.returncode not in (0, 3):
                print("%s %s: exit %d: %s" % (root.parent.name, extra, run.returncode, run.stderr), file=sys.stderr)
                failed += 1
                continue
            errors = sorted(validator.iter_errors(json.loads(run.stdout)), key=lambda e: list(e.path))
            for e in errors[:5]:
                print("%s %s: %s at %s" % (root.parent.name, extra, e.message, list(e.path)), file=sys.stderr)
            failed += bool(errors)
    print("%d scenarios checked, %d documents invalid" % (len(roots), failed))
    return 1 if failed else 0


if __name__ == "__main__":
    sys.exit(main())
