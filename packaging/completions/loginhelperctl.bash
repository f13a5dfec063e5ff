# bash completion for loginhelperctl
_loginhelperctl() {
    local word=${COMP_WORDS[COMP_CWORD]} before=${COMP_WORDS[COMP_CWORD - 1]}
    # "--bundle=" comes as words of its own where "=" breaks words.
    if [[ $before == = ]]; then
        before=${COMP_WORDS[COMP_CWORD - 2]}
    elif [[ $word == = ]]; then
        word=
    fi
    case $before in
    enable | --bundle) mapfile -t COMPREPLY < <(compgen -d -- "$word") ;;
    --service | --timeout) COMPREPLY=() ;;
    *)
        local words="test identify enable disable query quit doctor forget"
        [[ $word == -* ]] && words="--bundle --service --timeout --json --help --version"
        mapfile -t COMPREPLY < <(compgen -W "$words" -- "$word")
        ;;
    esac
}
complete -o filenames -F _loginhelperctl loginhelperctl
