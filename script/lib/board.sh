# Sourced after common.sh: what the board runs besides the project's own, and what the project's tools
# for it are linked with. Everything comes from Debian's packages for armel, by name; they are unpacked
# into a folder of the build tree, nothing is installed.

board=build/board

# The kernel's package has its version in its name; this one depends on the present one.
board_kernel=linux-image-rpi
board_programs=(busybox-static chrony dnsmasq-base iproute2 iputils-ping isc-dhcp-client openbsd-inetd ppp
                pppoe radvd)
board_libraries=(libatomic1 libaudit1 libbpf1 libbsd0 libc6 libcap-ng0 libcap2 libcom-err2
                 libcrypt1 libdb5.3 libdbus-1-3 libedit2 libelf1 libevent-2.1-7 libffi8 libgcc-s1
                 libgcrypt20 libgmp10 libgnutls30 libgpg-error0 libgssapi-krb5-2 libhogweed6
                 libidn2-0 libjansson4 libk5crypto3 libkeyutils1 libkrb5-3 libkrb5support0 liblz4-1
                 liblzma5 libmd0 libmnl0 libnetfilter-conntrack3 libnettle8 libnfnetlink0
                 libnftables1 libnftnl11 libnl-3-200 libnl-route-3-200 libnsl2 libp11-kit0
                 libpam-modules libpam0g libpcap0.8 libpcre2-8-0 libseccomp2 libselinux1 libssl3
                 libstdc++6 libsystemd0 libtasn1-6 libtinfo6 libtirpc3 libunistring2 libuv1
                 libwrap0 libxtables12 libzstd1 zlib1g)
board_development=(libcrypt-dev libnl-3-dev libnl-route-3-dev libuv1-dev)
# In the order in which they are loaded. Without the first two random numbers block.
board_modules=(rng-core bcm2835-rng slhc crc-ccitt ppp_generic pppox pppoe ppp_async veth dummy tls
               bonding)

# board_download NAME...: into the present directory, with the kernel that is the present one. As root apt
# wants to fetch as somebody else, who may have no right here; that is only a warning.
board_download() {
    local kernel
    kernel=$(apt-cache depends "$board_kernel:armel" 2>/dev/null |
        sed -n 's/ *Depends: *\(linux-image-[^:]*\).*/\1/p')
    rm -f ./*.deb
    [ -n "$kernel" ] && apt-get download -q "${@/%/:armel}" "$kernel:armel"
}

# What goes into $board/sysroot, as one tree: Debian's lib, bin and sbin are links there.
board_fetch() {
    local tree=$board/sysroot packages=$board/packages log=$board/fetch.log package as_root=()
    local names=("${board_programs[@]}" "${board_libraries[@]}" "${board_development[@]}")
    if [ "$(cat "$tree/names" 2>/dev/null)" = "${names[*]}" ]; then
        return
    fi
    [ "$(id -u)" -eq 0 ] || as_root=(sudo)
    rm -rf "$tree" "$packages"
    mkdir -p "$packages" "$tree"/usr/{bin,sbin,lib}
    ln -s usr/bin usr/sbin usr/lib "$tree"
    # What apt knows may be old or nothing.
    if ! (cd "$packages" && board_download "${names[@]}") >"$log" 2>&1 &&
        ! { "${as_root[@]}" apt-get update &&
            (cd "$packages" && board_download "${names[@]}"); } >>"$log" 2>&1; then
        cat "$log" >&2
        echo "the board's packages cannot be fetched" >&2
        return 1
    fi
    for package in "$packages"/*.deb; do
        dpkg --fsys-tarfile "$package" |
            tar -x -C "$tree" --keep-directory-symlink --exclude='./usr/share/*'
    done
    rm -rf "$packages"
    echo "${names[*]}" >"$tree/names"
}
