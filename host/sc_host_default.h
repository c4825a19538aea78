/* Host-side API of the default host-services module (libvell-ds-host.a), for
 * programs that have no host process of their own. It provides every symbol
 * of sc_host.h and adds accounting and size-class contexts.
 *
 * Every block carries a small header recording who took it and with what
 * size, so a release with a different size, through the wrong allocator or
 * twice is detected and reported on stderr (with the file and line of the
 * release where the release names them). In a checking build
 * (SC_HOST_CHECKING defined) such an error aborts; otherwise it is counted
 * and the block is still released. */
#ifndef SC_HOST_DEFAULT_H
#define SC_HOST_DEFAULT_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* Outstanding blocks and bytes, of one allocator or one context. */
typedef struct sc_host_usage {
  uint64_t blocks;
  uint64_t bytes;
} sc_host_usage;

/* A new size-class context that serves blocks of up to max_alloc bytes; null
 * if it cannot be made. */
void *sc_host_ctx_create(uint32_t max_alloc);
/* Destroys a context. Blocks still outstanding are reported on stderr and
 * their number returned; the blocks stay valid and are still accounted. */
uint64_t sc_host_ctx_destroy(void *sz_ctx);

sc_host_usage sc_host_heap_usage(void);        /* __sc_kmalloc/__sc_kcalloc */
sc_host_usage sc_host_ctx_usage(void *sz_ctx); /* one context */
sc_host_usage sc_host_sz_usage(void);          /* all contexts together */
/* Release errors detected so far (size mismatch, wrong allocator, double
 * or foreign release). */
uint64_t sc_host_release_errors(void);
/* Abort on a release error (default: on in a checking build). */
void sc_host_set_abort_on_error(int on);

/* Sets __sc_debug_level. Its start value is 2, or VELL_DS_DEBUG from the
 * environment when that holds an integer. */
void sc_host_set_debug_level(int level);

/* Hands the library's diagnostics to `handler` instead of writing them on
 * stderr (null restores stderr), so that a program can word them for its
 * users: it gets the level, the module's source-file name and line, and the
 * formatted message (its newline, if any, kept). */
typedef void sc_host_diag_handler(int level, const char *file, int line,
                                  const char *msg);
void sc_host_set_diag_handler(sc_host_diag_handler *handler);
/* The handler set, or null for stderr; lets a caller restore it. */
sc_host_diag_handler *sc_host_get_diag_handler(void);

#ifdef __cplusplus
}
#endif

#endif /* SC_HOST_DEFAULT_H */
