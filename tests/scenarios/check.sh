#!/usr/bin/env bash
# Checks one scenario: `vessa-storage list --json` of its snapshot equals expected.json byte for byte,
# the table and the tree equal expected.table and expected.tree (VESSA_UPDATE_GOLDEN=1 rewrites these
# two); its XML report equals expected.xml (when the scenario has one), is well-formed, and its rows
# are valid against the schema the report carries.
set -euo pipefail
program=$1
dir=$2
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

# The table and the tree as a UTF-8 terminal's user would redirect them to a file.
for form in table tree; do
    args=(list --sysroot "$dir/root")
    [ "$form" = tree ] && args+=(--tree)
    env -u TERM LC_ALL=C.UTF-8 "$program" "${args[@]}" > "$work/list.$form" 2> /dev/null
    if [ "${VESSA_UPDATE_GOLDEN:-}" = 1 ]; then
        cp "$work/list.$form" "$dir/expected.$form"
    elif ! diff -u "$dir/expected.$form" "$work/list.$form"; then
        echo "list ($form) differs from expected.$form" >&2
        exit 1
    fi
done

"$program" list --json --sysroot "$dir/root" > "$work/list.json"
if ! diff -u "$dir/expected.json" "$work/list.json"; then
    echo "list --json differs from expected.json" >&2
    exit 1
fi

"$program" report --sysroot "$dir/root" --output "$work/report.xml" 2> /dev/null
if [ -f "$dir/expected.xml" ] && ! diff -u "$dir/expected.xml" "$work/report.xml"; then
    echo "report differs from expected.xml" >&2
    exit 1
fi
xmllint --noout "$work/report.xml"
# The schema sits inside the document; validate the rows against it on their own.
awk '/^  <xs:schema/{s=1} s{print} /^  <\/xs:schema>/{s=0}' "$work/report.xml" > "$work/schema.xsd"
awk '/^  <xs:schema/{s=1} !s{print} /^  <\/xs:schema>/{s=0}' "$work/report.xml" > "$work/rows.xml"
xmllint --noout --schema "$work/schema.xsd" "$work/rows.xml" 2> "$work/xmllint.log" || {
    cat "$work/xmllint.log" >&2
    exit 1
}
echo "scenario $(basename "$dir"): ok"
