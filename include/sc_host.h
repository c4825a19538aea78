/* Services a host process provides to the library. A host that embeds
 * libvell-ds.so defines every symbol below; programs without a host of their
 * own link the default module (libvell-ds-host.a) instead. */
#ifndef SC_HOST_H
#define SC_HOST_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* Diagnostics at a level above this value are suppressed. Read by the
 * library at the moment a diagnostic would be raised, never cached. */
extern int __sc_debug_level;
/* Sum of the prefix and message results of the last emitted diagnostic.
 * Written by the library, never read. */
extern int32_t __sc_print_val;

/* General heap. __sc_kfree always receives the size asked at allocation
 * (count * size for __sc_kcalloc). */
void *__sc_kmalloc(uint32_t size);
void *__sc_kcalloc(uint32_t count, uint32_t size);
void __sc_kfree(void *ptr, uint32_t size);

/* Size-class allocator; sz_ctx names one context. flags is always 0. */
void *__sc_szalloc(void *sz_ctx, uint32_t size, int flags, const char *file,
                   int line);
void __sc_szfree(void *sz_ctx, void *ptr, uint32_t size, const char *file,
                 int line);
/* Largest block __sc_szalloc serves for this context; constant for the
 * context's life. */
uint32_t sc_sz_get_max_alloc(void *sz_ctx);

/* Diagnostic channel: prefix (level, source file, line), then message. */
int __sc_print_prefix(int level, const char *file, int line);
int __sc_print_msg(const char *fmt, ...);

/* Console output for dumps, whatever the debug level. */
int sc_printf(const char *fmt, ...);

/* In-place sort; compare(a, b, arg) receives arg unchanged. */
typedef int (*sc_qsort_cmp)(const void *a, const void *b, void *arg);
void sc_qsort(void *base, uint32_t count, uint32_t size, sc_qsort_cmp compare,
              void *arg);

#ifdef __cplusplus
}
#endif

#endif /* SC_HOST_H */
