/**
 * @file
 * The version of these headers, for the preprocessor. What is loaded at run time may be another one:
 * VimbraQueryVersion() tells.
 *
 * Versions are semantic. A new PATCH mends; a new MINOR adds calls, constants and records, and a
 * program that was built before runs on with it; a new MAJOR has another soname (libvimbra.so.2 is
 * that of 2) and may change what is there.
 */
#ifndef VIMBRA_VERSION_H
#define VIMBRA_VERSION_H

#include <vimbra/types.h>

/** Other soname, other promises. */
#define VIMBRA_VERSION_MAJOR 2
/** Counts additions. */
#define VIMBRA_VERSION_MINOR 0
/** Counts corrections. */
#define VIMBRA_VERSION_PATCH 3

/** The version as one number that grows: 0x020003 is 2.0.3. */
#define VIMBRA_VERSION \
    ((VIMBRA_VERSION_MAJOR << 16) | (VIMBRA_VERSION_MINOR << 8) | VIMBRA_VERSION_PATCH)

/** Whether the headers are of this version or a later one, for `#if`. */
#define VIMBRA_VERSION_AT_LEAST(major, minor, patch) \
    (VIMBRA_VERSION >= (((major) << 16) | ((minor) << 8) | (patch)))

/** Puts a number between quotes; not for applications. */
#define VIMBRA_VERSION_QUOTED(number) #number
/** Puts three numbers into a text; not for applications. */
#define VIMBRA_VERSION_JOINED(major, minor, patch) \
    VIMBRA_VERSION_QUOTED(major) "." VIMBRA_VERSION_QUOTED(minor) "." VIMBRA_VERSION_QUOTED(patch)
/** The version as a text: "2.0.3". */
#define VIMBRA_VERSION_TEXT \
    VIMBRA_VERSION_JOINED(VIMBRA_VERSION_MAJOR, VIMBRA_VERSION_MINOR, VIMBRA_VERSION_PATCH)

#endif
