# A module of its own, with one of everything that a schema can say: golden output and the one-line addition use it.
module toy 201
  struct st_leaf
  struct st_tree
  enum   enm_shade
  flag   flg_marks
  table  tbl_trees

enum enm_shade 00000000000000000000000000000001 "Shade of a leaf"
  SHADE_NONE          "None"
  SHADE_DARK          "Dark"
  SHADE_RED  since 1  "Red, in autumn"

flag flg_marks 00000000000000000000000000000002 "Marks on a tree"
  MARK_FELL   "To be felled"
  MARK_PRUNE  "To be pruned"

struct st_leaf 00000000000000000000000000000003 "Leaf"
  shade  enm_shade           "Shade"
  width  u_int16    unit mm  "Width"

table tbl_trees st_tree "Trees"
  luid    00000000000000000000000000000006
  record  00000000000000000000000000000007
  key     id
  key     name

struct st_tree 00000000000000000000000000000004 "Tree"
  id      u_int32                                  "Number; the key of tbl_trees"
  name    kvt_vstring                              "Name"
  leaf    st_leaf                                  "Topmost leaf"
  secret  kvt_aes_vstring                          "What the tree knows"
  marks   flg_marks                                "Marks"
  alive   kvt_boolean                              "Alive"
  parent  kvt_oid -> table tbl_trees    variant 1  "Tree it grew from"
