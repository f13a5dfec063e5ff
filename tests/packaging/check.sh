#!/bin/sh
# The manual pages and the completions, by the tools that read them, as far as they are there.
# usage: check.sh PACKAGING_FOLDER
set -eu
cd "$1"
if command -v mandoc >/dev/null; then
    mandoc -T lint man/*
fi
offered() { # offered SHELL OFFER SCRIPT
    "$1" -c "$3" | grep -qx -- "$2" || { echo "$1 does not offer $2: $3"; exit 1; }
}
if command -v bash >/dev/null; then
    try='. completions/loginhelperctl.bash; COMP_CWORD=$((${#COMP_WORDS[@]} - 1)); _loginhelperctl
        printf "%s\n" "${COMPREPLY[@]}"'
    offered bash doctor "COMP_WORDS=(loginhelperctl do); $try"
    offered bash --bundle "COMP_WORDS=(loginhelperctl --b); $try"
    for words in '--bundle /us' '--bundle = /us' 'enable /us'; do
        offered bash /usr "COMP_WORDS=(loginhelperctl $words); $try"
    done
    offered bash completions "COMP_WORDS=(loginhelperctl --bundle =); $try"
fi
if command -v fish >/dev/null; then
    try='source completions/loginhelperctl.fish; complete -C'
    offered fish doctor "$try 'loginhelperctl do' | string split -f1 \\t"
    offered fish --bundle "$try 'loginhelperctl --bu' | string split -f1 \\t"
    offered fish --bundle=/usr/ "$try 'loginhelperctl --bundle=/us' | string split -f1 \\t"
    offered fish /usr/ "$try 'loginhelperctl enable /us' | string split -f1 \\t"
fi
