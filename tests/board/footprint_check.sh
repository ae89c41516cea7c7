# What a process pays for the library, by the guest's own clock.
subject=footprint
. /board/lib.sh

footprint libvimbra.so.2 1000 24 24 >/tmp/footprint
check "ready within 1.0 ms, 24 kB for a process, 24 kB for a listener" test $? -eq 0
sed -n 's/^.* \(us\|kB\)/     | &/p' /tmp/footprint
