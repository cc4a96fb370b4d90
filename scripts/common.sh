# shellcheck shell=bash
# Shared by ./run, ./test and .ci/run: what is missing gets installed, what is out of date gets built.
# Everything said here goes to standard error; standard output belongs to the program that is started.

szRoot=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
# What is dear to make and does not belong to one tree.
szUserCache="${XDG_CACHE_HOME:-${HOME:-/root}/.cache}/vtvideomonitor"

# What each part of the tree is built with: the monitor on the simulated board, the other board, the watch.
aszMonitorPackages=(g++ cmake ninja-build pkg-config libpci-dev libtomlplusplus-dev)
aszLinuxBoardPackages=(libdrm-dev libudev-dev libtracefs-dev libtraceevent-dev)
aszWatchPackages=(libcli11-dev libsqlite3-dev libsystemd-dev nlohmann-json3-dev libmicrohttpd-dev libgnutls28-dev libcrypt-dev zlib1g-dev
    prometheus-cpp-dev
    libjs-dygraphs)
aszRunPackages=("${aszMonitorPackages[@]}" "${aszLinuxBoardPackages[@]}" "${aszWatchPackages[@]}")
aszTestPackages=(curl openssl libgtest-dev libgmock-dev libvterm-dev prometheus python3 python3-jsonschema chromium
    chromium-driver python3-selenium)
# How CMake is told to build everything that is tested.
aszTestOptions=(-DVT_BUILD_TESTS=ON -DVT_BUILD_WATCH=ON -DVT_BUILD_LINUX_BOARD=ON)
aszBenchmarkPackages=(libbenchmark-dev)
aszCheckPackages=(clang-14 libclang-rt-14-dev clang-format-14 clang-tidy-14 shellcheck)
aszPackagePackages=(dpkg-dev debhelper fakeroot lintian lowdown)
aszPackageTestPackages=(mmdebstrap apt-utils man-db mandoc binutils gcc logrotate pkg-config)

say() { printf '%s: %s\n' "${szProgram:-build}" "$*" >&2; }
die() { say "$*"; exit "${iDieStatus:-1}"; }

# Installs those of the named Debian packages that are missing.
ensure_packages() {
    local szPackage szLog szReason
    local -a aszMissing=() aszSudo=()
    command -v dpkg-query >/dev/null || die "this is no Debian system; install by hand what stands for: $*"
    for szPackage in "$@"; do
        [ "$(dpkg-query -W -f '${db:Status-Status}' "$szPackage" 2>/dev/null)" = installed ] || aszMissing+=("$szPackage")
    done
    [ ${#aszMissing[@]} -eq 0 ] && return 0
    if [ "$(id -u)" -ne 0 ]; then
        command -v sudo >/dev/null || die "packages are missing (${aszMissing[*]}); run as root, or install sudo"
        aszSudo=(sudo)
    fi
    say "installing ${aszMissing[*]}"
    szLog=$(mktemp)
    if ! "${aszSudo[@]}" env DEBIAN_FRONTEND=noninteractive apt-get install -y -q --no-install-recommends \
            "${aszMissing[@]}" >"$szLog" 2>&1 </dev/null; then
        # The package lists may be old or not there at all: fetch them once, then try again.
        "${aszSudo[@]}" apt-get update -q >>"$szLog" 2>&1 </dev/null
        if ! "${aszSudo[@]}" env DEBIAN_FRONTEND=noninteractive apt-get install -y -q --no-install-recommends \
                "${aszMissing[@]}" >>"$szLog" 2>&1 </dev/null; then
            szReason=$(grep -E '^(E:|sudo:)' "$szLog" | head -n 1)
            rm -f "$szLog"
            die "cannot install ${aszMissing[*]}: ${szReason:-no network, or no right to install}"
        fi
    fi
    rm -f "$szLog"
}

require_compiler() {
    local szCompiler=${CXX:-g++} iMajor
    iMajor=$("$szCompiler" -dumpversion 2>/dev/null | cut -d. -f1)
    [ -n "$iMajor" ] || die "no C++ compiler named $szCompiler"
    case $("$szCompiler" --version | head -n 1) in
        *clang*) ;;
        *) [ "$iMajor" -ge 12 ] || die "$szCompiler $iMajor is too old: version 12 or newer is needed" ;;
    esac
}

# part_options <preset> [WATCH] [LINUX_BOARD]: prints what CMake must be told for these parts to be built; nothing where it
# knows already. A part that was built once stays, a build that begins leaves the others out.
part_options() {
    local szCache="$szRoot/build/$1/CMakeCache.txt" szPart
    shift
    for szPart in WATCH LINUX_BOARD; do
        case " $* " in
            *" $szPart "*) grep -qs "^VT_BUILD_$szPart:BOOL=ON" "$szCache" || echo "-DVT_BUILD_$szPart=ON" ;;
            *) [ -f "$szCache" ] || echo "-DVT_BUILD_$szPart=OFF" ;;
        esac
    done
}

# build_preset <preset> <targets, in one word> [configure arguments...]
# Quiet when nothing is out of date; otherwise shows the build's own progress.
build_preset() {
    local szPreset=$1 szLog
    local -a aszTargets
    read -r -a aszTargets <<<"$2"
    shift 2
    local szDir="$szRoot/build/$szPreset"
    szLog=$(mktemp)
    if [ ! -f "$szDir/build.ninja" ] || [ $# -gt 0 ]; then
        [ -f "$szDir/build.ninja" ] || say "configuring ($szPreset)"
        if ! (cd "$szRoot" && cmake --preset "$szPreset" "$@") >"$szLog" 2>&1; then
            grep -vE '^(--|$)' "$szLog" | head -n 20 >&2
            rm -f "$szLog"
            die "the build could not be configured"
        fi
    fi
    if (cd "$szDir" && ninja -n "${aszTargets[@]}" >"$szLog" 2>&1 && grep -q 'no work to do' "$szLog"); then
        rm -f "$szLog"
        return 0
    fi
    rm -f "$szLog"
    say "building ($szPreset)"
    ninja -C "$szDir" "${aszTargets[@]}" >&2 || die "the build failed"
}
