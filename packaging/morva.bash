# Completion of morva's command line for bash: verbs, the options of a verb as its help tells them,
# words that an option takes, else files.

_morva() {
    local word=${COMP_WORDS[COMP_CWORD]} before=${COMP_WORDS[COMP_CWORD - 1]} verb=${COMP_WORDS[1]} help
    COMPREPLY=()
    if [ "$COMP_CWORD" -eq 1 ]; then
        help=$("${COMP_WORDS[0]}" --help 2>/dev/null)
        # shellcheck disable=SC2207  # a list of words
        COMPREPLY=($(compgen -W "help $(sed -n '/^Subcommands:/,/^$/s/^  \([a-z]\+\).*/\1/p' <<<"$help")
            $(grep -oE -e '--[a-z-]+' <<<"$help" | sort -u)" -- "$word"))
        return
    fi
    [ "$verb" != help ] || verb=--help
    help=$("${COMP_WORDS[0]}" "$verb" --help 2>/dev/null)
    if [ "$verb" = --help ]; then
        # shellcheck disable=SC2207
        COMPREPLY=($(compgen -W "$(sed -n '/^Subcommands:/,/^$/s/^  \([a-z]\+\).*/\1/p' <<<"$help")" -- "$word"))
    elif [[ $word == -* ]]; then
        # shellcheck disable=SC2207
        COMPREPLY=($(compgen -W "$(grep -oE -e '^  (-[a-z],)?--[a-z-]+' <<<"$help" | grep -oE -e '--[a-z-]+')" -- "$word"))
    else
        local words
        words=$(sed -nE "s/^  (-[a-z],)?$before [^{]*\{([a-z,]+)\}.*/\2/p" <<<"$help")
        if [ -n "$words" ]; then
            # shellcheck disable=SC2207
            COMPREPLY=($(compgen -W "${words//,/ }" -- "$word"))
        else
            compopt -o default 2>/dev/null || true # files, as the shell knows them
        fi
    fi
}
complete -F _morva morva
