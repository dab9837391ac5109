#!/usr/bin/env bash
# The manual pages and the bash completion against the programs they describe:
#   - every page renders without a warning from man or groff;
#   - every option that a program's --help (or usage) names is in its page;
#   - for vessa-storage, every subcommand's options are offered by the completion, and the completion
#     offers the same list columns as the page's COLUMNS section.
#
#   docs_test.sh MANDIR COMPLETION BINDIR...   (BINDIR: where the programs are)
set -uo pipefail
mandir=$1 completion=$2
shift 2
failures=0
fail() {
    echo "FAIL: $*" >&2
    failures=$((failures + 1))
}

program() {
    local dir
    for dir in "$@"; do
        [ -x "$dir/$name" ] && echo "$dir/$name" && return
    done
}

# The options of a help text: the first column of CLI11's option lines, or the words of a usage line.
options_of() {
    awk '/^usage:/ { print; next } /^  -/ { sub(/^  /, ""); sub(/  .*/, ""); print }' |
        grep -oE -- '(^|[ [,])--?[a-z][-a-z]*' | sed 's/^[ [,]//' | sort -u
}

rendered() {
    MANWIDTH=200 man -l "$mandir/$1.1" 2>/dev/null
}

bindirs=("$@")
for name in vessa-storage pelo korvo vessa.shed.env; do
    page=$mandir/$name.1
    warnings=$(LC_ALL=C.UTF-8 MANWIDTH=80 man --warnings -E UTF-8 -l -Tutf8 -Z "$page" 2>&1 >/dev/null)
    warnings+=$(groff -man -ww -z "$page" 2>&1)
    [ -z "$warnings" ] || fail "$name(1) renders with warnings: $warnings"

    binary=$(program "${bindirs[@]}")
    [ -n "$binary" ] || { fail "$name not found in ${bindirs[*]}"; continue; }
    text=$(rendered "$name")
    helps=("")
    [ "$name" = vessa-storage ] && helps+=(list report capture check guard)
    for sub in "${helps[@]}"; do
        # vessa.shed.env has no --help: an unknown argument prints its usage.
        for option in $("$binary" $sub --help 2>&1 | options_of); do
            grep -qE -- "(^|[^-a-z])$option([^-a-z]|$)" <<<"$text" || fail "$name(1) lacks $option (from $name $sub --help)"
        done
    done
done

# The completion, asked as bash asks it.
complete_words() {
    bash -c 'source "$1"; shift; COMP_WORDS=("$@"); COMP_CWORD=$(($# - 1)); _vessa_storage
             printf "%s\n" "${COMPREPLY[@]}"' _ "$completion" "$@"
}
binary=$(name=vessa-storage program "${bindirs[@]}")
offered=$(complete_words vessa-storage '')
for sub in list report capture check guard; do
    grep -qx "$sub" <<<"$offered" || fail "completion does not offer the subcommand $sub"
    offered_options=$(complete_words vessa-storage "$sub" -)
    for option in $("$binary" "$sub" --help 2>&1 | options_of); do
        grep -qx -- "$option" <<<"$offered_options" || fail "completion of $sub does not offer $option"
    done
done
page_columns=$(rendered vessa-storage | sed -n '/^COLUMNS/,/^[A-Z]/p' | awk '/^       [A-Z][-A-Z]+ / { print $1 }' | sort)
completed_columns=$(complete_words vessa-storage list -o '' | sort)
[ -n "$page_columns" ] && [ "$page_columns" = "$completed_columns" ] ||
    fail "columns of vessa-storage(1) and of the completion differ: $(diff <(echo "$page_columns") <(echo "$completed_columns") | grep '^[<>]' | tr '\n' ' ')"
[ "$(complete_words vessa-storage list -o NAME,SI)" = "NAME,SIZE" ] || fail "completion does not continue a column list"

((failures == 0)) || exit 1
echo "manual pages and completion: ok"
