set -- $programs
build=${1%%/tests/*}
for program in $programs; do
    name=${program##*/}
    set -- $(cat /proc/uptime)
    echo "-- start $name $1 $2"
    "$program" --gtest_list_tests >/tmp/list
    for test in $(awk '/^[^ ]/ { suite = $1 } /^ / { print suite $1 }' /tmp/list); do
        if (cd "$build" && timeout -k 10 300 vimbra-sandbox --keep "$build" -- "$program" \
            --gtest_filter="$test") >/tmp/said 2>&1; then
            echo "ok   $name: $test"
        else
            echo "FAIL $name: $test (status $?)"
            tail -n 40 /tmp/said | cut -c 1-160 | sed 's/^/     | /'
        fi
    done
done
set -- $(cat /proc/uptime)
echo "-- start end $1 $2"
