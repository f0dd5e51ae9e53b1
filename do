#!/usr/bin/env bash
# One script for set-up, building and checking; without a verb it tells which there are.
set -euo pipefail
cd "$(dirname "$0")"

usage() {
    cat <<'TEXT'
On a fresh Debian 12, as root or with sudo:

  ./do demo     build a release, optimise a real assembly, print the table before and after
  ./do test     build and run all tests
  ./do check    format, includes, tests, tests as shipped, sanitizer builds with their tests, lint
  ./do ci       what every submission must pass: format, includes, tests as shipped, sanitizer builds with
                their tests, the package, and the demo in a system of its own
  ./do bench    build and run the benchmarks
  ./do package  build a Debian package, install, try and remove it (needs root)
  ./do models   other programs read what the command writes (npm packages, in build/models)
  ./do mutants FOLDER
                do the tests of a folder see the small faults listed in tests/mutants/FOLDER.json?
                more: tests/mutants/mutants.py --help
  ./do coverage which lines of each folder the tests run
  ./do damage N build with sanitizers and run the command over N damaged models
  ./do fuzz N   build the fuzz entries with libFuzzer and run each for N seconds
  ./do fresh    demo and test of the last commit in a minimal Debian 12 made for it (needs root);
                ./do fresh demo for the demo alone
TEXT
}

BUILD_PACKAGES="g++ cmake ninja-build libgtest-dev libassimp-dev libcli11-dev nlohmann-json3-dev
    libstb-dev libpng-dev libboost-filesystem-dev libboost-system-dev zlib1g-dev
    assimp-testmodels python3"
MODELS=/usr/share/assimp/models
ENGINE=$MODELS/glTF2/2CylinderEngine-glTF-Binary/2CylinderEngine.glb
JOBS=$(nproc)

say() { printf '== %s\n' "$*"; }

as_root() {
    if [ "$(id -u)" -eq 0 ]; then
        "$@"
    else
        sudo "$@"
    fi
}

# Installs what is missing of the packages named.
need() {
    local missing="" package
    for package in "$@"; do
        [ "$(dpkg-query -W -f '${Status}' "$package" 2>/dev/null)" = "install ok installed" ] ||
            missing="$missing $package"
    done
    [ -n "$missing" ] || return 0
    say "installing:$missing"
    as_root apt-get update -qq
    # shellcheck disable=SC2086  # a list of names
    as_root env DEBIAN_FRONTEND=noninteractive apt-get install -y -qq $missing >/dev/null
}

# Configures and builds a preset.
build() {
    # shellcheck disable=SC2086  # a list of names
    need $BUILD_PACKAGES
    local preset=$1
    shift
    cmake --preset "$preset" "$@" >/dev/null
    say "building $preset"
    cmake --build --preset "$preset" -j "$JOBS"
}

run_tests() {
    say "testing $1"
    ctest --preset "$1" -j "$JOBS"
}

demo() {
    build release
    need gltfpack
    mkdir -p out
    say "optimising $ENGINE"
    ./build/release/host/morva optimize "$ENGINE" -o out/engine.glb \
        -p "opt(1),maxtris(5000),flat(true)" --report out/engine.json
    say "the result, read again"
    ./build/release/host/morva info out/engine.glb
    say "the result, read by gltfpack"
    gltfpack -v -i out/engine.glb -o out/engine.packed.glb | tee out/engine.gltfpack.txt
    check_demo
    say "results: $PWD/out/engine.glb and $PWD/out/engine.json"
}

# Both readers must see what the report tells.
check_demo() {
    python3 - <<'PYTHON'
import json, re
after = json.load(open("out/engine.json"))["after"]
text = open("out/engine.gltfpack.txt").read()
seen = re.search(r"input: (\d+) mesh primitives \((\d+) triangles, (\d+) vertices\)", text)
if seen is None:
    raise SystemExit("gltfpack said nothing that can be compared:\n" + text)
counts = {"draw_calls": int(seen[1]), "triangles": int(seen[2]), "vertices": int(seen[3])}
for key, value in counts.items():
    if after[key] != value:
        raise SystemExit(f"{key}: gltfpack counts {value}, the report {after[key]}")
print("gltfpack agrees:", ", ".join(f"{value} {key}" for key, value in counts.items()))
PYTHON
}

check_format() {
    need clang-format-14
    say "format"
    git ls-files '*.h' '*.cpp' | xargs clang-format-14 --dry-run --Werror
}

check_includes() {
    say "includes"
    python3 cmake/check_includes.py
}

check_lint() {
    need clang-tidy-14
    say "lint"
    # Not the image codecs: they compile another project's.
    git ls-files 'morva/*.cpp' 'opensg/src/*.cpp' 'host/*.cpp' ':!host/image_codec.cpp' \
        ':!opensg/src/OSGImageFileHandler.cpp' |
        xargs -n 4 -P "$JOBS" clang-tidy-14 -p build/dev --quiet \
            --warnings-as-errors="*" --extra-arg=-Wno-unknown-warning-option
}

# The tests in the build that is shipped, with those of the installation and of stored outputs.
test_release() {
    need pkgconf python3-jsonschema man-db
    build release -DMORVA_TESTS=ON
    run_tests release
}

test_sanitized() {
    build asan
    run_tests asan
    build tsan # the programs with threads alone
    run_tests tsan
}

check() {
    check_format
    check_includes
    # Other seeds each time, unless one is asked for; a random test that fails prints it.
    export MORVA_SEED=${MORVA_SEED:-$((RANDOM * 32768 + RANDOM))}
    say "random tests: MORVA_SEED=$MORVA_SEED"
    build dev
    # Each allocation of a run fails in turn; other runs of the tests take every 20th.
    MORVA_ALLOCATION_STEP=1 run_tests dev
    test_release
    test_sanitized
    check_lint
}

# Each test runs as shipped or under the sanitizers, nearly all in both.
ci() {
    check_format
    check_includes
    test_sanitized
    test_release
    package
    fresh demo
}

# Runs each fuzz entry for so many seconds. What it finds to be new is kept in build/fuzz/corpus, an
# input that fails in build/fuzz.
fuzz() {
    need clang-14 libclang-rt-14-dev
    build fuzz
    local entry seeds
    cd build/fuzz
    for entry in parameters scene_file import; do
        case $entry in
        parameters) seeds="../../tests/fuzz/parameters" ;;
        scene_file) seeds="../../tests/data/osb ../../tests/data/geometry" ;;
        import) seeds="../../tests/fuzz/models ../../tests/data/geometry $MODELS/OBJ $MODELS/PLY" ;;
        esac
        mkdir -p "corpus/$entry"
        say "fuzzing $entry for $1 seconds"
        # shellcheck disable=SC2086  # a list of folders
        ./tests/fuzz/morva_fuzz_$entry -max_total_time="$1" -timeout=60 -rss_limit_mb=4096 \
            -max_len=20000 -close_fd_mask=1 -print_final_stats=1 "corpus/$entry" $seeds
    done
}

# What is found lies in build/damage.
damage() {
    build asan
    say "$1 damaged models"
    python3 tests/damage/damage.py build/asan/host/morva "$MODELS" "$1" --jobs "$JOBS" \
        --keep build/damage
}

bench() {
    need libbenchmark-dev libmeshoptimizer-dev libembree-dev libfcl-dev gltfpack
    build release -DMORVA_BENCH=ON
    say "benchmarks"
    ./bench/run.sh build/release/bench
}

package() {
    need dpkg-dev file man-db zsh
    build release
    rm -f build/release/*.deb
    say "making a Debian package"
    (cd build/release && cpack >cpack.log) || { cat build/release/cpack.log && exit 1; }
    mkdir -p out
    cp build/release/*.deb out/
    say "installing, using and removing it"
    as_root packaging/try_package.sh out/morva_*.deb "$ENGINE"
}

models() {
    command -v npm >/dev/null || need nodejs npm
    build release
    mkdir -p build/models
    cp tests/models/package.json build/models/
    say "installing npm packages"
    npm install --prefix build/models --no-audit --no-fund --ignore-scripts --loglevel=error
    say "models, read by other programs"
    node tests/models/check_models.cjs build/models build/release/host/morva "$MODELS"
    say "models, drawn before and after"
    need f3d xvfb
    xvfb-run -a node tests/models/draw_models.cjs build/models build/release/host/morva "$MODELS"
    say "all models"
    node tests/models/sweep_models.cjs build/models build/release/host/morva "$MODELS"
}

# Carries out the verbs given on the last commit, on a machine with nothing on it.
fresh() {
    if [ "$(id -u)" -ne 0 ] && ! command -v sudo >/dev/null; then
        echo "only root can make a system to try the commands in" >&2
        exit 1
    fi
    need debootstrap
    git archive HEAD | as_root env http_proxy="${http_proxy:-}" https_proxy="${https_proxy:-}" \
        no_proxy="${no_proxy:-}" cmake/fresh_system.sh "$@"
}

case "${1:-}" in
demo) demo ;;
test)
    build dev
    run_tests dev
    ;;
check) check ;;
ci) ci ;;
bench) bench ;;
package) package ;;
models) models ;;
fuzz)
    [[ ${2:-} =~ ^[0-9]+$ ]] || { usage >&2; exit 2; }
    fuzz "$2"
    ;;
coverage)
    # shellcheck disable=SC2086  # a list of names
    need $BUILD_PACKAGES
    shift
    python3 tests/coverage/coverage.py "$@"
    ;;
mutants)
    [ -n "${2:-}" ] || { usage >&2; exit 2; }
    # shellcheck disable=SC2086  # a list of names
    need $BUILD_PACKAGES
    shift
    python3 tests/mutants/mutants.py "$@"
    ;;
damage)
    [[ ${2:-} =~ ^[0-9]+$ ]] || { usage >&2; exit 2; }
    damage "$2"
    ;;
fresh)
    shift
    [ $# -ne 0 ] || set -- demo test
    fresh "$@"
    ;;
*)
    usage
    exit 2
    ;;
esac
