/* Default host services: heap with per-block headers, size-class contexts
 * drawn from the same heap, stderr diagnostics, stdout console, and a sort
 * that passes its argument through to the comparator. */
#include "sc_host_default.h"

#include <pthread.h>
#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "sc_host.h"

int __sc_debug_level = 2;
int32_t __sc_print_val;

/* ---- accounting ---------------------------------------------------------- */

#define CTX_MAGIC 0x5c7c0a11u
#define BLOCK_LIVE 0xb10cb10cu
#define BLOCK_DEAD 0xdeadb10cu

typedef struct ctx {
  uint32_t magic;
  uint32_t max_alloc;
  sc_host_usage usage;
} ctx;

/* Precedes every block; 16 bytes keep the payload 8-byte aligned on both
 * word sizes (one word of padding on 32-bit). */
typedef struct header {
  uint32_t state;
  uint32_t size;
  ctx *owner; /* null for the general heap */
#if UINTPTR_MAX == 0xffffffffu
  uint32_t pad;
#endif
} header;

/* The host services may be called from any thread that calls the library;
 * one lock keeps the accounting consistent. */
static pthread_mutex_t lock = PTHREAD_MUTEX_INITIALIZER;
static sc_host_usage heap_usage, sz_total;
static uint64_t release_errors;
#ifdef SC_HOST_CHECKING
static int abort_on_error = 1;
#else
static int abort_on_error = 0;
#endif

static void account(sc_host_usage *u, uint32_t size, int sign) {
  u->blocks += (uint64_t)(int64_t)sign;
  u->bytes += (uint64_t)((int64_t)sign * (int64_t)size);
}

/* file is null for __sc_kfree, which names no source location: the
 * caller's address stands in for it. */
static void release_error(const char *what, const void *ptr, uint32_t asked,
                          uint32_t taken, const char *file, int line,
                          const void *caller) {
  char where[96];
  if (file)
    snprintf(where, sizeof where, "release at %s:%d", file, line);
  else
    snprintf(where, sizeof where, "__sc_kfree called from %p", caller);
  release_errors++;
  fprintf(stderr,
          "vell-ds host: %s: block %p released with size %u, taken with "
          "size %u (%s)\n",
          what, ptr, asked, taken, where);
  if (abort_on_error) abort();
}

static void *take(ctx *owner, uint32_t size, int zero) {
  header *h = (header *)(zero ? calloc(1, sizeof(header) + (size_t)size)
                              : malloc(sizeof(header) + (size_t)size));
  if (!h) return NULL;
  h->state = BLOCK_LIVE;
  h->size = size;
  h->owner = owner;
  pthread_mutex_lock(&lock);
  account(owner ? &owner->usage : &heap_usage, size, 1);
  if (owner) account(&sz_total, size, 1);
  pthread_mutex_unlock(&lock);
  return h + 1;
}

/* expect_ctx: the context named by the release, or null for __sc_kfree,
 * which also accepts size-class blocks (a vector record made with a context
 * goes back that way). */
static void give(void *ptr, uint32_t size, ctx *expect_ctx, int from_kfree,
                 const char *file, int line, const void *caller) {
  if (!ptr) return;
  header *h = (header *)ptr - 1;
  pthread_mutex_lock(&lock);
  if (h->state != BLOCK_LIVE) {
    release_error("double or foreign release", ptr, size, 0, file, line,
                  caller);
    pthread_mutex_unlock(&lock);
    return;
  }
  if (h->size != size)
    release_error("size mismatch", ptr, size, h->size, file, line, caller);
  else if (!from_kfree && h->owner != expect_ctx)
    release_error("released to another allocator", ptr, size, h->size, file,
                  line, caller);
  account(h->owner ? &h->owner->usage : &heap_usage, h->size, -1);
  if (h->owner) account(&sz_total, h->size, -1);
  h->state = BLOCK_DEAD;
  pthread_mutex_unlock(&lock);
  free(h);
}

void *__sc_kmalloc(uint32_t size) { return take(NULL, size, 0); }

void *__sc_kcalloc(uint32_t count, uint32_t size) {
  uint64_t total = (uint64_t)count * size;
  if (total > UINT32_MAX) return NULL;
  return take(NULL, (uint32_t)total, 1);
}

void __sc_kfree(void *ptr, uint32_t size) {
  give(ptr, size, NULL, 1, NULL, 0, __builtin_return_address(0));
}

void *__sc_szalloc(void *sz_ctx, uint32_t size, int flags, const char *file,
                   int line) {
  (void)flags;
  (void)file;
  (void)line;
  ctx *c = (ctx *)sz_ctx;
  if (!c || c->magic != CTX_MAGIC || size > c->max_alloc) return NULL;
  return take(c, size, 0);
}

void __sc_szfree(void *sz_ctx, void *ptr, uint32_t size, const char *file,
                 int line) {
  give(ptr, size, (ctx *)sz_ctx, 0, file ? file : "?", line, NULL);
}

uint32_t sc_sz_get_max_alloc(void *sz_ctx) {
  ctx *c = (ctx *)sz_ctx;
  return c && c->magic == CTX_MAGIC ? c->max_alloc : 0;
}

static sc_host_usage read_usage(const sc_host_usage *u) {
  pthread_mutex_lock(&lock);
  sc_host_usage copy = *u;
  pthread_mutex_unlock(&lock);
  return copy;
}

void *sc_host_ctx_create(uint32_t max_alloc) {
  ctx *c = (ctx *)calloc(1, sizeof *c);
  if (!c) return NULL;
  c->magic = CTX_MAGIC;
  c->max_alloc = max_alloc;
  return c;
}

uint64_t sc_host_ctx_destroy(void *sz_ctx) {
  ctx *c = (ctx *)sz_ctx;
  if (!c) return 0;
  uint64_t left = read_usage(&c->usage).blocks;
  if (left) {
    /* Its blocks still point at it, so the record stays (leaked on
     * purpose) to keep their later release well defined. */
    fprintf(stderr,
            "vell-ds host: context %p destroyed with %llu blocks (%llu "
            "bytes) outstanding\n",
            sz_ctx, (unsigned long long)left,
            (unsigned long long)c->usage.bytes);
    return left;
  }
  c->magic = 0;
  free(c);
  return 0;
}

sc_host_usage sc_host_heap_usage(void) { return read_usage(&heap_usage); }
sc_host_usage sc_host_sz_usage(void) { return read_usage(&sz_total); }
sc_host_usage sc_host_ctx_usage(void *sz_ctx) {
  sc_host_usage none = {0, 0};
  return sz_ctx ? read_usage(&((ctx *)sz_ctx)->usage) : none;
}
uint64_t sc_host_release_errors(void) { return release_errors; }
void sc_host_set_abort_on_error(int on) { abort_on_error = on; }
void sc_host_set_debug_level(int level) { __sc_debug_level = level; }

__attribute__((constructor)) static void debug_level_from_env(void) {
  const char *s = getenv("VELL_DS_DEBUG");
  if (!s || !*s) return;
  char *end;
  long v = strtol(s, &end, 10);
  if (*end == '\0') __sc_debug_level = (int)v;
}

/* ---- diagnostics and console --------------------------------------------- */

/* With a handler set, the prefix call only records where the diagnostic
 * comes from and the message call delivers both. */
static sc_host_diag_handler *diag_handler;
static struct {
  int level, line;
  const char *file;
} diag_origin;

void sc_host_set_diag_handler(sc_host_diag_handler *handler) {
  diag_handler = handler;
}

sc_host_diag_handler *sc_host_get_diag_handler(void) { return diag_handler; }

int __sc_print_prefix(int level, const char *file, int line) {
  if (diag_handler) {
    diag_origin.level = level;
    diag_origin.file = file;
    diag_origin.line = line;
    return 0;
  }
  return fprintf(stderr, "<%d> %s:%d: ", level, file, line);
}

int __sc_print_msg(const char *fmt, ...) {
  va_list ap;
  va_start(ap, fmt);
  int n;
  if (diag_handler) {
    char msg[512];
    n = vsnprintf(msg, sizeof msg, fmt, ap);
    diag_handler(diag_origin.level, diag_origin.file, diag_origin.line, msg);
  } else {
    n = vfprintf(stderr, fmt, ap);
  }
  va_end(ap);
  return n;
}

int sc_printf(const char *fmt, ...) {
  va_list ap;
  va_start(ap, fmt);
  int n = vprintf(fmt, ap);
  va_end(ap);
  return n;
}
