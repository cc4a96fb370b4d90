# What the tests and the comparison of costs share: packs a guest, boots it, and fetches what it recorded.
# VT_GUEST_BOARD names another libVeltrano.so to pack, such as one with a fault planted, which the verdicts must find.
szHere="$szRoot/Tests/Guest"
szBuild="$szRoot/build/release"
szCache="$szUserCache/guest"
szRun="$szRoot/build/guest/${VT_GUEST_RUN:-$szProgram}" # what one run packs and records; two runs at once need two names
. "$szHere/kernel.sh"

skip() { echo "skipped: $*"; exit 0; }

# prepare_guest [packages...]: everything from the packages to the kernel; ends the program where that cannot be had.
prepare_guest() {
    [ "$(uname -m)" = x86_64 ] || skip "the guest is made for x86-64"
    command -v apt-get >/dev/null || skip "this is no Debian system: its kernel packages are needed"
    (ensure_packages "${aszRunPackages[@]}" "${aszTestPackages[@]}" qemu-system-x86 busybox-static cpio kmod make binutils \
        v4l-utils xz-utils "$@") || skip "packages are missing and cannot be installed"
    build_preset release guest-files "${aszTestOptions[@]}"
    prepare_kernel || skip "the archive gives no kernel, headers and source of one version (no network?)"
}

# Copies programs and every shared library that they load into the guest, where the host has them.
pack_programs() {
    local szFile
    mkdir -p "$szTree/test" "$szTree/veltrano"
    cp "$@" "$szTree/test/"
    cp "${VT_GUEST_BOARD:-$szBuild/lib/linux/libVeltrano.so}" "$szTree/veltrano/libVeltrano.so"
    LD_LIBRARY_PATH="$szBuild/lib/linux" ldd "$@" | grep -o '/[^ ]*' | grep -v ':$' | sort -u |
        grep -v libVeltrano | while read -r szFile; do
            mkdir -p "$szTree$(dirname "$szFile")"
            cp -L "$szFile" "$szTree$szFile"
        done
}

# pack_guest <programs...>: with them, the programs of the tests and the cases in aszCases.
pack_guest() {
    szTree="$szRun/tree"
    rm -rf "$szRun"
    mkdir -p "$szTree"/{bin,dev,etc,modules,test/cases}
    cp "$(command -v busybox)" "$szTree/bin/busybox"
    cp "$szKernel"/*.ko "$szKernel"/*.order "$szTree/modules/"
    cp "$szRoot/DeviceSdk/LinuxBoard/System/vtvideomonitor-trace" "$szTree/bin/"
    pack_programs "$@" "$(command -v v4l2-ctl)" "$szBuild"/bin/{VtVideoMonitor,veltrano-conformance,Guest{Camera,Fields,Kms}} \
        "$szBuild/lib/libGuestFault.so"
    cp "$szHere/play.sh" "$szTree/test/"
    cp "${aszCases[@]}" "$szTree/test/cases/"
    cp "$szHere/guest-init" "$szTree/init"
    # Not compressed: unpacking is the slowest thing that an emulated processor can be asked to do.
    (cd "$szTree" && find . | cpio -o -H newc --quiet) >"$szRun/initramfs"
}

# wait_for_guest <process>: until the guest has switched off. It is given up only when its console, on which every case
# announces itself, stands still for ten minutes: how long a case takes is up to this machine's load.
wait_for_guest() {
    local iStill=0 iSize=0 iLast=0
    while kill -0 "$1" 2>/dev/null; do
        sleep 1
        iSize=$(stat -c %s "$szRun/console.log" 2>/dev/null)
        iStill=$((iSize == iLast ? iStill + 1 : 0))
        iLast=$iSize
        [ "$iStill" -lt 600 ] || { kill "$1"; return 1; }
    done
    wait "$1"
}

# Virtual time: the guest's clock counts its instructions, so that no load of this machine shows in the figures.
boot_guest() {
    rm -f "$szRun/records.tar.gz" "$szRun/console.log"
    nice qemu-system-x86_64 -M q35 -cpu qemu64 -smp 1 -m "${iMemoryMb:-512}" -icount shift=0,sleep=off \
        -display none -vga none -nic none -device bochs-display -no-reboot \
        -serial "file:$szRun/console.log" -serial "file:$szRun/records.tar.gz" \
        -kernel "$szKernel/vmlinuz" -initrd "$szRun/initramfs" \
        -append "console=ttyS0 quiet panic=-1 rdinit=/init" </dev/null &
    wait_for_guest $! || return 1
    rm -rf "$szRun/records"
    mkdir -p "$szRun/records"
    tar -C "$szRun/records" -xzf "$szRun/records.tar.gz" 2>/dev/null
}
