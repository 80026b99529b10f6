/* References that a nested object holds, and objects that wait for each other to go. */
#include <stdio.h>
#include <toy/toy.h>

#define CHECK(condition)                                           \
  do {                                                             \
    if (!(condition)) {                                            \
      printf("line %d: %s (err %d)\n", __LINE__, #condition, err); \
      return 1;                                                    \
    }                                                              \
  } while (0)

enum { kWay = 50000 };

static uint64_t live_groves(void) {
  const kvt_variant_entry* entry = kvt_variant_entries(kvt_varinfo_of(&_st_grove_type_info_internal));
  return entry->created - entry->destroyed;
}

int main(void) {
  int err = 0;
  kvt_handle* h = kvt_handle_open_private(NULL, &err);
  CHECK(h != NULL);
  void* table = tbl_trees_table_open(h, 0, "wood", 0, &err);
  void* groves[2];
  for (int i = 0; i < 2; ++i) {
    groves[i] = st_grove_create(h, 0);
    void* tree = st_grove_oldest_get(h, 0, groves[i], &err);
    CHECK(st_tree_get_oid_count(h, 0, tree, &err) == 1);
    st_tree_parent_set_by_ref(h, 0, tree, table, &err);
    CHECK(st_tree_parent_get_by_ref(h, 0, tree, &err) == table && err == 0);
  }
  CHECK(!kvt_request_oid_mapping_destroy(h, 0, table, &err) && err == 0);
  /* A raw copy brings a nested object the header of one that stands alone. */
  void* alone = st_tree_create(h, 0);
  st_tree_parent_set_by_ref(h, 0, alone, table, &err);
  st_grove_oldest_set(h, 0, groves[0], alone, &err);
  st_tree_parent_set_by_ref(h, 0, alone, NULL, &err);
  CHECK(err == 0);
  st_tree_destroy(h, 0, alone);
  st_grove_destroy(h, 0, groves[0]);
  CHECK(!kvt_request_oid_mapping_destroy(h, 0, table, &err) && err == 0); /* the other one's is left */
  st_grove_destroy(h, 0, groves[1]);
  CHECK(kvt_request_oid_mapping_destroy(h, 0, table, &err) && err == 0);

  /* Each grove leads to the one before; all are destroyed, and stay for the one that a tree of ours still shows. */
  void* last = NULL;
  void* guide = st_grove_create(h, 0);
  for (int i = 0; i < kWay; ++i) {
    void* grove = st_grove_create(h, 0);
    if (last) {
      st_grove_next_set_by_ref(h, 0, grove, last, &err);
      st_grove_destroy(h, 0, last);
    }
    last = grove;
  }
  st_grove_next_set_by_ref(h, 0, guide, last, &err);
  st_grove_destroy(h, 0, last);
  CHECK(err == 0 && live_groves() == kWay + 1);
  st_grove_destroy(h, 0, guide);
  CHECK(live_groves() == 0);
  kvt_handle_close(h);
  return 0;
}
