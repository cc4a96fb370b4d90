# Makes the guest's kernel out of Debian's packages: the image and the modules as they are, and out of the matching source
# what no Debian kernel has: vkms twice, under two names, and both ends of a USB cable for cameras made of software.
# Nothing of it is committed; everything is kept in the user's cache, for all trees.

# Prints the dependencies of a package that match a pattern, one a line.
dependencies() { apt-cache depends "$1" 2>/dev/null | sed -n "s/^ *Depends: \($2\)\$/\1/p"; }

# Downloads the packages of the kernel that the distribution has now into szArchives. All must be of one version.
download_kernel() {
    local szHeaders szPackage
    szHeaders=$(dependencies linux-headers-amd64 'linux-headers-.*')
    for szPackage in "$szImage" "$szHeaders" "$(dependencies "$szHeaders" 'linux-headers-.*-common')" \
            "$(dependencies "$szHeaders" 'linux-kbuild-.*')" "$(dependencies linux-source 'linux-source-.*')"; do
        [ -n "$szPackage" ] || return 1
        (cd "$szArchives" && apt-get download -q "$szPackage=$szVersion" >/dev/null 2>&1) || return 1
    done
}

# build_module <module name> <folder of the source>: builds the driver that lies in szWork under that name.
build_module() {
    nice make -C "$szHeaders" "M=$2" CONFIG_DRM_VKMS=m modules >"$szWork/$1.log" 2>&1 || return 1
    strip --strip-debug "$2/$1.ko"
    cp "$2/$1.ko" "$szKernel/"
}

# build_vkms <module name>: builds the virtual display so that it comes up under that name. Writing to its parameter
# "pull" takes the card away under its users, as pulling a real one does; the driver itself offers no way to.
build_vkms() {
    local szName=$1 szDir="$szWork/$1"
    cp -r "$szWork"/linux-source-*/drivers/gpu/drm/vkms "$szDir"
    sed -i "s/^#define DRIVER_NAME.*/#define DRIVER_NAME \"$szName\"/" "$szDir/vkms_drv.c"
    sed -i "s/vkms-y/$szName-y/; s/vkms\.o/$szName.o/" "$szDir/Makefile"
    cat >>"$szDir/vkms_drv.c" <<'END'
static int pull(const char *value, const struct kernel_param *param)
{
	drm_dev_unplug(&default_config->dev->drm);
	drm_atomic_helper_shutdown(&default_config->dev->drm);
	return 0;
}
module_param_call(pull, pull, NULL, NULL, 0200);
END
    build_module "$szName" "$szDir"
}

# build_gadget <module name> <path of its one source file>
build_gadget() {
    mkdir "$szWork/$1"
    cp "$szWork"/linux-source-*/"$2" "$szWork/$1/"
    echo "obj-m := $1.o" >"$szWork/$1/Makefile"
    build_module "$1" "$szWork/$1"
}

# Unpacks image, headers and some folders of the source, and leaves kernel, modules and load orders in szKernel.
unpack_kernel() {
    local szPackage szHeaders
    for szPackage in "$szArchives"/linux-{image,headers,kbuild}*.deb; do
        dpkg -x "$szPackage" "$szWork/root" || return 1
    done
    dpkg --fsys-tarfile "$szArchives"/linux-source-*.deb | tar -xO --wildcards '*/linux-source-*.tar.xz' |
        tar -xJ -C "$szWork" --wildcards 'linux-source-*/drivers/gpu/drm/vkms/*' 'linux-source-*/drivers/usb/gadget/*' ||
        return 1
    szHeaders=$(find "$szWork/root/usr/src" -maxdepth 1 -name 'linux-headers-*' ! -name '*-common')
    # The headers point at each other by absolute paths, as if they were installed.
    sed -i "s#\(/usr/\(src\|lib\)/linux-\)#$szWork/root\1#g" "$szHeaders/Makefile"
    build_vkms vkms && build_vkms vkms2 && build_gadget dummy_hcd drivers/usb/gadget/udc/dummy_hcd.c &&
        build_gadget raw_gadget drivers/usb/gadget/legacy/raw_gadget.c || return 1
    cp "$szWork"/root/boot/vmlinuz-* "$szKernel/vmlinuz"
    pack_modules
}

# Copies what the drivers need, and writes for each driver the order in which its modules are loaded.
pack_modules() {
    local szTree=$szWork/root szRelease szDriver szFile
    [ -d "$szTree/lib" ] || szTree=$szWork/root/usr
    szRelease=$(basename "$szTree"/lib/modules/*)
    depmod -b "$szTree" "$szRelease" 2>/dev/null
    for szDriver in vivid bochs drm_shmem_helper drm_kms_helper udc_core uvcvideo; do
        modprobe -d "$szTree" -S "$szRelease" --show-depends "$szDriver" | sed -n 's/^insmod \([^ ]*\).*/\1/p' |
            while read -r szFile; do
                cp -n "$szFile" "$szKernel/" && basename "$szFile"
            done >"$szKernel/$szDriver.order"
        [ -s "$szKernel/$szDriver.order" ] || return 1
    done
}

# Sets szImage and szVersion to the kernel that the distribution has now.
find_kernel() {
    szImage=$(dependencies linux-image-amd64 'linux-image-.*')
    szVersion=$(apt-cache policy "${szImage:-none}" 2>/dev/null | sed -n 's/^ *Candidate: //p')
    [ -n "$szVersion" ] && [ "$szVersion" != "(none)" ]
}

# Leaves the kernel in szKernel, from the cache if it is there. Returns 1 when the archive does not give it.
prepare_kernel() {
    local szLatest szRecipe
    szRecipe=$(cksum <"$szHere/kernel.sh" | cut -d ' ' -f 1)
    szLatest=$(ls -td "$szCache"/*-"$szRecipe"/complete 2>/dev/null | head -n 1)
    if ! find_kernel && ! { apt-get update -q >/dev/null 2>&1 && find_kernel; }; then
        # Without the archive's lists the last kernel that was made still does.
        szKernel=$(dirname "${szLatest:-/none/none}")
        [ -n "$szLatest" ]
        return
    fi
    szKernel="$szCache/$szVersion-$szRecipe"
    [ -f "$szKernel/complete" ] && return 0
    szArchives="$szCache/archives"
    szWork="$szCache/work"
    rm -rf "$szWork" "$szArchives" "$szKernel"
    mkdir -p "$szWork" "$szArchives" "$szKernel"
    say "downloading the kernel ($szVersion)"
    download_kernel || return 1
    say "building the modules that Debian does not"
    unpack_kernel || die "the guest's kernel could not be made; see $szWork"
    rm -rf "$szWork" "$szArchives"
    touch "$szKernel/complete"
}
