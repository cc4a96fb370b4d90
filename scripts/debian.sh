# shellcheck shell=bash
# Fresh Debians to try things in, whichever release this machine itself is of. Sourced behind common.sh.
# What is dear and does not change lies in a cache outside of the tree: minimal systems for a week, packages as apt
# fetched them, and the compiler's results.

mapfile -t aszProxies < <(env | grep -iE '^(https?|no)_proxy=')

# The mirror that this machine takes its own packages from.
debian_mirror() {
    local szSuite
    szSuite=$(. /etc/os-release && echo "$VERSION_CODENAME")
    apt-get indextargets --format "\$(CODENAME) \$(REPO_URI)" 'Created-By: Packages' |
        sed -n "s/^$szSuite //p" | head -n 1
}

# debian_base <suite>: prints the tar file of a minimal system, which it makes where there is none of this week.
debian_base() {
    local szSuite=$1 szTar="$szUserCache/roots/$1.tar"
    mkdir -p "$szUserCache/roots"
    (
        flock 9
        [ -z "$(find "$szTar" -mtime -7 2>/dev/null)" ] || exit 0
        say "making a minimal Debian ($szSuite)"
        # The date of a mirror's lists is no matter of ours.
        mmdebstrap --quiet --format=tar --variant=minbase --aptopt='Acquire::Check-Valid-Until "false"' \
            --include=ccache "$szSuite" "$szTar.new" "deb $(debian_mirror) $szSuite main" \
            </dev/null >&2 && mv "$szTar.new" "$szTar"
    ) 9>"$szUserCache/roots/$szSuite.lock" || return 1
    echo "$szTar"
}

# debian_make <suite> <folder>: a system of its own, with this machine's way to its archives.
debian_make() {
    local szTar
    ensure_packages mmdebstrap
    szTar=$(debian_base "$1") && mkdir -p "$2" && tar -C "$2" -xf "$szTar" || return 1
    mkdir -p "$szUserCache/archives/$1" "$szUserCache/ccache/$1"
    # It lives for some minutes: what it writes need not reach the disk.
    echo force-unsafe-io >"$2/etc/dpkg/dpkg.cfg.d/unsafe-io"
    echo 'Acquire::Check-Valid-Until "false";' >"$2/etc/apt/apt.conf.d/90any-date"
    apt-config dump | grep -E '^Acquire::(https?|Retries)' >"$2/etc/apt/apt.conf.d/91host"
    cp -a /etc/apt/auth.conf.d /etc/apt/keyrings "$2/etc/apt/" 2>/dev/null
    cp -L /etc/resolv.conf /etc/hosts "$2/etc/"
    echo "$1" >"$2/.suite"
}

# debian_run <folder> <command...>: in the system, as root, in processes and mounts of its own that end with it.
debian_run() {
    local szSystem=$1 szSuite
    shift
    szSuite=$(cat "$szSystem/.suite")
    # shellcheck disable=SC2016
    unshare --mount --pid --fork --kill-child sh -c '
        szSystem=$1 szArchives=$2 szResults=$3
        shift 3
        mount --rbind /dev "$szSystem/dev" && mount -t proc proc "$szSystem/proc" &&
            mount -t sysfs -o ro sysfs "$szSystem/sys" && mount --bind "$szArchives" "$szSystem/var/cache/apt/archives" &&
            mkdir -p "$szSystem/root/.ccache" && mount --bind "$szResults" "$szSystem/root/.ccache" &&
            exec chroot "$szSystem" "$@"' sh \
        "$szSystem" "$szUserCache/archives/$szSuite" "$szUserCache/ccache/$szSuite" \
        env -i PATH=/usr/sbin:/usr/bin:/sbin:/bin HOME=/root TERM=dumb LC_ALL=C.UTF-8 DEBIAN_FRONTEND=noninteractive \
        CMAKE_C_COMPILER_LAUNCHER=ccache CMAKE_CXX_COMPILER_LAUNCHER=ccache "${aszProxies[@]}" "$@" </dev/null
}

# debian_clone <folder>: the tree as it is committed, in /root/vtvideomonitor.
debian_clone() { git clone -q --depth 1 "file://$szRoot" "$1/root/vtvideomonitor"; }
