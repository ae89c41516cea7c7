// Part of every test: what the sanitizers are to do when nothing else is asked for.
extern "C" {

const char* __asan_default_options() {
    return "detect_leaks=1:strict_string_checks=1:check_initialization_order=1:detect_stack_use_"
           "after_return=1";
}
const char* __ubsan_default_options() {
    return "print_stacktrace=1:halt_on_error=1";
}
const char* __tsan_default_options() {
    return "halt_on_error=1:second_deadlock_stack=1:die_after_fork=0";
}
}
