# The library by itself: every function called from C, and what a process pays for it by the guest's
# own clock.
subject=library
. /board/lib.sh

footprint libvimbra.so.2 1000 24 24 >/tmp/footprint
check "ready within 1.0 ms, 24 kB for a process, 24 kB for a listener" test $? -eq 0
sed -n 's/^.* \(us\|kB\)/     | &/p' /tmp/footprint
check "every function, with arguments that are good and such that are not" driver
