# Runs the test programs named in `programs`, each test in a sandbox and a process of its own.
set -- $programs
build=${1%%/tests/*}
for program in $programs; do
    name=${program##*/}
    "$program" --gtest_list_tests >/tmp/list
    for test in $(awk '/^[^ ]/ { suite = $1 } /^ / { print suite $1 }' /tmp/list); do
        # In the directory of its own build, as on the machine that builds.
        if (cd "$build" && timeout 300 vimbra-sandbox --keep "$build" -- "$program" \
            --gtest_filter="$test") >/tmp/said 2>&1; then
            echo "ok   $name: $test"
        else
            echo "FAIL $name: $test (status $?)"
            tail -n 15 /tmp/said | cut -c 1-160 | sed 's/^/     | /'
        fi
    done
done
