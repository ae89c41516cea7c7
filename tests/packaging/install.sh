#!/usr/bin/env bash
# Debian's packages, from what a tree has built: made, looked at by lintian, installed, used, removed.
# It happens in a machine of its own, an overlay over this one: whatever is changed is gone at the end.
#
#     install.sh BUILD-TREE [ARCHITECTURE]
#
# Packages for another kind of processor are installed here as well, and their programs emulated.
set -euo pipefail
export LC_ALL=C.UTF-8 DEBIAN_FRONTEND=noninteractive
source=$(cd "$(dirname "$0")/../.." && pwd)
tree=$(cd "$1" && pwd)
native=$(dpkg --print-architecture)
arch=${2:-$native}

fail() {
    echo "FAILED: $*" >&2
    exit 1
}

case "${STAGE:-outside}" in
    outside)
        as_root=()
        [ "$(id -u)" -eq 0 ] || as_root=(sudo)
        exec "${as_root[@]}" env STAGE=overlay unshare --mount --net --ipc --pid --fork \
            --kill-child --propagation private "$0" "$tree" "$arch"
        ;;
    overlay)
        mount -t tmpfs none /mnt
        mkdir -p /mnt/root /mnt/{root,source}-{upper,work}
        mount -t overlay none -o lowerdir=/,upperdir=/mnt/root-upper,workdir=/mnt/root-work /mnt/root
        # Mounts are not seen through an overlay, and the sources may be one.
        mount -t overlay none "/mnt/root$source" \
            -o "lowerdir=$source,upperdir=/mnt/source-upper,workdir=/mnt/source-work"
        mount -t proc none /mnt/root/proc
        mount --rbind /dev /mnt/root/dev
        mount -t tmpfs none /mnt/root/tmp
        mount -t tmpfs none /mnt/root/run
        exec env STAGE=inside chroot /mnt/root "$source/tests/packaging/install.sh" "$tree" "$arch"
        ;;
esac

cd "$source"
# quietly COMMAND...: what it says is shown when it fails.
quietly() {
    "$@" >/tmp/log 2>&1 || {
        tail -n 40 /tmp/log
        fail "$*"
    }
}

# What has to be there to build is there: the tree is built.
make_packages() {
    local foreign=() profiles=nocheck
    [ "$arch" = "$native" ] || foreign=(-d -a"$arch") profiles="nocheck cross"
    VIMBRA_BUILT=${tree#"$source"/} DEB_BUILD_OPTIONS="nocheck noautodbgsym" \
        DEB_BUILD_PROFILES=$profiles quietly dpkg-buildpackage -us -uc -b -nc "${foreign[@]}"
    awk '/^\[[0-9]+\/[0-9]+\] .* -c / && n++ < 5 { print $NF } END { exit n > 0 }' /tmp/log ||
        fail "what is packaged is not what was built"
    cd ..
    quietly lintian --allow-root --fail-on error,warning "vimbra_"*"_$arch.changes"
}

install_packages() {
    # shellcheck disable=SC2046
    quietly dpkg -i $(printf "./%s_*_$arch.deb " "${packages[@]}")
    dpkg -L "${packages[@]/%/:$arch}" | sort -u | while read -r path; do
        [ -d "$path" ] || echo "$path"
    done >/tmp/files
    [ "$(wc -l </tmp/files)" -gt 300 ] || fail "next to nothing is installed"
    version=$(sed -nE 's/^#define VIMBRA_VERSION_(MAJOR|MINOR|PATCH) //p' \
        /usr/include/vimbra/version.h | paste -sd .)
}

# The daemon was started by its script; an address is set from the command line, and by an example that
# is compiled with what is installed; an application is tested with the test kit.
use_packages() {
    mkdir /tmp/work && cd /tmp/work
    [ "$(vimbractl --version)" = "vimbractl $version" ] || fail "vimbractl --version"
    ldd /usr/bin/vimbractl | grep -q "=> /.*/$(gcc -print-multiarch)/libvimbra\.so\.2" ||
        fail "the command line takes another library"
    /etc/init.d/vimbrad status | grep -q '^vimbrad runs as process ' ||
        fail "installing has not started vimbrad"
    quietly /etc/init.d/vimbrad restart
    ip link set lo up
    ip link add try0 type veth peer name try1
    ip link set try0 up
    vimbractl addr set try0 192.0.2.10/24
    ip address show try0 | grep -q 'inet 192\.0\.2\.10/24 ' || fail "the address is not set"
    read -ra flags <<<"$(pkg-config --cflags --libs vimbra)"
    quietly cc -Wall -Werror "$source/examples/set_address.c" -o set_address "${flags[@]}"
    ./set_address try0 || fail "the example"
    ip address show try0 | grep -q 'inet 192\.168\.7\.1/24 ' || fail "the example has set no address"
    read -ra flags <<<"$(pkg-config --cflags --libs vimbra vimbra-test)"
    quietly cc "$source/examples/lease_test.c" -o lease_test "${flags[@]}" -pthread
    quietly vimbra-sandbox -- ./lease_test
    [ "$(running)" = 1 ] || fail "$(running) daemons"
}
running() { readlink /proc/*/exe | grep -c "^/usr/sbin/vimbrad" || true; }

emulate_packages() {
    local run=qemu-arm-static
    [ "$("$run" /usr/bin/vimbractl --version)" = "vimbractl $version" ] || fail "vimbractl --version"
    [ "$("$run" /usr/sbin/vimbrad --version)" = "vimbrad $version" ] || fail "vimbrad --version"
}

remove_packages() {
    quietly dpkg -r "${packages[@]/%/:$arch}"
    [ "$(running)" = 0 ] || fail "the daemon goes on without its package"
    quietly dpkg -P "${packages[@]/%/:$arch}"
    while read -r path; do
        [ ! -e "$path" ] || echo "$path"
    done </tmp/files >/tmp/left
    [ ! -s /tmp/left ] || {
        cat /tmp/left
        fail "removing leaves files"
    }
    find /usr/include /usr/lib /usr/share /usr/local /etc /var/lib/systemd -name '*vimbra*' \
        ! -path "$source/*" | (! grep .) || fail "removing leaves something"
}

packages=(libvimbra2 libvimbra-dev vimbra-tools)
make_packages
if [ "$arch" = "$native" ]; then
    packages+=(vimbra-testkit)
    # A machine with a plain init that is up, where nobody forbids services to start.
    rm -f /usr/sbin/policy-rc.d /sbin/runlevel
    printf '#!/bin/sh\necho N 2\n' >/sbin/runlevel
    chmod +x /sbin/runlevel
    install_packages
    use_packages
else
    printf '#!/bin/sh\nexit 101\n' >/usr/sbin/policy-rc.d
    chmod +x /usr/sbin/policy-rc.d
    install_packages
    emulate_packages
fi
remove_packages
