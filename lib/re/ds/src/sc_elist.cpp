// Intrusive doubly linked list. Only construct and destruct allocate.
#include "sc_elist.h"

#include <string.h>

#include "api.h"
#include "diag.h"

namespace {

constexpr char kModule[] = "lib/re/ds/src/sc_elist";

// The list seen from one of its ends: End is that end, Other the opposite
// one; a node's Out link points towards End, its In link away from it. The
// front and the back are the same operations over mirrored links.
template <auto End, auto Other, auto Out, auto In>
struct Side {
  static void push(sc_elist *l, sc_elist_node *n) {
    n->*Out = nullptr;
    n->*In = l->*End;
    if (l->*End)
      (l->*End)->*Out = n;
    else
      l->*Other = n;
    l->*End = n;
    l->size++;
  }
  // n next to pos on End's side; an end position is a push.
  static void insert_beside(sc_elist *l, sc_elist_node *pos, sc_elist_node *n) {
    if (!(pos->*Out)) return push(l, n);
    n->*Out = pos->*Out;
    n->*In = pos;
    (pos->*Out)->*In = n;
    pos->*Out = n;
    l->size++;
  }
  static sc_elist_node *pop(sc_elist *l) {
    sc_elist_node *n = l->*End;
    if (!n) return nullptr;
    l->*End = n->*In;
    if (l->*End)
      (l->*End)->*Out = nullptr;
    else
      l->*Other = nullptr;
    n->next = n->prev = nullptr;
    l->size--;
    return n;
  }
};
using Back = Side<&sc_elist::tail, &sc_elist::head, &sc_elist_node::next,
                  &sc_elist_node::prev>;
using Front = Side<&sc_elist::head, &sc_elist::tail, &sc_elist_node::prev,
                   &sc_elist_node::next>;

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
  Back::push(l, n);
  return 1;
}

VDS_API int sc_elist_push_front(sc_elist *l, sc_elist_node *n) {
  Front::push(l, n);
  return 1;
}

// Both inserts decide whether pos is an end from pos's own links.
VDS_API int sc_elist_insert_after(sc_elist *l, sc_elist_node *pos,
                                  sc_elist_node *n) {
  Back::insert_beside(l, pos, n);
  return 1;
}

VDS_API int sc_elist_insert_before(sc_elist *l, sc_elist_node *pos,
                                   sc_elist_node *n) {
  Front::insert_beside(l, pos, n);
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

VDS_API sc_elist_node *sc_elist_pop_front(sc_elist *l) { return Front::pop(l); }

VDS_API sc_elist_node *sc_elist_pop_back(sc_elist *l) { return Back::pop(l); }

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
