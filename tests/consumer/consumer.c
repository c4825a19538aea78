/* A C client on the default host services, built with pkg-config. Prints
 * "consumer-c ok" when a trie lookup answers and every block went back. */
#include <sc_btrie.h>
#include <sc_host_default.h>
#include <stdio.h>

int main(void) {
  sc_btrie_entry e = {0x0A000000u, 8, SC_BTRIE_NO_PREFIX, 42};
  sc_btrie *trie = sc_btrie_construct(NULL, &e, 1, 50, 0);
  int ok = trie && sc_btrie_lpmatch(trie, 0x0A010203u) == 42;
  sc_btrie_destruct(trie);
  ok = ok && sc_host_heap_usage().blocks == 0;
  printf("consumer-c %s\n", ok ? "ok" : "failed");
  return !ok;
}
