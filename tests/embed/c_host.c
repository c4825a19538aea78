/* A host of its own, written in C: it defines every host symbol the library
 * imports and links only libvell-ds.so. Including every public header here
 * also checks that each compiles as C99. */
#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "sc_btrie.h"
#include "sc_btrie6.h"
#include "sc_elist.h"
#include "sc_hash.h"
#include "sc_host.h"
#include "sc_kctype.h"
#include "sc_khash.h"
#include "sc_ktimer.h"
#include "sc_ohash.h"
#include "sc_vector.h"

int __sc_debug_level = 2;
int32_t __sc_print_val;
static long outstanding, diagnostics, fail_next;

void *__sc_kmalloc(uint32_t size) {
  if (fail_next) {
    fail_next = 0;
    return NULL;
  }
  outstanding++;
  return malloc(size);
}
void *__sc_kcalloc(uint32_t count, uint32_t size) {
  outstanding++;
  return calloc(count, size);
}
void __sc_kfree(void *ptr, uint32_t size) {
  (void)size;
  if (ptr) outstanding--;
  free(ptr);
}
void *__sc_szalloc(void *ctx, uint32_t size, int flags, const char *file,
                   int line) {
  (void)ctx, (void)flags, (void)file, (void)line;
  return __sc_kmalloc(size);
}
void __sc_szfree(void *ctx, void *ptr, uint32_t size, const char *file,
                 int line) {
  (void)ctx, (void)file, (void)line;
  __sc_kfree(ptr, size);
}
uint32_t sc_sz_get_max_alloc(void *ctx) {
  (void)ctx;
  return 1024;
}
int __sc_print_prefix(int level, const char *file, int line) {
  diagnostics++;
  return fprintf(stderr, "[%d %s:%d] ", level, file, line);
}
int __sc_print_msg(const char *fmt, ...) {
  va_list ap;
  va_start(ap, fmt);
  int n = vfprintf(stderr, fmt, ap);
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
/* Insertion sort is all a small host needs. */
void sc_qsort(void *base, uint32_t count, uint32_t size, sc_qsort_cmp compare,
              void *arg) {
  char *b = base, *tmp = malloc(size ? size : 1);
  for (uint32_t i = 1; i < count; i++)
    for (uint32_t j = i;
         j > 0 && compare(b + j * size, b + (j - 1) * size, arg) < 0; j--) {
      memcpy(tmp, b + j * size, size);
      memcpy(b + j * size, b + (j - 1) * size, size);
      memcpy(b + (j - 1) * size, tmp, size);
    }
  free(tmp);
}

#define CHECK(c)                                                            \
  do {                                                                      \
    if (!(c)) {                                                             \
      fprintf(stderr, "%s:%d: check failed: %s\n", __FILE__, __LINE__, #c); \
      return 1;                                                             \
    }                                                                       \
  } while (0)

int main(void) {
  sc_elist *l = sc_elist_construct("embedded");
  CHECK(l != NULL);
  sc_elist_node a, b;
  sc_elist_push_back(l, &a);
  sc_elist_push_front(l, &b);
  CHECK(sc_elist_get_size(l) == 2 && sc_elist_peek_front(l) == &b);
  sc_elist_destruct(l);

  fail_next = 1;
  CHECK(sc_elist_construct("x") == NULL);
  CHECK(diagnostics == 1 && __sc_print_val > 0);

  CHECK((sc_kctype['A'] & SC_KCTYPE_UPPER) != 0);
  CHECK(outstanding == 0);
  puts("embedded host: ok");
  return 0;
}
