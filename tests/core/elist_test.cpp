// The intrusive list: its name, construction failure, and every link
// operation checked through both directions of the chain.
#include <string.h>

#include <vector>

#include "sc_elist.h"
#include "test_host.h"

namespace {

using ElistTest = HostTest;

struct Item {
  int value;
  sc_elist_node node;
};

// Checks both directions of the chain, the ends and the count, and returns
// the values from head to tail.
std::vector<int> walk(const sc_elist *l) {
  std::vector<int> out;
  const sc_elist_node *prev = nullptr;
  for (sc_elist_node *n = sc_elist_peek_front(l); n; n = sc_elist_get_next(n)) {
    EXPECT_EQ(sc_elist_get_prev(n), prev);
    out.push_back(reinterpret_cast<Item *>(reinterpret_cast<char *>(n) -
                                           offsetof(Item, node))
                      ->value);
    prev = n;
  }
  EXPECT_EQ(sc_elist_peek_back(l), prev);
  EXPECT_EQ(sc_elist_get_size(l), out.size());
  EXPECT_EQ(l->head == nullptr, l->size == 0);
  return out;
}

using V = std::vector<int>;

// A list is one heap block, empty when made, its name cut to 31 characters
// and padded with zeros (a null name is empty); a failed allocation is
// reported and gives null.
TEST_F(ElistTest, NameAndConstructFailure) {
  const char *n31 = "abcdefghijklmnopqrstuvwxyz01234";
  sc_elist *a = sc_elist_construct(n31);
  sc_elist *b = sc_elist_construct("abcdefghijklmnopqrstuvwxyz0123456789");
  sc_elist *c = sc_elist_construct("ab");
  sc_elist *d = sc_elist_construct(nullptr);
  ASSERT_TRUE(a && b && c && d);
  EXPECT_STREQ(a->name, n31);
  EXPECT_STREQ(b->name, n31);
  char expect[32] = "ab";
  EXPECT_EQ(memcmp(c->name, expect, 32), 0);
  EXPECT_STREQ(d->name, "");
  EXPECT_EQ(walk(a), V{});
  ASSERT_EQ(th::blocks().size(), 4u);
  EXPECT_EQ(th::blocks()[0].alloc, th::Alloc::kmalloc);
  EXPECT_EQ(th::blocks()[0].size, sizeof(sc_elist));
  for (sc_elist *l : {a, b, c, d}) sc_elist_destruct(l);

  th::fail_nth(1);
  EXPECT_EQ(sc_elist_construct("flows"), nullptr);
  ASSERT_EQ(th::diags().size(), 1u);
  EXPECT_EQ(th::diags()[0].level, 2);
  EXPECT_EQ(th::diags()[0].file, "lib/re/ds/src/sc_elist");
  EXPECT_EQ(th::diags()[0].text, "sc_elist_construct[flows]: sc_malloc(" +
                                     std::to_string(sizeof(sc_elist)) +
                                     ") failed\n");
}

TEST_F(ElistTest, PushPopInsertRemoveKeepTheListWellFormed) {
  sc_elist *l = sc_elist_construct("l");
  ASSERT_TRUE(l);
  Item it[6];
  for (int i = 0; i < 6; i++) it[i].value = i;

  // Popping an empty list gives null.
  EXPECT_EQ(sc_elist_pop_front(l), nullptr);
  EXPECT_EQ(sc_elist_pop_back(l), nullptr);
  EXPECT_EQ(walk(l), V{});

  // Pushes and inserts, at either end and in the middle; a removed node
  // goes back in at the same place.
  EXPECT_EQ(sc_elist_push_back(l, &it[1].node), 1);
  EXPECT_EQ(sc_elist_push_front(l, &it[0].node), 1);
  EXPECT_EQ(sc_elist_push_back(l, &it[3].node), 1);
  EXPECT_EQ(walk(l), (V{0, 1, 3}));
  // Tail as position: behaves as push_back; head as position: push_front.
  EXPECT_EQ(sc_elist_insert_after(l, &it[3].node, &it[4].node), 1);
  EXPECT_EQ(sc_elist_insert_before(l, &it[0].node, &it[5].node), 1);
  EXPECT_EQ(walk(l), (V{5, 0, 1, 3, 4}));
  EXPECT_EQ(sc_elist_insert_after(l, &it[1].node, &it[2].node), 1);
  EXPECT_EQ(walk(l), (V{5, 0, 1, 2, 3, 4}));
  sc_elist_remove(l, &it[2].node);
  EXPECT_EQ(sc_elist_insert_before(l, &it[3].node, &it[2].node), 1);
  EXPECT_EQ(walk(l), (V{5, 0, 1, 2, 3, 4}));

  // Remove a middle node, the head and the tail; links are cleared.
  EXPECT_EQ(sc_elist_remove(l, &it[2].node), 1);
  EXPECT_EQ(it[2].node.next, nullptr);
  EXPECT_EQ(it[2].node.prev, nullptr);
  EXPECT_EQ(sc_elist_remove(l, &it[5].node), 1);
  EXPECT_EQ(sc_elist_remove(l, &it[4].node), 1);
  EXPECT_EQ(walk(l), (V{0, 1, 3}));

  EXPECT_EQ(sc_elist_pop_back(l), &it[3].node);
  EXPECT_EQ(sc_elist_pop_front(l), &it[0].node);
  EXPECT_EQ(it[0].node.next, nullptr);
  // The only node: both ends become null.
  EXPECT_EQ(sc_elist_remove(l, &it[1].node), 1);
  EXPECT_EQ(it[1].node.next, nullptr);
  EXPECT_EQ(walk(l), V{});
  EXPECT_EQ(l->tail, nullptr);
  sc_elist_destruct(l);
}

// Append onto an empty list, from an empty list and between two lists:
// the source is left empty, its name kept.
TEST_F(ElistTest, AppendMovesEveryNodeAndEmptiesTheSource) {
  sc_elist *a = sc_elist_construct("a");
  sc_elist *b = sc_elist_construct("b");
  ASSERT_TRUE(a && b);
  Item it[5];
  for (int i = 0; i < 5; i++) it[i].value = i;
  const V add[] = {{}, {0, 1}, {}, {2, 3, 4}},
          want[] = {{}, {0, 1}, {0, 1}, {0, 1, 2, 3, 4}};
  for (int round = 0; round < 4; round++) {
    for (int i : add[round]) sc_elist_push_back(b, &it[i].node);
    EXPECT_EQ(sc_elist_append(a, b), 1);
    EXPECT_EQ(walk(a), want[round]);
    EXPECT_EQ(walk(b), V{});
  }
  EXPECT_STREQ(b->name, "b");
  sc_elist_destruct(a);
  sc_elist_destruct(b);
}

}  // namespace
