/* Named, intrusive, doubly linked list. Callers embed sc_elist_node in their
 * own records; linking and unlinking never allocate. Only construct and
 * destruct touch the allocator.
 *
 * Decisions beyond the basic contract:
 * - a null name gives an empty name;
 * - appending an empty source leaves both lists unchanged and well formed;
 * - membership is not checked: removing a node that is not on the list, or
 *   linking a node that is already on one, is the caller's error. */
#ifndef SC_ELIST_H
#define SC_ELIST_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef struct sc_elist_node {
  struct sc_elist_node *next, *prev;
} sc_elist_node;

typedef struct sc_elist {
  sc_elist_node *head, *tail;
  uint32_t size;
  char name[32]; /* at most 31 characters, always terminated */
} sc_elist;

/* New empty list, or null (level-2 diagnostic) if its record cannot be
 * allocated. */
sc_elist *sc_elist_construct(const char *name);
/* Releases the record; nodes still linked are left alone. l must not be
 * null. */
void sc_elist_destruct(sc_elist *l);

/* The linking operations return 1 and cannot fail. */
int sc_elist_push_back(sc_elist *l, sc_elist_node *n);
int sc_elist_push_front(sc_elist *l, sc_elist_node *n);
int sc_elist_insert_after(sc_elist *l, sc_elist_node *pos, sc_elist_node *n);
int sc_elist_insert_before(sc_elist *l, sc_elist_node *pos, sc_elist_node *n);
/* Moves every node of src, in order, to the end of dst; src ends empty. */
int sc_elist_append(sc_elist *dst, sc_elist *src);
/* The node taken off (links cleared), or null if the list was empty. */
sc_elist_node *sc_elist_pop_front(sc_elist *l);
sc_elist_node *sc_elist_pop_back(sc_elist *l);
int sc_elist_remove(sc_elist *l, sc_elist_node *n);

uint32_t sc_elist_get_size(const sc_elist *l);
sc_elist_node *sc_elist_peek_front(const sc_elist *l);
sc_elist_node *sc_elist_peek_back(const sc_elist *l);
sc_elist_node *sc_elist_get_next(const sc_elist_node *n);
sc_elist_node *sc_elist_get_prev(const sc_elist_node *n);

#ifdef __cplusplus
}
#endif

#endif /* SC_ELIST_H */
