// Intrusive doubly linked list. Only construct and destruct allocate.
#include "sc_elist.h"

#include <string.h>

#include "api.h"
#include "diag.h"

namespace {

constexpr const char kModule[] = "lib/re/ds/src/sc_elist";

}  // namespace

VDS_API sc_elist *sc_elist_construct(const char *name) {
  if (!name) name = "";
  auto *l = static_cast<sc_elist *>(__sc_kmalloc(sizeof(sc_elist)));
  if (!l) {
    VDS_DIAG(vds::kFailure, kModule,
             "sc_elist_construct[%s]: sc_malloc(%d) failed\n", name,
             static_cast<int>(sizeof(sc_elist)));
    return nullptr;
  }
  l->head = l->tail = nullptr;
  l->size = 0;
  // strncpy pads the field with zero bytes; the last byte always terminates.
  strncpy(l->name, name, sizeof l->name - 1);
  l->name[sizeof l->name - 1] = '\0';
  return l;
}

VDS_API void sc_elist_destruct(sc_elist *l) { __sc_kfree(l, sizeof(sc_elist)); }

VDS_API int sc_elist_push_back(sc_elist *l, sc_elist_node *n) {
  n->next = nullptr;
  n->prev = l->tail;
  if (l->tail)
    l->tail->next = n;
  else
    l->head = n;
  l->tail = n;
  l->size++;
  return 1;
}

VDS_API int sc_elist_push_front(sc_elist *l, sc_elist_node *n) {
  n->prev = nullptr;
  n->next = l->head;
  if (l->head)
    l->head->prev = n;
  else
    l->tail = n;
  l->head = n;
  l->size++;
  return 1;
}

// Both inserts decide whether pos is an end from pos's own links.
VDS_API int sc_elist_insert_after(sc_elist *l, sc_elist_node *pos,
                                  sc_elist_node *n) {
  if (!pos->next) return sc_elist_push_back(l, n);
  n->next = pos->next;
  n->prev = pos;
  pos->next->prev = n;
  pos->next = n;
  l->size++;
  return 1;
}

VDS_API int sc_elist_insert_before(sc_elist *l, sc_elist_node *pos,
                                   sc_elist_node *n) {
  if (!pos->prev) return sc_elist_push_front(l, n);
  n->next = pos;
  n->prev = pos->prev;
  pos->prev->next = n;
  pos->prev = n;
  l->size++;
  return 1;
}

VDS_API int sc_elist_append(sc_elist *dst, sc_elist *src) {
  if (!src->head) return 1;  // nothing to splice; both lists stay as they are
  if (!dst->head) {
    dst->head = src->head;
  } else {
    dst->tail->next = src->head;
    src->head->prev = dst->tail;
  }
  dst->tail = src->tail;
  dst->size += src->size;
  src->head = src->tail = nullptr;
  src->size = 0;
  return 1;
}

VDS_API sc_elist_node *sc_elist_pop_front(sc_elist *l) {
  sc_elist_node *n = l->head;
  if (!n) return nullptr;
  l->head = n->next;
  if (l->head)
    l->head->prev = nullptr;
  else
    l->tail = nullptr;
  n->next = n->prev = nullptr;
  l->size--;
  return n;
}

VDS_API sc_elist_node *sc_elist_pop_back(sc_elist *l) {
  sc_elist_node *n = l->tail;
  if (!n) return nullptr;
  l->tail = n->prev;
  if (l->tail)
    l->tail->next = nullptr;
  else
    l->head = nullptr;
  n->next = n->prev = nullptr;
  l->size--;
  return n;
}

VDS_API int sc_elist_remove(sc_elist *l, sc_elist_node *n) {
  if (n == l->head) {
    sc_elist_pop_front(l);
  } else if (n == l->tail) {
    sc_elist_pop_back(l);
  } else {
    n->prev->next = n->next;
    n->next->prev = n->prev;
    n->next = n->prev = nullptr;
    l->size--;
  }
  return 1;
}

VDS_API uint32_t sc_elist_get_size(const sc_elist *l) { return l->size; }
VDS_API sc_elist_node *sc_elist_peek_front(const sc_elist *l) {
  return l->head;
}
VDS_API sc_elist_node *sc_elist_peek_back(const sc_elist *l) { return l->tail; }
VDS_API sc_elist_node *sc_elist_get_next(const sc_elist_node *n) {
  return n->next;
}
VDS_API sc_elist_node *sc_elist_get_prev(const sc_elist_node *n) {
  return n->prev;
}
