/* Preloaded: counts the allocations that the shared library itself asks for and prints the count at
 * the end. Allocations of the program and of the C library are not counted. */
#include <dlfcn.h>
#include <stdio.h>
#include <string.h>

extern void* __libc_calloc(size_t count, size_t size);
extern void* __libc_malloc(size_t size);

static unsigned long g_count;

static int is_from_library(const void* caller) {
    Dl_info info;
    return dladdr(caller, &info) != 0 && info.dli_fname != NULL &&
           strstr(info.dli_fname, "libvimbra.so") != NULL;
}

void* calloc(size_t count, size_t size) {
    if (is_from_library(__builtin_return_address(0))) {
        g_count++;
    }
    return __libc_calloc(count, size);
}

void* malloc(size_t size) {
    if (is_from_library(__builtin_return_address(0))) {
        g_count++;
    }
    return __libc_malloc(size);
}

__attribute__((destructor)) static void report(void) {
    if (g_count != 0) {
        fprintf(stderr, "allocations: %lu\n", g_count);
    }
}
