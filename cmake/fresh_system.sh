#!/usr/bin/env bash
# Carries out ./do with each of the verbs given in a minimal Debian 12 that is made for it and goes
# afterwards, so that it shows what the list of packages lacks. Called by ./do fresh, as root, with
# the sources as a tar archive on standard input.
#
# The system has a mount and a process namespace of its own: whatever ends this script ends what
# runs in there, and no mount is left over.
set -euo pipefail

RELEASE=bookworm
ROOT="" CHILD=""

fail() {
    printf 'fresh: %s\n' "$*" >&2
    exit 1
}

clean_up() {
    trap '' INT TERM HUP
    if [ -n "$CHILD" ]; then
        kill -KILL "$CHILD" 2>/dev/null || true
        wait "$CHILD" 2>/dev/null || true
    fi
    [ -n "$ROOT" ] || return 0
    # The second try: what was killed may have made files during the first.
    rm -rf --one-file-system "$ROOT" 2>/dev/null || { sleep 1 && rm -rf --one-file-system "$ROOT"; }
}

# What apt reads here, a line each: code name, address, release as the entry calls it, its file. The
# release itself comes before its updates.
sources() {
    # shellcheck disable=SC2016  # apt fills these in
    apt-get indextargets 'Created-By: Packages' 'Component: main' \
        --format '$(CODENAME) $(REPO_URI) $(RELEASE) $(SOURCESENTRY)' |
        sed -nE "/^$RELEASE(-updates|-security)? /p" | sort -u
}

# The key file that an entry names, if any.
key_of() {
    sed -nE 's|.*[Ss]igned-[Bb]y[:=] *(/[^], ]+).*|\1|p' "${1%:*}" | head -n 1
}

# Hands on how apt reaches its mirror: addresses, keys, proxies, certificates, names of hosts.
set_up_apt() {
    local codename uri release entry key
    : >"$ROOT/etc/apt/sources.list"
    # shellcheck disable=SC2034  # the code name stands first
    while read -r codename uri release entry; do
        key=$(key_of "$entry")
        if [ -n "$key" ]; then
            mkdir -p "$ROOT${key%/*}"
            cp "$key" "$ROOT$key"
        fi
        echo "deb ${key:+[signed-by=$key] }$uri $release main" >>"$ROOT/etc/apt/sources.list"
    done <<<"$SOURCES"
    cp -r /etc/apt/trusted.gpg.d/. "$ROOT/etc/apt/trusted.gpg.d/"
    apt-config dump --no-empty --format '%F "%v";%n' Acquire |
        grep -v '^Acquire::\(IndexTargets\|CompressionTypes\)' >"$ROOT/etc/apt/apt.conf.d/50fresh"
    cp /etc/hosts /etc/resolv.conf "$ROOT/etc/"
    local certificates
    for certificates in /etc/ssl/certs/ca-certificates.crt /usr/local/share/ca-certificates \
        $(apt-config dump --format '%F "%v";%n' Acquire | sed -n 's/.*::CaInfo "\(.*\)";/\1/Ip'); do
        [ -e "$certificates" ] || continue
        mkdir -p "$ROOT${certificates%/*}"
        cp -rL "$certificates" "$ROOT${certificates%/*}/"
    done
}

# Runs within the namespaces.
inside() {
    local codename mirror release entry key log verb
    # shellcheck disable=SC2034  # all of a line is read
    read -r codename mirror release entry <<<"$SOURCES"
    [ "$codename" = "$RELEASE" ] || fail "apt has no mirror of Debian $RELEASE here"
    key=$(key_of "$entry")
    echo "== making a minimal system"
    log=$(debootstrap --variant=minbase ${key:+--keyring="$key"} "$RELEASE" "$ROOT" "$mirror" \
        2>&1 </dev/null) || fail "debootstrap failed:"$'\n'"$(tail -n 5 <<<"$log")"
    set_up_apt
    mkdir "$ROOT/src"
    tar -x -C "$ROOT/src"
    mountpoint -q "$ROOT/proc" || mount -t proc proc "$ROOT/proc"
    mountpoint -q "$ROOT/dev/pts" || mount -t devpts devpts "$ROOT/dev/pts"
    for verb in "$@"; do
        echo "== fresh: ./do $verb"
        SECONDS=0
        chroot "$ROOT" /usr/bin/env -i PATH=/usr/sbin:/usr/bin:/sbin:/bin HOME=/root LANG=C.UTF-8 \
            ${http_proxy:+http_proxy="$http_proxy"} ${https_proxy:+https_proxy="$https_proxy"} \
            ${no_proxy:+no_proxy="$no_proxy"} "/src/do" "$verb" </dev/null
        echo "== fresh: ./do $verb passed in $SECONDS s"
    done
}

if [ -n "${FRESH_INSIDE:-}" ]; then
    ROOT=$FRESH_INSIDE
    inside "$@"
    exit
fi

[ "$(id -u)" -eq 0 ] || fail "only root can make a system to try the commands in"
unshare --mount --pid --fork true 2>/dev/null ||
    fail "this machine lets nobody make a mount namespace: no system can be made"
SOURCES=$(sources)
if [ -z "$SOURCES" ]; then
    apt-get update -qq
    SOURCES=$(sources)
fi
[ -n "$SOURCES" ] || fail "apt has no mirror of Debian $RELEASE here"
export SOURCES
trap clean_up EXIT
trap 'exit 1' INT TERM HUP
ROOT=$(mktemp -d "${TMPDIR:-/var/tmp}/morva-fresh-XXXXXX")
chmod 755 "$ROOT" # apt downloads as a user of its own
# In the background, since a trap waits for what runs in the foreground.
FRESH_INSIDE=$ROOT unshare --mount --pid --fork --kill-child "$0" "$@" <&0 &
CHILD=$!
wait "$CHILD"
CHILD=""
