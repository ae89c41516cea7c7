# Runs the test programs named in `programs`, each test in a sandbox and a process of its own. One that
# hangs or spins is ended, and has failed; what a failed one said is kept.
limit=300
ulimit -t 60

now() {
    cut -d ' ' -f 1 /proc/uptime
}

# failed WHAT STATUS: with the words of /tmp/said.
failed() {
    failures=$((failures + 1))
    case $2 in
        124 | 137 | 143) set -- "$1" "ended after $limit s, or a minute of the processor's" ;;
        *) set -- "$1" "status $2" ;;
    esac
    echo "FAIL $name: $1 ($2)"
    tail -n 100 /tmp/said | cut -c 1-200 | sed 's/^/     | /'
}

set -- $programs
build=${1%%/tests/*}
# In the directory of its own build, as on the machine that builds.
cd "$build" || exit
for program in $programs; do
    name=${program##*/}
    start=$(now)
    failures=0
    count=0
    timeout "$limit" "$program" --gtest_list_tests >/tmp/said 2>&1 || failed 'its list of tests' $?
    for test in $(awk '/^[^ ]/ { suite = $1 } /^ / { print suite $1 }' /tmp/said); do
        count=$((count + 1))
        if timeout -k 10 "$limit" vimbra-sandbox --keep "$build" -- "$program" --gtest_filter="$test" \
            >/tmp/said 2>&1; then
            echo "ok   $name: $test"
        else
            failed "$test" $?
        fi
    done
    echo "-- $name: $count tests, $failures failed, $(echo "$(now) $start" | awk '{ print $1 - $2 }') s"
done
