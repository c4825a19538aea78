// Routines of sc_hash that stay inside the library (hidden visibility, not
// exported from the shared library). Declared here so the family's tests can
// reach them.
#pragma once

#include <stdint.h>

#include "sc_hash.h"

extern "C" {
uint32_t sc_hash_hash(sc_hash *h, const void *key, uint32_t ksz);
sc_hash_element **sc_hash_findp(sc_hash *h, const void *key, uint32_t ksz);
void sc_hash_element_get(sc_hash_element *e, void **key, uint32_t *ksz,
                         void **val, uint32_t *vsz);
sc_hash_element *sc_hash_internal_insert(sc_hash *h, const void *key,
                                         uint32_t ksz, const void *val,
                                         uint32_t vsz);
void sc_hash_internal_delete(sc_hash_element *e);
}
