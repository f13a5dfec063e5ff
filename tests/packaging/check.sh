#!/bin/sh
# The manual pages and the completions, by the tools that read them, as far as they are there.
# usage: check.sh PAGES_FOLDER CONTROL_PROGRAM
set -eu
cd "$1"
ctl=$2
if command -v mandoc >/dev/null; then
    mandoc -T lint man/*
fi
offered() { # offered SHELL OFFER SCRIPT
    "$1" -c "$3" | grep -qx -- "$2" || { echo "$1 does not offer $2: $3"; exit 1; }
}
if command -v bash >/dev/null; then
    try=". completions/$ctl.bash; COMP_CWORD=\$((\${#COMP_WORDS[@]} - 1)); _$ctl
        printf '%s\n' \"\${COMPREPLY[@]}\""
    offered bash doctor "COMP_WORDS=($ctl do); $try"
    offered bash --bundle "COMP_WORDS=($ctl --b); $try"
    for words in '--bundle /us' '--bundle = /us' 'enable /us'; do
        offered bash /usr "COMP_WORDS=($ctl $words); $try"
    done
    offered bash completions "COMP_WORDS=($ctl --bundle =); $try"
fi
if command -v fish >/dev/null; then
    try="source completions/$ctl.fish; complete -C"
    offered fish doctor "$try '$ctl do' | string split -f1 \\t"
    offered fish --bundle "$try '$ctl --bu' | string split -f1 \\t"
    offered fish --bundle=/usr/ "$try '$ctl --bundle=/us' | string split -f1 \\t"
    offered fish /usr/ "$try '$ctl enable /us' | string split -f1 \\t"
fi
