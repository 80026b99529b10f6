/* Uses the field that a schema got by one more line, in all the ways in which older fields are used. */
#include <stdio.h>
#include <toy/toy.h>

#define CHECK(condition)                                           \
  do {                                                             \
    if (!(condition)) {                                            \
      printf("line %d: %s (err %d)\n", __LINE__, #condition, err); \
      return 1;                                                    \
    }                                                              \
  } while (0)

int main(void) {
  static uint8_t bytes[1024];
  static char xml[4096], message[200];
  int err = 0;
  kvt_handle_options options;
  kvt_handle_options_init(&options);
  options.tracking = KVT_STTR_ON;
  kvt_handle* h = kvt_handle_open_private(&options, &err);
  CHECK(h != NULL);
  void *tree = st_tree_create(h, 0), *read = st_tree_create(h, 0), *from_xml = st_tree_create(h, 0);

  CHECK(st_tree_rings_get_value(h, 0, tree, &err) == 0 && err == 0);
  st_tree_rings_set_value(h, 0, tree, 1234567, &err);
  CHECK(st_tree_rings_get_value(h, 0, tree, &err) == 1234567 && err == 0);
  CHECK(st_tree_rings_state_flag_get(h, 0, tree, &err) != 0 && err == 0);
  CHECK(st_tree_id_state_flag_get(h, 0, tree, &err) == 0 && err == 0);
  CHECK(st_tree_compare(tree, read) > 0);

  uint32_t length = st_tree_marshal(h, 0, bytes, tree, sizeof bytes, &err);
  CHECK(err == 0 && length == st_tree_len(h, 0, tree));
  CHECK(st_tree_unmarshal(h, 0, bytes, read, (int32_t)length, 0, &err) == length && err == 0);
  CHECK(st_tree_rings_get_value(h, 0, read, &err) == 1234567 && st_tree_compare(tree, read) == 0);

  uint32_t written = st_tree_to_xml(h, 0, "st_tree", xml, tree, sizeof xml - 1, 0, &err);
  CHECK(err == 0);
  kvt_xml_document* document = kvt_xml_parse(xml, written, message, sizeof message);
  CHECK(document != NULL);
  st_tree_from_xml(h, 0, "//st_tree", document, from_xml, &err, message, sizeof message);
  CHECK(err == 0 && st_tree_rings_get_value(h, 0, from_xml, &err) == 1234567);
  kvt_xml_free(document);
  xml[written] = 0;
  printf("%s\n", xml);

  /* An object of the time before the field: it says so, and keeps what it has. */
  CHECK(kvt_domain_set_variant(h, &_st_tree_type_info_internal, 1) == 0);
  void* older = st_tree_create(h, 0);
  st_tree_id_set_value(h, 0, older, 7, &err);
  CHECK(err == 0);
  st_tree_rings_set_value(h, 0, older, 1, &err);
  CHECK(err == 43);
  err = 0;

  void* table = tbl_trees_table_open(h, 0, "wood", 0, &err);
  void* record = tbl_trees_create_record(h, 0, &err);
  tbl_trees_st_tree_set_field(h, 0, record, tree);
  tbl_trees_insert(h, 0, table, record, &err);
  CHECK(err == 0 && tbl_trees_pkey_get_first(h, 0, table, &err) == record);
  CHECK(tbl_trees_destroy_record(h, 0, record, &err) == 0 && tbl_trees_table_get_count(h, 0, table) == 0);

  st_tree_destroy(h, 0, read);
  st_tree_destroy(h, 0, from_xml);
  st_tree_destroy(h, 0, older);
  kvt_handle_close(h);
  return 0;
}
