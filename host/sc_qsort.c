/* sc_qsort: in-place introsort whose comparator receives a pass-through
 * argument as its third parameter. Written here because the platforms' own
 * qsort_r variants disagree on the comparator's argument order. Not stable.
 * Any count, including 0 and 1, and any element size are accepted. */
#include <stddef.h>
#include <stdint.h>
#include <string.h>

#include "sc_host.h"

typedef struct sorter {
  char *base;
  size_t size;
  sc_qsort_cmp cmp;
  void *arg;
} sorter;

static char *at(const sorter *s, size_t i) { return s->base + i * s->size; }

static int less(const sorter *s, size_t i, size_t j) {
  return s->cmp(at(s, i), at(s, j), s->arg) < 0;
}

static void swap(const sorter *s, size_t i, size_t j) {
  if (i == j) return;
  char *a = at(s, i), *b = at(s, j);
  char tmp[64];
  for (size_t left = s->size; left;) {
    size_t n = left < sizeof tmp ? left : sizeof tmp;
    memcpy(tmp, a, n);
    memcpy(a, b, n);
    memcpy(b, tmp, n);
    a += n;
    b += n;
    left -= n;
  }
}

static void insertion(const sorter *s, size_t lo, size_t hi) {
  for (size_t i = lo + 1; i < hi; i++)
    for (size_t j = i; j > lo && less(s, j, j - 1); j--) swap(s, j, j - 1);
}

static void sift_down(const sorter *s, size_t lo, size_t root, size_t n) {
  for (;;) {
    size_t child = 2 * root + 1;
    if (child >= n) return;
    if (child + 1 < n && less(s, lo + child, lo + child + 1)) child++;
    if (!less(s, lo + root, lo + child)) return;
    swap(s, lo + root, lo + child);
    root = child;
  }
}

static void heapsort_range(const sorter *s, size_t lo, size_t hi) {
  size_t n = hi - lo;
  for (size_t i = n / 2; i-- > 0;) sift_down(s, lo, i, n);
  for (size_t end = n; end-- > 1;) {
    swap(s, lo, lo + end);
    sift_down(s, lo, 0, end);
  }
}

/* Sorts [lo, hi): median-of-three quicksort, recursing into the smaller side
 * so the stack stays logarithmic, heapsort when the depth budget runs out. */
static void introsort(const sorter *s, size_t lo, size_t hi, int depth) {
  while (hi - lo > 16) {
    if (depth-- == 0) {
      heapsort_range(s, lo, hi);
      return;
    }
    size_t mid = lo + (hi - lo) / 2, last = hi - 1;
    if (less(s, mid, lo)) swap(s, mid, lo);
    if (less(s, last, mid)) {
      swap(s, last, mid);
      if (less(s, mid, lo)) swap(s, mid, lo);
    }
    /* Pivot to lo; Hoare partition around it. */
    swap(s, lo, mid);
    size_t i = lo, j = hi;
    for (;;) {
      do i++;
      while (i < hi && less(s, i, lo));
      do j--;
      while (less(s, lo, j));
      if (i >= j) break;
      swap(s, i, j);
    }
    swap(s, lo, j);
    if (j - lo < hi - j - 1) {
      introsort(s, lo, j, depth);
      lo = j + 1;
    } else {
      introsort(s, j + 1, hi, depth);
      hi = j;
    }
  }
  insertion(s, lo, hi);
}

void sc_qsort(void *base, uint32_t count, uint32_t size, sc_qsort_cmp compare,
              void *arg) {
  if (count < 2 || size == 0) return;
  sorter s = {(char *)base, size, compare, arg};
  int depth = 0;
  for (uint32_t n = count; n; n >>= 1) depth += 2;
  introsort(&s, 0, count, depth);
}
