#!/usr/bin/env bash
# Installs a package, uses it as a stranger would, and removes it again: try_package.sh DEB MODEL.
# As root.
set -euo pipefail
DEB=$(realpath "$1") MODEL=$2
WORK=$(mktemp -d)

fail() {
    printf 'package: %s\n' "$*" >&2
    exit 1
}

installed() { [ "$(dpkg-query -W -f '${Status}' morva 2>/dev/null)" = "install ok installed" ]; }

clean_up() {
    rm -rf "$WORK"
    ! installed || dpkg --remove morva >/dev/null
}

try_command() {
    morva optimize "$MODEL" -o "$WORK/engine.glb" --report "$WORK/engine.json" \
        >/dev/null 2>&1
    morva info "$WORK/engine.glb" 2>/dev/null | grep -q '^draw calls  *42$' || fail "the engine is not in 42 cores"
}

# From the package: some systems keep no manual pages.
try_manual() {
    local warnings
    dpkg-deb --fsys-tarfile "$DEB" | tar -xO ./usr/share/man/man1/morva.1 >"$WORK/morva.1"
    warnings=$(man --warnings -l "$WORK/morva.1" 2>&1 >"$WORK/page.txt")
    [ -z "$warnings" ] || fail "the manual page: $warnings"
    grep -Eq 'morva +- rebuild' "$WORK/page.txt" || fail "the manual page shows no name"
}

# What bash offers behind the words given.
bash_offers() {
    bash -c '. /usr/share/bash-completion/completions/morva
        COMP_WORDS=("$@") COMP_CWORD=$(($# - 1)); _morva; echo "${COMPREPLY[*]}"' bash "$@"
}

# What a line comes to that is typed into zsh, completed with the tabulator and carried out.
zsh_completes() {
    zsh -f -c 'zmodload zsh/zpty
        zpty shell zsh -f -i
        zpty -w shell "PS1=; fpath+=/usr/share/zsh/vendor-completions; autoload -U compinit; compinit -D -u"
        zpty -w shell "bindkey \"^I\" complete-word; echo READY"
        zpty -r shell out "*READY*READY*"
        zpty -n -w shell "$1"$'"'\\t'"'
        sleep 2
        zpty -n -w shell $'"'\\n'"'
        sleep 1
        while zpty -r -t shell out; do print -rn -- "$out"; done
        zpty -d shell' zsh "$1"
}

try_completion() {
    [ "$(bash_offers morva simp)" = simplify ] || fail "bash does not complete a verb"
    [ "$(bash_offers morva divide --stra)" = --straddle ] || fail "bash does not complete an option"
    [ "$(bash_offers morva divide --straddle c)" = "centre cut" ] || fail "bash offers no words"
    zsh_completes 'morva simp' | grep -q 'morva: IN is required' ||
        fail "zsh does not complete a verb"
    zsh_completes 'morva divide --stra' | grep -q 'morva: --straddle: 1 required' ||
        fail "zsh does not complete an option"
}

[ "$(id -u)" -eq 0 ] || fail "only root can install it"
! installed || fail "it is installed already"
trap clean_up EXIT
# With what it needs, as far as it is missing.
DEBIAN_FRONTEND=noninteractive apt-get install -y -qq "$DEB" >/dev/null
dpkg -L morva >"$WORK/files"
try_command
try_manual
try_completion
dpkg --remove morva >/dev/null
while read -r file; do
    [ -d "$file" ] || [ ! -e "$file" ] || fail "left over: $file"
done <"$WORK/files"
grep -q '/bin/morva$' "$WORK/files" || fail "the package has no command"
echo "package: installed, used and removed: $(basename "$DEB"), $(stat -c %s "$DEB") bytes"
